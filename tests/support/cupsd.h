// A CUPS scheduler of the test's own: cupsd in the foreground with its configuration, spool, state and
// logs in a scratch directory, listening on a free loopback port and nowhere else (no browsing, no web
// interface). The client programs (lpadmin, lp, lpstat, ...) Run through it reach it through CUPS_SERVER.
// It is stopped, with every filter and backend it started, when the object goes.
#pragma once

#include <chrono>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "tests/support/process.h"

namespace inkweave::testing {

class Cupsd {
 public:
  // Starts cupsd with everything under `dir` (created), its filters and backends from `serverBin` (the
  // system's /usr/lib/cups, or a folder of symlinks to it with filters of the test's own). Null, with the
  // reason in *why, when cupsd is not installed or does not accept connections within the timeout.
  static std::unique_ptr<Cupsd> Start(const std::filesystem::path& dir, const std::filesystem::path& serverBin,
                                      std::string* why);
  ~Cupsd();

  std::string Server() const { return "localhost:" + std::to_string(port_); }
  // A CUPS client program run against this scheduler.
  ProcessResult Run(std::vector<std::string> argv, std::chrono::seconds timeout = std::chrono::seconds(120)) const;
  // Waits until no job is queued or printing. False at the timeout, or as soon as a job stopped on an error.
  bool WaitForJobs(std::chrono::seconds timeout) const;
  std::string ErrorLog() const;

 private:
  Cupsd() = default;
  std::filesystem::path dir_;
  int port_ = 0;
  std::unique_ptr<BackgroundProcess> process_;
};

}  // namespace inkweave::testing
