// `doctor`: what is wrong with a system. The facts are gathered here, whatever of them can be had; health.h judges them.

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <filesystem>

#include "findings.h"
#include "health.h"
#include "hmx/client/elements.h"
#include "kelo/path.h"
#include "kelo/runtime/domain_view.h"
#include "kelo/runtime/policy_view.h"
#include "processes.h"
#include "render.h"
#include "util/text.h"
#include "verbs/verbs.h"

namespace hmxctl {
namespace {

namespace fs = std::filesystem;

constexpr std::chrono::milliseconds withOneService{2000};  // the most that is waited for it
constexpr std::size_t reportedLines = 200;                 // of a log

// Gathers the facts that `diagnose` takes. Thread: main.
class Examination {
public:
    explicit Examination(Context& context) : context_{context}, directory_{domainDirectory(context.client.options().domain)} {}

    Json facts() {
        Json facts{{"policy", policy()}, {"directory", directory()}, {"services", services()}};
        facts["inotify"] = inotifyFacts(directory_);
        facts["shell"] = Json{{"version", programVersion()}, {"uid", ::geteuid()}, {"environment", meetingEnvironment()}};
        facts["processes"] = processes(facts["services"]);
        return facts;
    }

private:
    kelo::runtime::RuntimeOptions place() const {
        kelo::runtime::RuntimeOptions place;
        place.directory = directory_;
        return place;
    }

    Json policy() const {
        const kelo::runtime::PolicyView view = kelo::runtime::viewPolicy(place());
        return {{"directory", view.directory},
                {"inForce", view.isInForce},
                {"audit", view.audits},
                {"rules", view.rules.size()},
                {"faults", view.faults}};
    }

    Json directory() {
        Json facts{{"path", directory_}};
        struct stat status {};
        if (::stat(directory_.c_str(), &status) == 0) {
            std::array<char, 8> mode{};
            std::snprintf(mode.data(), mode.size(), "%04o", status.st_mode & 07777U);
            facts["uid"] = status.st_uid;
            facts["mode"] = mode.data();
            facts["readable"] = ::access(directory_.c_str(), R_OK | X_OK) == 0;
            facts["writable"] = ::access(directory_.c_str(), R_OK | W_OK | X_OK) == 0;
            facts["leftovers"] = leftovers();
        }
        struct statvfs disk {};
        if (::statvfs(directory_.c_str(), &disk) == 0) {
            facts["freeMiB"] = disk.f_bavail * disk.f_frsize >> 20U;
            // Some file systems do not count files.
            facts["freeFiles"] = disk.f_files == 0 ? UINT32_MAX : disk.f_favail;
        }
        try {
            states_ = context_.client.run(context_.client.domain().list(context_.deadline));
            facts["state"] = "usable";
        } catch (const Error& error) {
            facts["state"] = error.kind() == Error::Kind::noDomain ? "absent" : "refused";
            facts["reason"] = error.what();
        }
        return facts;
    }

    // Sockets under the names that they have until they can be connected to: ".PID.NUMBER.new".
    Json leftovers() const {
        Json found = Json::array();
        std::error_code failed;
        for (fs::directory_iterator each{directory_, failed}; !failed && each != fs::directory_iterator{};
             each.increment(failed)) {
            const std::string name = each->path().filename().string();
            if (!name.starts_with(".") || !name.ends_with(".new")) continue;
            if (!fs::exists("/proc/" + name.substr(1, name.find('.', 1) - 1))) found.push_back(name);
        }
        return found;
    }

    Json services() {
        std::vector<std::string> paths;
        for (const Expected& each : expectedServices()) paths.emplace_back(each.path);
        for (const ServiceState& state : states_) {
            if (std::find(paths.begin(), paths.end(), state.path) == paths.end()) paths.push_back(state.path);
        }
        Json facts = Json::array();
        for (const std::string& path : paths) facts.push_back(service(path));
        return facts;
    }

    Json service(const std::string& path) {
        const auto state =
            std::find_if(states_.begin(), states_.end(), [&](const ServiceState& each) { return each.path == path; });
        Json facts{{"path", path}, {"state", state == states_.end() ? "absent" : nameOf(state->life)}};
        addLock(facts, path);
        if (state == states_.end()) return facts;
        facts["uid"] = state->uid;
        if (state->life == Life::refused) facts["rule"] = state->rule;
        if (state->life != Life::alive) return facts;
        facts["application"] = state->application;
        facts["pid"] = state->pid;
        (void)ask(path, "/$platform/status", facts["status"]);
        const std::string question = questionFor(path);
        if (question.empty()) return facts;
        Json document;
        facts["answer"] = ask(path, question, document);
        const Json& displays = member(document, "infoForAllDisplays");
        if (displays.is_array() && !displays.empty()) display_ = text(displays.front(), "name");
        return facts;
    }

    void addLock(Json& facts, const std::string& path) const {
        std::string file = directory_ + "/";
        util::appendPercentEncoded(file, path, [](char c) {
            return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' || c == '_';
        });
        file += ".sock.lock";
        std::string lock = readText(file);
        lock.resize(std::min(lock.find('\n'), lock.size()));
        if (lock.empty()) return;
        facts["lock"] = lock;
        const std::optional<pid_t> holder = holderIn(lock);
        if (!holder) return;
        const Json process = processFacts(*holder, directory_);
        for (const Json& each : member(process, "locks")) {
            if (each == fs::weakly_canonical(file).string()) facts["holder"] = *holder;
        }
    }

    // Something that an upstream service has to know, and that changes nothing.
    std::string questionFor(const std::string& path) const {
        if (path == "/hmxdisplaymanager") return "/displays";
        const bool isPerDisplay = path == "/hmxinputmanager" || path == "/hmxpopupmanager";
        return isPerDisplay && !display_.empty() ? kelo::Path::replacePattern("/*", {display_}) : "";
    }

    // How the service answers: {"question", "ms"}, with "late" or "error" if it does not. An element that it does not know is an
    // answer.
    Json ask(const std::string& service, const std::string& path, Json& document) const {
        const auto begin = Deadline::Clock::now();
        Json answer{{"question", "retrieve " + path}};
        try {
            const Deadline deadline = context_.deadline.atMost(withOneService);
            const Service found = context_.client.run(context_.client.service(service, deadline));
            document = decode(context_.client.run(found.request({"retrieve", path, nullptr}, deadline)).payload);
        } catch (const Error& error) {
            if (error.kind() == Error::Kind::late || error.status() == 504) answer["late"] = true;
            const std::string reason = error.reason().empty() ? error.what() : error.reason();
            if (error.status() != 404)
                answer["error"] = (error.status() == 0 ? "" : std::to_string(error.status()) + " ") + reason;
        }
        answer["ms"] = std::chrono::duration_cast<std::chrono::milliseconds>(Deadline::Clock::now() - begin).count();
        return answer;
    }

    Json processes(const Json& services) const {
        std::vector<pid_t> pids = processesNamed({"hmxtolubridge", "hmxsim", "hmxgateway"});
        for (const Json& each : services) {
            for (const char* key : {"pid", "holder"}) {
                const Json& pid = member(each, key);
                if (pid.is_number_integer() && std::find(pids.begin(), pids.end(), pid.get<pid_t>()) == pids.end()) {
                    pids.push_back(pid.get<pid_t>());
                }
            }
        }
        Json found = Json::array();
        for (const pid_t pid : pids) {
            Json facts = processFacts(pid, directory_);
            if (!facts.is_null()) found.push_back(std::move(facts));
        }
        return found;
    }

    Context& context_;
    const std::string directory_;
    std::vector<ServiceState> states_;
    std::string display_;  // one that the display manager has
};

std::string timeText() {
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    ::localtime_r(&now, &local);
    std::array<char, 40> text{};
    (void)std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%S%z", &local);
    return text.data();
}

// What is on the displays, resource by resource, as far as it can be had.
Json documents(const Context& context) {
    Json all = Json::object();
    for (const Resource& resource : resources()) {
        if (!isListable(resource)) continue;
        Elements elements{context.client, context.deadline.atMost(withOneService)};
        try {
            all[std::string{resource.name}] = context.client.run(elements.list(resource, nullptr));
        } catch (const Error& error) {
            all[std::string{resource.name}] = error.what();
        }
    }
    return all;
}

void writeReport(const Context& context, const Json& facts, const std::vector<Finding>& findings) {
    Json report{{"report", 1}, {"time", timeText()}, {"findings", asJson(findings)}, {"facts", facts}};
    for (const Json& process : member(facts, "processes")) {
        if (member(process, "here") != true) continue;
        const pid_t pid = member(process, "pid").get<pid_t>();
        report["logs"][text(process, "program") + " " + std::to_string(pid)] = lastLogLines(pid, reportedLines);
    }
    if (context.arguments.withPayloads) report["documents"] = documents(context);
    const std::string& file = context.arguments.report;
    const std::string text = report.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
    const int descriptor = ::open(file.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    bool failed = descriptor < 0;
    for (std::size_t done = 0; !failed && done < text.size();) {
        const ssize_t written = ::write(descriptor, text.data() + done, text.size() - done);
        failed = written < 0;
        done += failed ? 0 : static_cast<std::size_t>(written);
    }
    const int fault = errno;
    if (descriptor >= 0) ::close(descriptor);
    if (failed)
        throw Failure{ExitCode::unexpected, "cannot write " + file + ": " + std::strerror(fault),
                      "--report takes a file in a directory that is there and may be written to"};
}

}  // namespace

ExitCode runDoctor(Context& context) {
    const Json facts = Examination{context}.facts();
    const std::vector<Finding> findings = diagnose(facts);
    const bool isGood = findings.empty() || findings.front().level != Level::problem;
    if (!context.arguments.report.empty()) writeReport(context, facts, findings);
    if (context.arguments.format == Format::table) {
        printLines(context.out, findingLines(findings, context.out.colour()));
    } else {
        printDocument(context, Json{{"good", isGood}, {"findings", asJson(findings)}});
    }
    if (!context.arguments.report.empty()) context.note("the report is in " + context.arguments.report);
    return isGood ? ExitCode::ok : ExitCode::differences;
}

}  // namespace hmxctl
