#include "cli/library_messages.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>

namespace inkweave::cli {
namespace {
std::FILE* gMessages = nullptr;
}  // namespace

std::FILE* Messages() { return gMessages ? gMessages : stderr; }

LibraryMessages::LibraryMessages() {
  std::fflush(stderr);
  capture_ = memfd_create("inkweave-library-messages", MFD_CLOEXEC);
  terminal_ = fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 3);
  if (capture_ >= 0 && terminal_ >= 0) messages_ = fdopen(terminal_, "w");
  if (!messages_ || dup2(capture_, STDERR_FILENO) < 0) {
    if (messages_)
      std::fclose(messages_);  // closes terminal_
    else if (terminal_ >= 0)
      close(terminal_);
    if (capture_ >= 0) close(capture_);
    capture_ = terminal_ = -1;
    messages_ = nullptr;
    return;
  }
  std::setvbuf(messages_, nullptr, _IONBF, 0);
  gMessages = messages_;
}

LibraryMessages::~LibraryMessages() {
  if (!messages_) return;
  std::fflush(stderr);
  dup2(terminal_, STDERR_FILENO);
  gMessages = nullptr;
  std::fclose(messages_);
  close(capture_);
}

void LibraryMessages::Collect(const std::string& input) {
  if (capture_ < 0) return;
  std::fflush(stderr);
  // Everything written since the last call, then the file emptied for what follows (standard error
  // shares the file's offset, so it writes from the start again).
  std::string text;
  char buffer[4096];
  for (off_t at = 0;;) {
    const ssize_t got = pread(capture_, buffer, sizeof buffer, at);
    if (got <= 0) break;
    text.append(buffer, static_cast<std::size_t>(got));
    at += got;
  }
  if (ftruncate(capture_, 0) == 0) lseek(capture_, 0, SEEK_SET);

  for (std::size_t start = 0; start < text.size();) {
    std::size_t end = text.find('\n', start);
    if (end == std::string::npos) end = text.size();
    std::string line = text.substr(start, end - start);
    start = end + 1;
    while (!line.empty() && (line.back() == '\r' || line.back() == ' ')) line.pop_back();
    if (line.empty()) continue;
    const std::string filed = input + ": " + line;
    if (std::find(lines_.begin(), lines_.end(), filed) != lines_.end()) continue;
    if (lines_.size() < kMaxLines)
      lines_.push_back(filed);
    else
      ++dropped_;
  }
}

std::vector<std::string> LibraryMessages::Lines() const {
  std::vector<std::string> lines = lines_;
  if (dropped_ > 0) lines.push_back("and " + std::to_string(dropped_) + " more lines the libraries printed");
  return lines;
}

}  // namespace inkweave::cli
