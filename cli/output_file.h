// The job's output: written to a temporary file beside the named one and renamed over it only when
// the job completed, so a failed or interrupted run never leaves a partial stream under the user's
// name (and never touches any other file). "-" streams to standard output instead, and a device or
// named pipe (a printer port, /dev/null) is written directly.
#pragma once

#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>

namespace inkweave::cli {

class OutputFile {
 public:
  // Null with a one-line *error when the output cannot be made (missing directory, a directory
  // named as output, no permission, standard output is a terminal).
  static std::unique_ptr<OutputFile> Create(const std::string& path, std::string* error);
  ~OutputFile();  // removes the temporary file unless Commit succeeded
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;

  // False once any write failed (the disk is full, the pipe closed); later writes are dropped.
  bool Write(const std::uint8_t* bytes, std::size_t size);
  bool Failed() const { return failed_; }
  const std::string& Reason() const { return reason_; }
  // Flushes, closes and renames into place.
  bool Commit(std::string* error);
  const std::string& Path() const { return path_; }
  // For messages: the path, or "standard output".
  std::string Name() const { return path_ == "-" ? "standard output" : path_; }
  std::uint64_t Bytes() const { return bytes_; }

 private:
  OutputFile() = default;
  std::string path_;
  std::string temp_;  // empty for standard output, a device or a pipe
  std::FILE* file_ = nullptr;
  bool failed_ = false;
  bool committed_ = false;
  std::string reason_;
  std::uint64_t bytes_ = 0;
};

}  // namespace inkweave::cli
