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

inline std::vector<decode::PrintedPage> PrintStream(std::span<const std::uint8_t> stream,
                                                    const decode::DecodeOptions& options = {},
                                                    decode::Job* jobOut = nullptr) {
  auto parsed = decode::ParseJob(stream, options);
  if (auto* error = std::get_if<decode::Error>(&parsed)) {
    ADD_FAILURE() << "stream does not parse at byte " << error->Offset << ": " << error->Message;
    return {};
  }
  auto printed = decode::PrintJob(std::get<decode::Job>(parsed), options);
  if (auto* error = std::get_if<decode::Error>(&printed)) {
    ADD_FAILURE() << "stream does not print at byte " << error->Offset << ": " << error->Message;
    return {};
  }
  if (jobOut) *jobOut = std::move(std::get<decode::Job>(parsed));
  return std::get<std::vector<decode::PrintedPage>>(printed);
}

}  // namespace inkweave::testing
