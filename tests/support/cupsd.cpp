#include "tests/support/cupsd.h"

#include <grp.h>
#include <pwd.h>
#include <unistd.h>

#include <fstream>
#include <thread>

namespace inkweave::testing {
namespace {

namespace fs = std::filesystem;

constexpr const char* kCupsd = "/usr/sbin/cupsd";

// The account filters run as: lp when the test runs as root (cupsd will not run them as root), else
// the test's own user, as cupsd cannot change user.
std::string Account() {
  if (geteuid() == 0) return "User lp\nGroup lp\nSystemGroup root\n";
  const passwd* user = getpwuid(geteuid());
  const group* primary = getgrgid(getegid());
  const std::string groupName = primary ? primary->gr_name : "nogroup";
  return "User " + std::string(user ? user->pw_name : "nobody") + "\nGroup " + groupName + "\nSystemGroup " +
         groupName + "\n";
}

}  // namespace

std::unique_ptr<Cupsd> Cupsd::Start(const fs::path& dir, const fs::path& serverBin, std::string* why) {
  auto fail = [&](const std::string& reason) -> std::unique_ptr<Cupsd> {
    if (why) *why = reason;
    return nullptr;
  };
  if (access(kCupsd, X_OK) != 0) return fail(std::string(kCupsd) + " is not installed (scripts/install-deps.sh cups)");
  std::unique_ptr<Cupsd> cupsd(new Cupsd);
  cupsd->dir_ = dir;
  for (const char* sub : {"root", "spool/tmp", "cache", "state", "log"}) fs::create_directories(dir / sub);
  // Filters run as another user must reach the spool and the temporary files.
  fs::permissions(dir / "spool", fs::perms::all);
  fs::permissions(dir / "spool/tmp", fs::perms::all | fs::perms::sticky_bit);

  cupsd->port_ = FreeLoopbackPort();
  std::ofstream(dir / "cupsd.conf")
      << "Listen 127.0.0.1:" << cupsd->port_ << "\n"
      << "LogLevel debug\nBrowsing Off\nWebInterface No\nDefaultAuthType None\nMaxLogSize 0\n"
      << "<Location />\n  Order allow,deny\n  Allow all\n</Location>\n"
      << "<Policy default>\n  <Limit All>\n    Order deny,allow\n  </Limit>\n</Policy>\n";
  std::ofstream(dir / "cups-files.conf") << "ServerRoot " << (dir / "root").string() << "\nRequestRoot "
                                         << (dir / "spool").string() << "\nTempDir " << (dir / "spool/tmp").string()
                                         << "\nCacheDir " << (dir / "cache").string() << "\nStateDir "
                                         << (dir / "state").string() << "\nErrorLog "
                                         << (dir / "log/error_log").string() << "\nAccessLog "
                                         << (dir / "log/access_log").string() << "\nPageLog "
                                         << (dir / "log/page_log").string() << "\nServerBin " << serverBin.string()
                                         << "\nDataDir /usr/share/cups\nFileDevice Yes\n"
                                         << Account();
  cupsd->process_ =
      std::make_unique<BackgroundProcess>(std::vector<std::string>{kCupsd, "-f", "-c", (dir / "cupsd.conf").string(),
                                                                   "-s", (dir / "cups-files.conf").string()},
                                          dir / "log/cupsd.out");
  if (!WaitForPort(cupsd->port_, std::chrono::seconds(60), cupsd->process_.get()))
    return fail("cupsd did not start: " + ReadText(dir / "log/cupsd.out") + ReadText(dir / "log/error_log"));
  return cupsd;
}

Cupsd::~Cupsd() {
  if (process_) process_->Stop(std::chrono::seconds(10));
}

ProcessResult Cupsd::Run(std::vector<std::string> argv, std::chrono::seconds timeout) const {
  return RunProcess(argv, timeout, {.Env = {"CUPS_SERVER=" + Server()}, .Input = {}, .WhileRunning = {}, .Output = {}});
}

bool Cupsd::WaitForJobs(std::chrono::seconds timeout) const {
  const auto deadline = std::chrono::steady_clock::now() + timeout;
  while (std::chrono::steady_clock::now() < deadline) {
    const ProcessResult queued = Run({"lpstat", "-o"}, std::chrono::seconds(30));
    if (queued.Exit == 0 && queued.Out.empty()) return true;
    // A job whose filter or backend failed is stopped (with its printer, by the default error policy).
    if (ErrorLog().find("] Job stopped due to") != std::string::npos) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
  }
  return false;
}

std::string Cupsd::ErrorLog() const { return ReadText(dir_ / "log/error_log"); }

}  // namespace inkweave::testing
