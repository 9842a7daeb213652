#include "tests/support/process.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <thread>

namespace inkweave::testing {
namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

// Starts argv in a process group of its own (killed with the test), the environment added, standard
// input, output and error redirected (output and error appended with O_APPEND in `outFlags`).
pid_t Spawn(const std::vector<std::string>& argv, const std::vector<std::string>& env, const fs::path& in,
            const fs::path& out, const fs::path& err, int outFlags) {
  const pid_t pid = fork();
  if (pid == 0) {
    setpgid(0, 0);
    prctl(PR_SET_PDEATHSIG, SIGKILL);  // a test that dies takes its programs with it
    const std::pair<int, const fs::path*> redirects[] = {{0, &in}, {1, &out}, {2, &err}};
    for (const auto& [fd, path] : redirects) {
      const int file = open(path->c_str(), fd == 0 ? O_RDONLY : outFlags, 0644);
      if (file < 0) _exit(126);
      dup2(file, fd);
      close(file);
    }
    for (const std::string& v : env) putenv(const_cast<char*>(v.c_str()));
    std::vector<char*> args;
    for (const std::string& a : argv) args.push_back(const_cast<char*>(a.c_str()));
    args.push_back(nullptr);
    execvp(args[0], args.data());
    _exit(127);
  }
  if (pid > 0) setpgid(pid, pid);  // also from here, so that the group exists before any kill
  return pid;
}

ProcessResult Decode(int status) {
  ProcessResult result;
  if (WIFEXITED(status)) result.Exit = WEXITSTATUS(status);
  if (WIFSIGNALED(status)) result.Signal = WTERMSIG(status);
  return result;
}

// Polls for the child's end until the deadline. The wait status, or null at the deadline.
std::optional<int> WaitUntil(pid_t pid, Clock::time_point deadline) {
  int status = 0;
  for (;;) {
    const pid_t done = waitpid(pid, &status, WNOHANG);
    if (done == pid) return status;
    if (done < 0) return 0;  // already reaped
    if (Clock::now() >= deadline) return std::nullopt;
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
}

// SIGKILL to the group and reap the child.
int KillGroup(pid_t pid) {
  kill(-pid, SIGKILL);
  int status = 0;
  waitpid(pid, &status, 0);
  return status;
}

sockaddr_in Loopback(int port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(static_cast<std::uint16_t>(port));
  return address;
}

}  // namespace

ProcessResult RunProcess(const std::vector<std::string>& argv, std::chrono::seconds timeout,
                         const RunOptions& options) {
  const TempDir scratch("run");
  const fs::path out = options.Output.empty() ? scratch.Path() / "out" : options.Output, err = scratch.Path() / "err";
  const pid_t pid = Spawn(argv, options.Env, options.Input.empty() ? "/dev/null" : options.Input, out, err,
                          O_WRONLY | O_CREAT | O_TRUNC);
  ProcessResult result;
  if (pid > 0) {
    if (options.WhileRunning) options.WhileRunning(pid);
    if (const auto status = WaitUntil(pid, Clock::now() + timeout)) {
      result = Decode(*status);
    } else {
      result = Decode(KillGroup(pid));
      result.TimedOut = true;
    }
    kill(-pid, SIGKILL);  // anything the program left running in its group
  }
  result.Out = ReadText(out);
  result.Err = ReadText(err);
  return result;
}

BackgroundProcess::BackgroundProcess(const std::vector<std::string>& argv, const fs::path& log,
                                     const std::vector<std::string>& env) {
  pid_ = Spawn(argv, env, "/dev/null", log, log, O_WRONLY | O_CREAT | O_APPEND);
}

BackgroundProcess::~BackgroundProcess() { Stop(); }

std::optional<ProcessResult> BackgroundProcess::Wait(std::chrono::milliseconds timeout) {
  if (result_ || pid_ <= 0) return result_;
  if (const auto status = WaitUntil(pid_, Clock::now() + timeout)) {
    result_ = Decode(*status);
    kill(-pid_, SIGKILL);  // helpers it may have left in its group
  }
  return result_;
}

ProcessResult BackgroundProcess::Stop(std::chrono::milliseconds grace) {
  if (pid_ <= 0) return {};
  if (!result_) {
    kill(-pid_, SIGTERM);
    if (!Wait(grace)) {
      result_ = Decode(KillGroup(pid_));
      result_->TimedOut = true;
    }
  }
  return *result_;
}

int FreeLoopbackPort() {
  const int fd = socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in address = Loopback(0);
  socklen_t length = sizeof address;
  int port = 0;
  if (fd >= 0 && bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0 &&
      getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length) == 0)
    port = ntohs(address.sin_port);
  if (fd >= 0) close(fd);
  return port;
}

bool WaitForPort(int port, std::chrono::milliseconds timeout, BackgroundProcess* server) {
  const auto deadline = Clock::now() + timeout;
  while (Clock::now() < deadline) {
    if (server && server->Wait(std::chrono::milliseconds(0))) return false;  // it ended
    const int fd = socket(AF_INET, SOCK_STREAM, 0);
    const sockaddr_in address = Loopback(port);
    const bool connected = connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
    close(fd);
    if (connected) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
  }
  return false;
}

}  // namespace inkweave::testing
