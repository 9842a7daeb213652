// A printer stream put on paper by our printer model, with a test failure naming the byte offset when
// the stream does not parse or print.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <span>
#include <variant>
#include <vector>

#include "decode/decoder.h"

namespace inkweave::testing {

// The job a stream holds.
inline decode::Job ParseStream(std::span<const std::uint8_t> stream, const decode::DecodeOptions& options = {}) {
  auto parsed = decode::ParseJob(stream, options);
  if (auto* job = std::get_if<decode::Job>(&parsed)) return std::move(*job);
  const decode::Error& error = std::get<decode::Error>(parsed);
  ADD_FAILURE() << "stream does not parse at byte " << error.Offset << ": " << error.Message;
  return {};
}

inline std::vector<decode::PrintedPage> PrintStream(std::span<const std::uint8_t> stream,
                                                    const decode::DecodeOptions& options = {},
                                                    decode::Job* jobOut = nullptr) {
  decode::Job job = ParseStream(stream, options);
  auto printed = decode::PrintJob(job, options);
  if (auto* error = std::get_if<decode::Error>(&printed)) {
    ADD_FAILURE() << "stream does not print at byte " << error->Offset << ": " << error->Message;
    return {};
  }
  if (jobOut) *jobOut = std::move(job);
  return std::get<std::vector<decode::PrintedPage>>(printed);
}

}  // namespace inkweave::testing
