#include "cli/integrity_run.h"

#include <dlfcn.h>
#include <fmt/format.h>
#include <sys/wait.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <set>
#include <system_error>

#include "cli/file_label.h"
#include "cli/log_recorder.h"
#include "cli/output.h"
#include "cli/regular_file.h"
#include "util/base64.h"

namespace Quill::Tool {
namespace {

namespace fs = std::filesystem;
using nlohmann::json;

// Tells the second run of the program from the first.
constexpr char kSimulatedRun[] = "QUILLON_SIMULATED_RUN";

// libtarnsim.so lies beside libquillon.so; empty when it does not.
fs::path SimulatorPath() {
  Dl_info library;
  if (dladdr(reinterpret_cast<void*>(base64encode_len), &library) == 0) return {};
  const fs::path path = fs::path(library.dli_fname).parent_path() / "libtarnsim.so";
  std::error_code error;
  return fs::exists(path, error) ? fs::absolute(path, error) : fs::path();
}

// A new, empty file for the journal, removed on destruction.
class JournalFile {
 public:
  JournalFile() : path_((fs::temp_directory_path() / "quillon-journal-XXXXXX").string()) {
    const int fd = mkstemp(path_.data());
    if (fd < 0) throw std::system_error(errno, std::generic_category(), "cannot make a journal");
    close(fd);
  }
  JournalFile(const JournalFile&) = delete;
  JournalFile& operator=(const JournalFile&) = delete;
  ~JournalFile() { unlink(path_.c_str()); }

  const std::string& Path() const { return path_; }

  std::vector<json> Read() const {
    std::vector<json> requests;
    std::ifstream file(path_);
    for (std::string line; std::getline(file, line);) {
      requests.push_back(json::parse(line, nullptr, /*allow_exceptions=*/false));
    }
    return requests;
  }

 private:
  std::string path_;
};

// The arguments of this process, as it was started.
std::vector<std::string> OwnArguments() {
  std::ifstream file("/proc/self/cmdline", std::ios::binary);
  std::vector<std::string> arguments;
  for (std::string argument; std::getline(file, argument, '\0');) arguments.push_back(argument);
  return arguments;
}

// Runs this program again, with the simulator before it; its exit status.
int RunAgain(const fs::path& simulator, const std::string& interface, const std::string& journal) {
  const pid_t child = fork();
  if (child == 0) {
    setenv(kSimulatedRun, "1", 1);
    setenv("TARNSIM_INTERFACE", interface.c_str(), 1);
    setenv("TARNSIM_JOURNAL", journal.c_str(), 1);
    setenv("LD_PRELOAD", simulator.c_str(), 1);
    std::vector<std::string> arguments = OwnArguments();
    std::vector<char*> pointers;
    pointers.reserve(arguments.size() + 1);
    for (std::string& argument : arguments) pointers.push_back(argument.data());
    pointers.push_back(nullptr);
    execv("/proc/self/exe", pointers.data());
    PrintDiagnostic("cannot run this program again: " + std::generic_category().message(errno));
    _exit(kFailed);
  }
  int status = 0;
  while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
  }
  return child > 0 && WIFEXITED(status) ? WEXITSTATUS(status) : kFailed;
}

// What was asked and what came of it, in words.
std::string Describe(const json& request) {
  std::string text = request.value("request", "?");
  if (const int pid = request.value("pid", 0); pid != 0) text += fmt::format(" of task {}", pid);
  if (request.contains("file")) text += " " + request["file"].get<std::string>();
  if (request.contains("identity")) {
    text += fmt::format(", identity {}, {} bytes", request["identity"].get<std::string>(),
                        request.value("certificate", "").size() / 2);
  }
  if (request.contains("integrity")) text += " = " + request["integrity"].get<std::string>();
  const int error = request.value("errno", 0);
  const int result = request.value("result", 0);
  if (result == 0) return text + ", done";
  return text + ", refused: " + std::generic_category().message(error);
}

bool Show(const std::vector<json>& requests, const std::string& package) {
  bool shown = PrintLine("What the simulated kernel was asked:");
  std::vector<std::string> signedFiles;
  for (size_t i = 0; i < requests.size(); ++i) {
    const json& request = requests[i];
    if (!request.is_object()) continue;
    shown = shown && PrintLine(fmt::format("  {}. {}", i + 1, Describe(request)));
    const std::string file = request.value("file", "");
    if (request.value("request", "") != "sign" || request.value("result", -1) != 0) continue;
    if (std::find(signedFiles.begin(), signedFiles.end(), file) == signedFiles.end()) {
      signedFiles.push_back(file);
    }
  }
  if (!signedFiles.empty()) shown = shown && PrintLine("Labels:");
  for (const std::string& file : signedFiles) {
    const std::string label = DescribeLabel(file, package).value_or("none");
    shown = shown && PrintLine(fmt::format("  {}: {}", file, label));
  }
  return shown;
}

}  // namespace

bool OpenFiles(const std::vector<std::string>& files, std::vector<std::unique_ptr<Fd>>& out) {
  for (const std::string& file : files) {
    RegularFile opened = OpenRegularFile(file);
    if (!opened.fd) {
      PrintDiagnostic(file + ": " + opened.obstacle);
      return false;
    }
    out.push_back(std::move(opened.fd));
  }
  return true;
}

ExitStatus RunLogged(const std::function<void()>& entryPoint) {
  LogRecorder::Install();
  const LogRecorder log;
  entryPoint();
  ExitStatus status = kDone;
  for (const LogLine& line : log.Lines()) {
    PrintErrorLine(fmt::format("{} {}", line.priority, line.text));
    if (line.priority == 'E') status = kFailed;
  }
  return status;
}

void DeclareSimulate(CLI::App& parser, std::string& interface) {
  parser
      .add_flag(
          "--simulate{device}", interface,
          "Run with a simulated kernel, with its device or its legacy interface, and show what "
          "it was asked")
      ->check(CLI::IsMember({"device", "legacy"}));
}

ExitStatus RunMaybeSimulated(const std::string& interface, const std::string& package,
                             const std::function<ExitStatus()>& command) {
  if (interface.empty() || getenv(kSimulatedRun) != nullptr) return command();

  const fs::path simulator = SimulatorPath();
  if (simulator.empty()) {
    PrintDiagnostic("there is no libtarnsim.so beside libquillon.so");
    return kFailed;
  }
  const JournalFile journal;
  const int status = RunAgain(simulator, interface, journal.Path());
  LogRecorder::Install();
  if (!Show(journal.Read(), package)) return kFailed;
  return static_cast<ExitStatus>(status);
}

}  // namespace Quill::Tool
