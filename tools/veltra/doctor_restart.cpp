// SPDX-License-Identifier: Apache-2.0
// Death notice and restart. A service that games use is not killed for a check: a manager and a service of the same
// programs run in a private runtime directory, and a second process of this tool (the hidden verb `doctor-probe`)
// calls, kills and calls again there, since a process can use one runtime directory only. All of it is removed
// afterwards.
#include <signal.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "child_process.h"
#include "doctor.h"
#include "exit_code.h"
#include "output.h"
#include "restart_probe.h"
#include "scenario_files.h"
#include "utils/json_utils.h"

namespace VeltraTool {

namespace fs = std::filesystem;

namespace {

constexpr std::chrono::seconds PROBE_LIMIT{40};
constexpr std::chrono::milliseconds SIGNAL_INTERVAL{100};

// Holds back the signals that end the tool until this object goes: what is declared behind it is removed before.
class HeldSignals {
public:
    HeldSignals()
    {
        sigset_t held;
        sigemptyset(&held);
        sigaddset(&held, SIGINT);
        sigaddset(&held, SIGTERM);
        ::pthread_sigmask(SIG_BLOCK, &held, &before_);
    }
    ~HeldSignals() { ::pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
    HeldSignals(const HeldSignals&) = delete;
    HeldSignals& operator=(const HeldSignals&) = delete;

    static bool HasArrived()
    {
        sigset_t arrived;
        return ::sigpending(&arrived) == 0 &&
               (sigismember(&arrived, SIGINT) == 1 || sigismember(&arrived, SIGTERM) == 1);
    }

private:
    sigset_t before_;
};

// A private folder, removed with all it holds.
class PrivateFolder {
public:
    PrivateFolder()
    {
        std::error_code error;
        // mkdtemp creates it with mode 0700, as a runtime directory must be.
        std::string name = (fs::temp_directory_path(error) / "veltra-doctor-XXXXXX").string();
        path_ = ::mkdtemp(name.data()) == nullptr ? "" : name;
    }
    ~PrivateFolder()
    {
        std::error_code ignored;
        if (!path_.empty()) {
            fs::remove_all(path_, ignored);
        }
    }
    PrivateFolder(const PrivateFolder&) = delete;
    PrivateFolder& operator=(const PrivateFolder&) = delete;

    const std::string& Path() const { return path_; }

private:
    std::string path_;
};

bool IsProgram(const std::string& path)
{
    std::error_code error;
    return fs::is_regular_file(path, error) && ::access(path.c_str(), X_OK) == 0;
}

std::string TextOfFile(const std::string& path)
{
    std::ifstream file(path);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

std::string LastLineOf(const std::string& path)
{
    std::string text = TextOfFile(path);
    while (!text.empty() && text.back() == '\n') {
        text.pop_back();
    }
    return text.substr(text.rfind('\n') + 1);
}

// Returns the folder of the ability files.
std::string WriteAbilities(const std::string& folder, const std::string& program)
{
    Json::Value service;
    service["id"] = SERVICE_ABILITY;
    service["program"] = program;
    Json::Value control;
    control["id"] = TAVO::Veltra::VELTRA_CONTROL_SA_ID;
    // Without the file the service would log a warning.
    control["external"] = true;
    std::error_code ignored;
    fs::create_directory(folder + "/abilities", ignored);
    std::ofstream(folder + "/abilities/66006.json") << JsonText(service);
    std::ofstream(folder + "/abilities/66007.json") << JsonText(control);
    return folder + "/abilities";
}

Finding FromProbe(std::optional<int> status, const std::string& output, const std::string& managerLog)
{
    Json::Value result = TAVO::Veltra::JsonUtils::StringToJson(TextOfFile(output));
    if (status == EXIT_DONE && result.isObject()) {
        return {Health::OK,
                "of a private copy: killed, noticed after " + Shown(NumberOf(result["noticeMilliseconds"]), 1) +
                    " ms, answering again " + Shown(NumberOf(result["restartMilliseconds"]), 1) + " ms after the kill",
                ""};
    }
    std::string what = result.isObject() ? TextOf(result["error"]) : "the check did not end within 40 s";
    const std::string log = LastLineOf(managerLog);
    return {Health::FAILED, "of a private copy: " + what,
            log.empty() ? "see the log of the manager" : "see what its manager logged: " + log};
}

}  // namespace

Finding CheckRestart(Patient& patient)
{
    const std::string managerProgram = ProgramFolder() + "/tavo_manager";
    // One that does not start here would not start there: what is installed beside the tool may.
    const std::string serviceProgram =
        patient.isServing && patient.service ? patient.service->program : ProgramFolder() + "/veltra_server";
    for (const std::string& program : {managerProgram, serviceProgram}) {
        if (!IsProgram(program)) {
            return {Health::WARNING, "cannot be tried without " + program, "install the manager and the service there"};
        }
    }
    const HeldSignals signals;
    const PrivateFolder folder;
    if (folder.Path().empty()) {
        return {Health::WARNING, std::string("cannot be tried: no temporary folder: ") + std::strerror(errno),
                "set TMPDIR to a folder that this user may write"};
    }
    const std::string runtime = folder.Path() + "/run";
    const std::string managerLog = folder.Path() + "/manager.log";
    const std::string output = folder.Path() + "/probe.json";
    const std::string abilities = WriteAbilities(folder.Path(), serviceProgram);
    ChildProcess manager({managerProgram, "--abilities", abilities},
                         {{"TAVO_RUNTIME_DIR", runtime}, {"TAVO_LOG", "warn,stderr"}}, managerLog);
    // Destroyed before the manager: the reverse of their order.
    ChildProcess probe({ProgramFolder() + "/veltra", PROBE_VERB}, {{"TAVO_RUNTIME_DIR", runtime}, {"TAVO_LOG", "off"}},
                       output);
    std::optional<int> status;
    const auto deadline = std::chrono::steady_clock::now() + PROBE_LIMIT;
    while (probe.Pid() != 0 && !status && !HeldSignals::HasArrived() && std::chrono::steady_clock::now() < deadline) {
        status = probe.Wait(SIGNAL_INTERVAL);
    }
    return FromProbe(status, output, managerLog);
}

}  // namespace VeltraTool
