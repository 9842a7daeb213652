// inkweave-printer-app: the printer as an IPP Everywhere printer. Built on PAPPL's main loop, with its
// standard sub-commands (server, add, delete, devices, drivers, status, submit, shutdown, ...), one
// driver ("inkweave"), and a system whose state lives in a directory the user chooses:
//
//   inkweave-printer-app server -o state-directory=DIR [-o server-port=8631] [-o listen-hostname=localhost]
//                               [-o printer-device=URI]
//
// The state directory holds the printers and their settings (restored at the next start), the spool
// and, unless log-file names another place, the log. The server listens on loopback only unless
// listen-hostname names an address or "*"; PAPPL's web interface is on.
#include <pappl/pappl.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

#include "printer-app/driver.h"
#include "printer-app/raster.h"

namespace {

namespace fs = std::filesystem;
namespace app = inkweave::printerapp;

constexpr const char* kProgram = "inkweave-printer-app";
constexpr int kDefaultPort = 8631;
constexpr const char* kDefaultListen = "localhost";

pappl_pr_driver_t gDrivers[] = {
    {app::kDriverName, app::kMakeAndModel, app::kDeviceId, nullptr},
};

// The server options this program knows (-o NAME=VALUE of the server sub-command).
struct ServerOption {
  const char* Name;
  const char* Help;
};
constexpr ServerOption kServerOptions[] = {
    {"state-directory",
     "DIR: printers, settings, spool and log (default: $STATE_DIRECTORY, else "
     "/var/lib/inkweave-printer-app for root, ~/.local/state/inkweave-printer-app)"},
    {"server-port", "N: the IPP and web port (default 8631)"},
    {"listen-hostname", "HOST: the address to listen on: localhost (default), a name or address, or * for all"},
    {"server-hostname", "HOST: the host name the printers are advertised under"},
    {"printer-device",
     "URI: at start, add the printer 'inkweave' on this device (file:, socket: or usb:) and make it "
     "the default, unless the state already has a printer of that name"},
    {"log-file", "FILE: the log (default STATE-DIRECTORY/inkweave-printer-app.log; - for standard error)"},
    {"log-level", "debug, info (default), warn, error or fatal"},
    {"auth-service", "PAM service that authenticates users of the web interface (default: none)"},
    {"admin-group", "the group allowed to change printers in the web interface"},
    {"private-server", "used by PAPPL when a sub-command starts a server of its own"},
};

void Usage(void*) {
  std::printf(
      "Usage: %s SUB-COMMAND [OPTIONS] [FILENAME]\n"
      "       %s [OPTIONS] [FILENAME]\n"
      "       %s [OPTIONS] -\n"
      "\n"
      "Sub-commands:\n"
      "  add PRINTER      Add a printer (-m inkweave -v DEVICE-URI: file:, socket: or usb:).\n"
      "  cancel           Cancel one or more jobs.\n"
      "  default          Set the default printer.\n"
      "  delete           Delete a printer.\n"
      "  devices          List devices.\n"
      "  drivers          List drivers.\n"
      "  jobs             List jobs.\n"
      "  modify           Modify a printer.\n"
      "  options          List printer options.\n"
      "  pause            Pause printing for a printer.\n"
      "  printers         List printers.\n"
      "  resume           Resume printing for a printer.\n"
      "  server           Run a server.\n"
      "  shutdown         Shutdown a running server.\n"
      "  status           Show server/printer/job status.\n"
      "  submit           Submit a file for printing.\n"
      "\n"
      "Options:\n"
      "  -a               Cancel all jobs (cancel).\n"
      "  -d PRINTER       Specify printer.\n"
      "  -j JOB-ID        Specify job ID (cancel).\n"
      "  -m DRIVER-NAME   Specify driver (add/modify).\n"
      "  -n COPIES        Specify number of copies (submit).\n"
      "  -o NAME=VALUE    Specify option (add,modify,server,submit).\n"
      "  -u URI           Specify ipp: or ipps: printer/server.\n"
      "  -v DEVICE-URI    Specify socket:, usb: or file: device (add/modify).\n"
      "\n"
      "Server options (server -o NAME=VALUE):\n",
      kProgram, kProgram, kProgram);
  for (const ServerOption& option : kServerOptions)
    if (std::strcmp(option.Name, "private-server")) std::printf("  %-16s %s\n", option.Name, option.Help);
}

// The state directory when none is named: systemd's StateDirectory=, else the usual place for the user.
std::string DefaultStateDirectory() {
  if (const char* dir = std::getenv("STATE_DIRECTORY"); dir && *dir) {
    const std::string first(dir, std::strcspn(dir, ":"));  // systemd lists several with ':'
    return first;
  }
  if (geteuid() == 0) return std::string("/var/lib/") + kProgram;
  if (const char* dir = std::getenv("XDG_STATE_HOME"); dir && *dir) return std::string(dir) + "/" + kProgram;
  const char* home = std::getenv("HOME");
  if (!home || !*home) {
    const passwd* user = getpwuid(geteuid());
    home = user ? user->pw_dir : "/tmp";
  }
  return std::string(home) + "/.local/state/" + kProgram;
}

bool MakeDirectory(const std::string& path) {
  std::error_code ec;
  fs::create_directories(path, ec);
  if (ec || !fs::is_directory(path, ec)) {
    std::fprintf(stderr, "%s: cannot create the directory %s: %s\n", kProgram, path.c_str(),
                 ec ? ec.message().c_str() : "not a directory");
    return false;
  }
  chmod(path.c_str(), 0700);  // the state may hold the web interface's password hash
  return true;
}

std::optional<pappl_loglevel_t> ParseLogLevel(std::string_view text) {
  constexpr std::pair<std::string_view, pappl_loglevel_t> kLevels[] = {{"debug", PAPPL_LOGLEVEL_DEBUG},
                                                                       {"info", PAPPL_LOGLEVEL_INFO},
                                                                       {"warn", PAPPL_LOGLEVEL_WARN},
                                                                       {"error", PAPPL_LOGLEVEL_ERROR},
                                                                       {"fatal", PAPPL_LOGLEVEL_FATAL}};
  for (const auto& [name, level] : kLevels)
    if (name == text) return level;
  return std::nullopt;
}

// The state file: kept as long as the system runs (the save callback reads it).
std::string gStateFile;

bool SaveState(pappl_system_t* system, void*) { return papplSystemSaveState(system, gStateFile.c_str()); }

// The printer of the printer-device option, unless the state has it already.
bool AddFirstPrinter(pappl_system_t* system, const char* deviceUri) {
  if (!papplDeviceIsSupported(deviceUri)) {
    std::fprintf(stderr, "%s: printer-device '%s' is not a device this program can print to (file:, socket:, usb:)\n",
                 kProgram, deviceUri);
    return false;
  }
  if (papplSystemFindPrinter(system, (std::string("/ipp/print/") + app::kDriverName).c_str(), 0, nullptr)) return true;
  pappl_printer_t* printer =
      papplPrinterCreate(system, 0, app::kDriverName, app::kDriverName, app::kDeviceId, deviceUri);
  if (!printer) {
    std::fprintf(stderr, "%s: cannot add the printer on %s\n", kProgram, deviceUri);
    return false;
  }
  papplSystemSetDefaultPrinterID(system, papplPrinterGetID(printer));
  return true;
}

// The sub-command the program was started with ("server", "drivers", ...).
std::string gSubcommand;

// The system of a sub-command that only looks at the drivers: no state, no listeners, no log.
pappl_system_t* CreateListingSystem() {
  pappl_system_t* system = papplSystemCreate(PAPPL_SOPTIONS_MULTI_QUEUE, "inkweave", 0, nullptr, nullptr, "/dev/null",
                                             PAPPL_LOGLEVEL_FATAL, nullptr, false);
  if (system)
    papplSystemSetPrinterDrivers(system, static_cast<int>(std::size(gDrivers)), gDrivers, nullptr, nullptr,
                                 app::FillDriver, nullptr);
  return system;
}

// PAPPL's system callback: the server's system, or a bare one for the sub-commands that list drivers.
pappl_system_t* CreateSystem(int count, cups_option_t* options, void*) {
  if (gSubcommand != "server") return CreateListingSystem();
  for (int i = 0; i < count; ++i) {
    bool known = false;
    for (const ServerOption& option : kServerOptions) known = known || !std::strcmp(option.Name, options[i].name);
    if (!known) {
      std::fprintf(stderr, "%s: unknown server option '%s' (see %s --help)\n", kProgram, options[i].name, kProgram);
      return nullptr;
    }
  }
  auto option = [&](const char* name, const char* fallback) {
    const char* value = cupsGetOption(name, count, options);
    return std::string(value ? value : fallback);
  };

  const std::string stateDir = option("state-directory", DefaultStateDirectory().c_str());
  const std::string spoolDir = stateDir + "/spool";
  if (!MakeDirectory(stateDir) || !MakeDirectory(spoolDir)) return nullptr;
  gStateFile = stateDir + "/" + kProgram + ".state";

  const std::string portText = option("server-port", std::to_string(kDefaultPort).c_str());
  int port = 0;
  const auto [end, ec] = std::from_chars(portText.data(), portText.data() + portText.size(), port);
  if (ec != std::errc() || end != portText.data() + portText.size() || port < 1 || port > 65535) {
    std::fprintf(stderr, "%s: server-port '%s' is not a port number (1 to 65535)\n", kProgram, portText.c_str());
    return nullptr;
  }
  const std::string levelText = option("log-level", "info");
  const auto level = ParseLogLevel(levelText);
  if (!level) {
    std::fprintf(stderr, "%s: log-level '%s' is not one of debug, info, warn, error, fatal\n", kProgram,
                 levelText.c_str());
    return nullptr;
  }
  const std::string logFile = option("log-file", (stateDir + "/" + kProgram + ".log").c_str());
  const std::string listen = option("listen-hostname", kDefaultListen);
  const char* authService = cupsGetOption("auth-service", count, options);

  pappl_system_t* system = papplSystemCreate(
      PAPPL_SOPTIONS_MULTI_QUEUE | PAPPL_SOPTIONS_WEB_INTERFACE | PAPPL_SOPTIONS_WEB_LOG | PAPPL_SOPTIONS_WEB_SECURITY,
      "inkweave", port, "_print,_universal", spoolDir.c_str(), logFile.c_str(), *level, authService, false);
  if (!system) {
    std::fprintf(stderr, "%s: cannot create the printer system\n", kProgram);
    return nullptr;
  }
  if (const char* host = cupsGetOption("server-hostname", count, options)) papplSystemSetHostName(system, host);
  if (const char* group = cupsGetOption("admin-group", count, options)) papplSystemSetAdminGroup(system, group);
  if (!papplSystemAddListeners(system, listen == "*" ? nullptr : listen.c_str())) {
    std::fprintf(stderr, "%s: cannot listen on %s port %d (see the log %s)\n", kProgram, listen.c_str(), port,
                 logFile.c_str());
    papplSystemDelete(system);
    return nullptr;
  }
  papplSystemSetPrinterDrivers(system, static_cast<int>(std::size(gDrivers)), gDrivers, nullptr, nullptr,
                               app::FillDriver, nullptr);
  papplSystemAddMIMEFilter(system, "application/pdf", "image/pwg-raster", app::PrintPdf, nullptr);

  // The printers and settings of the last run, and every change saved as it happens.
  if (fs::exists(gStateFile)) papplSystemLoadState(system, gStateFile.c_str());
  papplSystemSetSaveCallback(system, SaveState, nullptr);
  if (const char* device = cupsGetOption("printer-device", count, options);
      device && !AddFirstPrinter(system, device)) {
    papplSystemDelete(system);
    return nullptr;
  }
  return system;
}

}  // namespace

int main(int argc, char* argv[]) {
  if (argc > 1 && argv[1][0] != '-') gSubcommand = argv[1];
  return papplMainloop(argc, argv, INKWEAVE_VERSION, "inkweave printer application " INKWEAVE_VERSION,
                       static_cast<int>(std::size(gDrivers)), gDrivers, nullptr, app::FillDriver, nullptr, nullptr,
                       CreateSystem, Usage, nullptr);
}
