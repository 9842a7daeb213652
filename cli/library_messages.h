// What the libraries under the print command (poppler, cairo, fontconfig, GLib) print on standard
// error by themselves, kept off the terminal while a job runs: poppler alone can print the same font
// warning for every band of a page. Standard error's descriptor goes into a file in memory while the
// command's own messages go on to the terminal through a copy of it (Messages()). What the libraries
// printed is filed under the input it came from and shown once per distinct line at the end.
#pragma once

#include <cstddef>
#include <cstdio>
#include <string>
#include <utility>
#include <vector>

namespace inkweave::cli {

// Where the command's own messages go: the terminal's standard error, also while it is captured.
std::FILE* Messages();

class LibraryMessages {
 public:
  LibraryMessages();   // starts the capture (nothing is captured if it cannot start)
  ~LibraryMessages();  // ends it
  LibraryMessages(const LibraryMessages&) = delete;
  LibraryMessages& operator=(const LibraryMessages&) = delete;

  // Files what was printed since the last call under `input`. Called from the thread that runs the
  // libraries, or once it has ended.
  void Collect(const std::string& input);
  // Each distinct line once, in the order first seen: "INPUT: line". (How often a line came says
  // little: poppler repeats its warnings once per strip.)
  std::vector<std::string> Lines() const;

 private:
  static constexpr std::size_t kMaxLines = 20;  // distinct lines kept; the rest are counted
  int capture_ = -1;
  int terminal_ = -1;
  std::FILE* messages_ = nullptr;
  std::vector<std::string> lines_;  // "INPUT: line"
  std::size_t dropped_ = 0;
};

}  // namespace inkweave::cli
