#include "health.h"

#include <algorithm>
#include <array>
#include <map>
#include <set>
#include <string>

#include "columns.h"
#include "doctor_rules.h"
#include "hmx/client/suggest.h"

namespace hmxctl {
namespace {

constexpr std::array expected{Expected{"/hmxdisplaymanager", "the display manager"},
                              Expected{"/hmxinputmanager", "the input manager"},
                              Expected{"/hmxpopupmanager", "the popup manager"}, Expected{"/hmx", "hmxtolubridge"}};

constexpr std::int64_t slowAnswer = 200;  // ms
constexpr std::int64_t tightRoom = 16;    // MiB
constexpr std::int64_t tightFiles = 100;
constexpr std::int64_t tightPercent = 90;  // of a limit

std::int64_t number(const Json& object, std::string_view key) {
    const Json& value = member(object, key);
    return value.is_number_integer() ? value.get<std::int64_t>() : 0;
}

bool isTight(std::int64_t used, std::int64_t limit) {
    return limit > 0 && used * 100 >= limit * tightPercent;
}

std::string programFor(const std::string& path) {
    const auto* const found =
        std::find_if(expected.begin(), expected.end(), [&](const Expected& each) { return each.path == path; });
    return found == expected.end() ? "it" : std::string{found->program};
}

// Thread: one at a time.
class Diagnosis {
public:
    explicit Diagnosis(const Json& facts)
        : facts_{facts}, services_{member(facts, "services")}, processes_{member(facts, "processes")} {}

    std::vector<Finding> make() {
        policy();
        directory();
        // Of a directory that is not used, nothing can be said about what is in it.
        const std::string state = text(member(facts_, "directory"), "state");
        if (state == "usable") {
            watching();
            for (const Json& each : services_) service(each);
            absentServices();
            bridges();
            versions();
            for (const Json& each : processes_) process(each);
        } else if (state == "absent") {
            reportElsewhere();
        }
        rules().sort(findings_);
        return std::move(findings_);
    }

private:
    static const RuleTable& rules() {
        static const RuleTable table{doctorRulesText};
        return table;
    }

    void add(const char* rule, const Json& values) { findings_.push_back(rules().find(rule, values)); }

    const Json& serviceAt(std::string_view path) const {
        static const Json none;
        for (const Json& each : services_) {
            if (text(each, "path") == path) return each;
        }
        return none;
    }
    bool isAlive(std::string_view path) const { return text(serviceAt(path), "state") == "alive"; }
    // Of a service that refuses us, we know no more than that it is there.
    bool isMissing(std::string_view path) const { return !isAlive(path) && text(serviceAt(path), "state") != "refused"; }
    const Json& processOf(std::int64_t pid) const {
        static const Json none;
        for (const Json& each : processes_) {
            if (number(each, "pid") == pid) return each;
        }
        return none;
    }

    bool hasPolicy() const { return member(member(facts_, "policy"), "inForce") == true; }

    void policy() {
        const Json& policy = member(facts_, "policy");
        const Json& faults = member(policy, "faults");
        Json values{{"directory", text(policy, "directory")}, {"rules", number(policy, "rules")}};
        values["audit"] = member(policy, "audit") == true ? ", but it only audits: what it refuses passes" : "";
        if (!faults.empty()) {
            values["fault"] = faults.front();
            values["count"] = faults.size();
            add("policy.broken", values);
        } else if (hasPolicy()) {
            add("policy.good", values);
        }
    }

    void directory() {
        const Json& directory = member(facts_, "directory");
        const std::string state = text(directory, "state");
        Json values{{"directory", text(directory, "path")}, {"reason", text(directory, "reason")},
                    {"uid", member(directory, "uid")},      {"mode", text(directory, "mode")},
                    {"free", number(directory, "freeMiB")}, {"files", number(directory, "freeFiles")}};
        if (state == "absent") return add("directory.absent", values);
        if (state == "refused") return add(hasPolicy() ? "directory.locked" : "directory.refused", values);
        if (state != "usable") return;
        // With a policy, who publishes nothing need not write.
        const bool closed = member(directory, hasPolicy() ? "readable" : "writable") == false;
        const Json& you = member(member(facts_, "shell"), "uid");
        if (closed && !you.is_null() && you != values["uid"]) {
            values["you"] = you;
            add("directory.foreign", values);
        } else if (closed) {
            add("directory.closed", values);
        }
        const bool full = number(directory, "freeMiB") == 0 || number(directory, "freeFiles") == 0;
        if (full) {
            add("directory.full", values);
        } else if (number(directory, "freeMiB") < tightRoom || number(directory, "freeFiles") < tightFiles) {
            add("directory.tight", values);
        } else if (!closed) {
            add("directory.good", values);
        }
        const Json& leftovers = member(directory, "leftovers");
        if (!leftovers.empty()) add("directory.leftovers", {{"directory", values["directory"]}, {"names", leftovers}});
    }

    void watching() {
        const Json& inotify = member(facts_, "inotify");
        if (!inotify.is_object()) return;
        Json values = inotify;
        values["reason"] = text(inotify, "error");
        const bool tight = isTight(number(inotify, "instances"), number(inotify, "mostInstances")) ||
                           isTight(number(inotify, "watches"), number(inotify, "mostWatches"));
        add(!text(inotify, "error").empty() ? "inotify.used-up" : tight ? "inotify.tight" : "inotify.good", values);
    }

    void service(const Json& service) {
        const std::string path = text(service, "path");
        const std::string state = text(service, "state");
        const std::string lock = text(service, "lock");
        Json values{{"service", path}, {"program", programFor(path)}, {"uid", member(service, "uid")}};
        values["was"] = lock.empty() ? "" : ", " + lock + ",";
        if (state == "alive") return alive(service);
        if (state == "stale") {
            // A bridge that waits for something else will replace it.
            if (path != "/hmx" || !hasBridge()) add("service.stale", values);
            return;
        }
        if (state == "full") return add("service.full", values);
        values["rule"] = text(service, "rule");
        if (state == "refused") return add(values["rule"] == "" ? "service.refused" : "service.forbidden", values);
        const Json& holder = processOf(number(service, "holder"));
        if (!holder.is_null()) {
            values["program"] = text(holder, "program");
            values["pid"] = number(holder, "pid");
        }
        values["holder"] = lock.empty() ? "" : ", " + lock + ",";
        if (state == "hung") add(text(holder, "state") == "T" ? "service.stopped" : "service.hung", values);
        if (state == "absent" && !holder.is_null()) add("service.held", values);
    }

    void alive(const Json& service) {
        const std::string path = text(service, "path");
        const Json& status = member(service, "status");
        const Json& answer = member(service, "answer");
        const std::string version = text(status, "version");
        Json values{{"service", path},
                    {"program", text(service, "application")},
                    {"pid", number(service, "pid")},
                    {"version", version.empty() ? "" : " " + version},
                    {"answers", answer.is_null() ? "" : ", answers in " + compact(member(answer, "ms")) + " ms"}};
        if (answer.is_object()) {
            const Json asked{{"service", path},
                             {"question", text(answer, "question")},
                             {"took", number(answer, "ms")},
                             {"waited", number(answer, "ms")},
                             {"reason", text(answer, "error")}};
            if (member(answer, "late") == true) {
                values["answers"] = "";
                add("upstream.silent", asked);
            } else if (text(answer, "error").starts_with("403 ")) {
                add("service.forbids", asked);
            } else if (!text(answer, "error").empty()) {
                add("upstream.refuses", asked);
            } else if (number(answer, "ms") >= slowAnswer) {
                add("upstream.slow", asked);
            }
        }
        add("service.alive", values);
        limits(path, status);
    }

    void limits(const std::string& path, const Json& status) {
        const Json& counters = member(status, "counters");
        const Json& most = member(status, "limits");
        const std::int64_t open = number(counters, "connectionsOpen");
        const std::int64_t possible = number(most, "connections");
        if (isTight(open, possible)) {
            const Json values{{"service", path}, {"connectionsOpen", open}, {"connections", possible}};
            add(open >= possible ? "service.full" : "limit.connections", values);
        }
        // Every other rule of that name is about the counter or the gauge whose name it has.
        constexpr std::string_view prefix = "limit.";
        for (const Json& rule : member(rules().document(), "rules")) {
            const std::string id = text(rule, "id");
            if (!id.starts_with(prefix)) continue;
            const std::string key = id.substr(prefix.size());
            const std::int64_t count = number(counters, key) + number(member(status, "gauges"), key);
            if (key != "connections" && count > 0) add(id.c_str(), {{"service", path}, {"count", count}});
        }
        for (const Json& tracked : member(status, "tracked")) {
            if (number(tracked, "heldRequests") == 0) continue;
            add("upstream.held", {{"service", path},
                                  {"upstream", text(tracked, "path")},
                                  {"held", number(tracked, "heldRequests")},
                                  {"pending", number(tracked, "pendingRequests")}});
        }
    }

    // The bridge publishes /hmx last, and then its absence is that of something else.
    void absentServices() {
        for (const Expected& each : expected) {
            const std::string state = text(serviceAt(each.path), "state");
            if (!state.empty() && state != "absent") continue;
            if (each.path == "/hmx" && hasBridge()) continue;
            add("service.absent", {{"service", each.path}, {"program", each.program}});
            reportElsewhere();
        }
    }

    bool isBridgeHere(const Json& process) const {
        return text(process, "program") == "hmxtolubridge" && member(process, "here") == true;
    }
    bool hasBridge() const {
        return std::any_of(processes_.begin(), processes_.end(), [&](const Json& each) { return isBridgeHere(each); });
    }

    void bridges() {
        const Json& hmx = serviceAt("/hmx");
        for (const Json& each : processes_) {
            const std::int64_t pid = number(each, "pid");
            if (!isBridgeHere(each) || pid == number(hmx, "pid") || pid == number(hmx, "holder")) continue;
            const Json who{{"pid", pid}};
            if (isAlive("/hmx")) {
                add("bridge.spare", {{"pid", pid}, {"holder", "pid " + std::to_string(number(hmx, "pid"))}});
            } else if (text(each, "state") == "T") {
                add("service.stopped", {{"service", "/hmx"}, {"program", text(each, "program")}, {"pid", pid}});
            } else {
                const auto* const missing = std::find_if(expected.begin(), expected.end(),
                                                         [&](const Expected& service) { return isMissing(service.path); });
                if (missing->path == "/hmx") {
                    add("bridge.starting", {{"pid", pid}});
                } else {
                    add("bridge.waits", {{"pid", pid}, {"service", missing->path}, {"program", missing->program}});
                }
            }
        }
    }

    // The programs that run in other directories, where something is missing in this one: perhaps they were meant to be here.
    void reportElsewhere() {
        if (std::exchange(isElsewhereReported_, true)) return;
        const Json& shell = member(member(facts_, "shell"), "environment");
        struct Place {
            std::vector<std::string> programs;
            std::vector<std::string> differences;  // of the first of them
        };
        std::map<std::string, Place> places;
        for (const Json& each : processes_) {
            const Json& directories = member(each, "directories");
            if (member(each, "here") == true || directories.empty()) continue;
            Place& place = places[directories.front().get<std::string>()];
            place.programs.push_back(text(each, "program") + " (pid " + std::to_string(number(each, "pid")) + ")");
            if (place.programs.size() > 1) continue;
            for (const char* key : {"KELO_RUNTIME_DIR", "KELO_DOMAIN", "XDG_RUNTIME_DIR", "TMPDIR"}) {
                const std::string there = text(member(each, "environment"), key);
                const std::string here = text(shell, key);
                const auto said = [](const std::string& value) { return value.empty() ? "not set" : value; };
                if (there == here) continue;
                place.differences.push_back(std::string{key} + " is " + said(there) + " there and " + said(here) + " here");
            }
        }
        for (const auto& [directory, place] : places) {
            add("environment.differs", {{"directory", directory},
                                        {"programs", joined(place.programs)},
                                        {"ours", text(member(facts_, "directory"), "path")},
                                        {"variables", place.differences.empty() ? "" : ": " + joined(place.differences)}});
        }
    }

    void versions() {
        std::set<std::string> different;
        std::vector<std::string> all;
        const auto note = [&](const std::string& name, const std::string& version) {
            if (version.empty()) return;
            different.insert(version);
            const std::string entry = name + " " + version;
            if (std::find(all.begin(), all.end(), entry) == all.end()) all.push_back(entry);
        };
        note("hmxctl", text(member(facts_, "shell"), "version"));
        for (const Json& each : services_) note(text(each, "application"), text(member(each, "status"), "version"));
        if (different.size() > 1) add("versions.differ", {{"versions", all}});
    }

    void process(const Json& process) {
        if (member(process, "here") != true) return;
        Json who{{"program", text(process, "program")}, {"pid", number(process, "pid")}};
        for (const char* key : {"descriptors", "mostDescriptors"}) who[key] = number(process, key);
        if (member(process, "replaced") == true) add("program.replaced", who);
        if (isTight(number(process, "descriptors"), number(process, "mostDescriptors"))) add("descriptors.used-up", who);
    }

    const Json& facts_;
    const Json& services_;
    const Json& processes_;
    std::vector<Finding> findings_;
    bool isElsewhereReported_ = false;
};

}  // namespace

std::span<const Expected> expectedServices() noexcept {
    return expected;
}

std::vector<Finding> diagnose(const Json& facts) {
    return Diagnosis{facts}.make();
}

}  // namespace hmxctl
