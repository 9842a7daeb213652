// Programs a test starts and never leaves behind: run to completion under a deadline, or in the
// background in a process group of their own that is stopped (SIGTERM, then SIGKILL) at the latest when
// the object goes. And free loopback ports for the servers they run.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "tests/support/files.h"

namespace inkweave::testing {

struct ProcessResult {
  int Exit = -1;          // exit status; -1 when killed by a signal or not started
  int Signal = 0;         // the signal that ended it
  bool TimedOut = false;  // killed at the deadline
  std::string Out;        // standard output
  std::string Err;        // standard error
};

// How RunProcess runs a program: `Env` ("NAME=value") added to ours, standard input from `Input`
// (/dev/null when empty), `WhileRunning` called with the pid once it started, and standard output
// also left in `Output` when given.
struct RunOptions {
  std::vector<std::string> Env;
  std::filesystem::path Input;
  std::function<void(pid_t)> WhileRunning;
  std::filesystem::path Output;
};

// Runs argv (argv[0] is looked up in PATH when it holds no slash). Killed, with its process group,
// after `timeout`.
ProcessResult RunProcess(const std::vector<std::string>& argv, std::chrono::seconds timeout,
                         const RunOptions& options = {});
// The same with only `env` added to ours.
inline ProcessResult RunProcess(const std::vector<std::string>& argv, std::chrono::seconds timeout,
                                const std::vector<std::string>& env) {
  return RunProcess(argv, timeout, RunOptions{.Env = env, .Input = {}, .WhileRunning = {}, .Output = {}});
}

class BackgroundProcess {
 public:
  // Starts argv in a process group of its own, standard output and error appended to `log`.
  BackgroundProcess(const std::vector<std::string>& argv, const std::filesystem::path& log,
                    const std::vector<std::string>& env = {});
  ~BackgroundProcess();
  BackgroundProcess(const BackgroundProcess&) = delete;
  BackgroundProcess& operator=(const BackgroundProcess&) = delete;

  // Waits up to `timeout` for the process to end by itself; its result, or null while it still runs.
  std::optional<ProcessResult> Wait(std::chrono::milliseconds timeout);
  // SIGTERM, up to `grace` to end, then SIGKILL to the whole group. The result of the process.
  ProcessResult Stop(std::chrono::milliseconds grace = std::chrono::seconds(10));

 private:
  pid_t pid_ = -1;
  std::optional<ProcessResult> result_;
};

// A TCP port on 127.0.0.1 that nothing listens on (the kernel's choice).
int FreeLoopbackPort();

// Waits until something accepts connections on localhost:port, or `timeout` passes, or `server`
// (when given) ends. Whether a connection was accepted.
bool WaitForPort(int port, std::chrono::milliseconds timeout, BackgroundProcess* server = nullptr);

}  // namespace inkweave::testing
