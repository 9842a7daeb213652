// Files in tests: whole-file reads and writes, and scratch directories that go with the test.
#pragma once

#include <stdlib.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace inkweave::testing {

inline std::string ReadText(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

inline std::vector<std::uint8_t> ReadBytes(const std::filesystem::path& path) {
  const std::string text = ReadText(path);
  return {text.begin(), text.end()};
}

inline void WriteText(const std::filesystem::path& path, const std::string& text) {
  std::ofstream(path, std::ios::binary) << text;
}

// A fresh directory (/tmp/inkweave-<name>-XXXXXX), removed with its contents when the object goes. Other
// users may enter it (not list it): a CUPS scheduler runs filters and backends as lp, and the build tree
// may sit where lp cannot go.
class TempDir {
 public:
  explicit TempDir(const std::string& name = "test") {
    std::string pattern = (std::filesystem::temp_directory_path() / ("inkweave-" + name + "-XXXXXX")).string();
    if (!mkdtemp(pattern.data())) return;
    path_ = pattern;
    using std::filesystem::perms;
    std::filesystem::permissions(path_, perms::owner_all | perms::group_exec | perms::others_exec);
  }
  ~TempDir() {
    std::error_code ignored;
    if (!path_.empty()) std::filesystem::remove_all(path_, ignored);
  }
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  const std::filesystem::path& Path() const { return path_; }
  std::string operator/(const std::string& name) const { return (path_ / name).string(); }

 private:
  std::filesystem::path path_;
};

}  // namespace inkweave::testing
