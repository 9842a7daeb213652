#include "tests/cli/run.h"

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <sstream>

namespace inkweave::cli::testing {
namespace {

std::string Quote(const std::string& s) {
  std::string out = "'";
  for (char c : s) {
    if (c == '\'')
      out += "'\\''";
    else
      out += c;
  }
  return out + "'";
}

std::string Slurp(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
}

}  // namespace

RunResult RunInkweave(const std::vector<std::string>& args) {
  ScratchDir io;
  std::string command = Quote(INKWEAVE_CLI);
  // Appended piece by piece: `" " + std::string` trips GCC 12's false -Wrestrict at -O3.
  for (const std::string& a : args) command.append(" ").append(Quote(a));
  command.append(" >").append(Quote(io / "out")).append(" 2>").append(Quote(io / "err")).append(" </dev/null");
  const int status = std::system(command.c_str());
  RunResult result;
  result.Exit = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + (WIFSIGNALED(status) ? WTERMSIG(status) : 0);
  result.Out = Slurp(io.Path() / "out");
  result.Err = Slurp(io.Path() / "err");
  return result;
}

ScratchDir::ScratchDir() {
  std::string pattern = (std::filesystem::temp_directory_path() / "inkweave-cli-XXXXXX").string();
  path_ = mkdtemp(pattern.data());
}

ScratchDir::~ScratchDir() {
  std::error_code ec;
  std::filesystem::remove_all(path_, ec);
}

std::vector<std::string> ScratchDir::Files() const {
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(path_))
    names.push_back(entry.path().filename().string());
  std::sort(names.begin(), names.end());
  return names;
}

std::string Example(const std::string& name) { return std::string(INKWEAVE_SOURCE_DIR) + "/examples/" + name; }

std::vector<unsigned char> ReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::vector<unsigned char>((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
}

void WriteFile(const std::string& path, const std::string& bytes) {
  std::ofstream out(path, std::ios::binary);
  out << bytes;
}

}  // namespace inkweave::cli::testing
