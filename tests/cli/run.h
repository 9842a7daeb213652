// Running the inkweave program from a test, and scratch directories for its files.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace inkweave::cli::testing {

struct RunResult {
  int Exit = -1;
  std::string Out;
  std::string Err;
};

// Runs the inkweave program with these arguments (no shell quoting needed for plain paths).
RunResult RunInkweave(const std::vector<std::string>& args);

// A fresh directory, removed with its contents at the end of the test.
class ScratchDir {
 public:
  ScratchDir();
  ~ScratchDir();
  const std::filesystem::path& Path() const { return path_; }
  std::string operator/(const std::string& name) const { return (path_ / name).string(); }
  // Names of the files in it, sorted.
  std::vector<std::string> Files() const;

 private:
  std::filesystem::path path_;
};

std::string Example(const std::string& name);  // a file of examples/
std::vector<unsigned char> ReadFile(const std::string& path);
void WriteFile(const std::string& path, const std::string& bytes);

}  // namespace inkweave::cli::testing
