#include "cli/output_file.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace inkweave::cli {

std::unique_ptr<OutputFile> OutputFile::Create(const std::string& path, std::string* error) {
  std::unique_ptr<OutputFile> out(new OutputFile());
  out->path_ = path;
  auto fail = [&](const std::string& why) -> std::unique_ptr<OutputFile> {
    if (error) *error = why;
    return nullptr;
  };
  if (path == "-") {
    if (isatty(STDOUT_FILENO)) return fail("-o -: standard output is a terminal; redirect it to a file or a pipe");
    out->file_ = stdout;
    return out;
  }
  if (path.empty()) return fail("-o: no output file named");

  const std::size_t slash = path.rfind('/');
  const std::string dir = slash == std::string::npos ? "." : (slash == 0 ? "/" : path.substr(0, slash));
  const std::string base = slash == std::string::npos ? path : path.substr(slash + 1);
  if (base.empty()) return fail(path + ": names a directory, not a file");
  struct stat st {};
  if (stat(dir.c_str(), &st) != 0 || !S_ISDIR(st.st_mode))
    return fail(path + ": the directory " + dir + " does not exist");
  if (stat(path.c_str(), &st) == 0) {
    if (S_ISDIR(st.st_mode)) return fail(path + ": is a directory");
    if (S_ISCHR(st.st_mode) || S_ISFIFO(st.st_mode) || S_ISSOCK(st.st_mode)) {
      // A printer device, /dev/null or a named pipe: the stream goes straight to it.
      out->file_ = std::fopen(path.c_str(), "wb");
      if (!out->file_) return fail(path + ": " + std::strerror(errno));
      return out;
    }
    if (!S_ISREG(st.st_mode)) return fail(path + ": is neither a regular file nor a device or pipe; not writing to it");
    if (access(path.c_str(), W_OK) != 0) return fail(path + ": " + std::strerror(errno));
  }

  std::string temp = dir + "/." + base + ".XXXXXX";
  std::vector<char> name(temp.begin(), temp.end());
  name.push_back('\0');
  const int fd = mkstemp(name.data());
  if (fd < 0) return fail(path + ": cannot create a file in " + dir + ": " + std::strerror(errno));
  out->temp_ = name.data();
  // mkstemp makes the file private; give it the mode a newly created file would have.
  const mode_t mask = umask(0);
  umask(mask);
  fchmod(fd, 0666 & ~mask);
  out->file_ = fdopen(fd, "wb");
  if (!out->file_) {
    close(fd);
    unlink(out->temp_.c_str());
    return fail(path + ": " + std::strerror(errno));
  }
  return out;
}

OutputFile::~OutputFile() {
  if (file_ && file_ != stdout) std::fclose(file_);
  if (!committed_ && !temp_.empty()) unlink(temp_.c_str());
}

bool OutputFile::Write(const std::uint8_t* bytes, std::size_t size) {
  if (failed_) return false;
  if (std::fwrite(bytes, 1, size, file_) != size) {
    failed_ = true;
    reason_ = errno == EPIPE ? "the program reading it closed the pipe" : std::strerror(errno);
    return false;
  }
  bytes_ += size;
  return true;
}

bool OutputFile::Commit(std::string* error) {
  auto fail = [&](const std::string& why) {
    if (error) *error = Name() + ": " + why;
    return false;
  };
  if (failed_) return fail("write failed: " + reason_);
  if (std::fflush(file_) != 0) {
    failed_ = true;
    reason_ = errno == EPIPE ? "the program reading it closed the pipe" : std::strerror(errno);
    return fail("write failed: " + reason_);
  }
  if (temp_.empty()) return committed_ = true;
  const int closed = std::fclose(file_);
  file_ = nullptr;
  if (closed != 0) return fail(std::string("write failed: ") + std::strerror(errno));
  if (std::rename(temp_.c_str(), path_.c_str()) != 0) return fail(std::strerror(errno));
  committed_ = true;
  return true;
}

}  // namespace inkweave::cli
