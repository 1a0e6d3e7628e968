#include "health.h"

#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <tuple>

#include "processes.h"

namespace hmxctl {
namespace {

// What `given` says, put over a system in which everything is as it should be; of lists, the entries with the same path or pid.
Json factsWith(const Json& given) {
    Json facts = Json::parse(R"({
        "directory": {"path": "/run/x/local", "state": "usable", "uid": 1, "mode": "0700", "writable": true, "freeMiB": 100, "freeFiles": 1000},
        "inotify": {"instances": 1, "mostInstances": 128, "watches": 1, "mostWatches": 8192, "error": ""},
        "shell": {"version": "1", "environment": {"KELO_DOMAIN": "a"}},
        "services": [{"path": "/hmxdisplaymanager", "state": "alive", "pid": 7}, {"path": "/hmxinputmanager", "state": "alive", "pid": 7},
                     {"path": "/hmxpopupmanager", "state": "alive", "pid": 7},
                     {"path": "/hmx", "state": "alive", "pid": 8, "application": "bridge", "status": {"version": "1"}}],
        "processes": [{"program": "hmxtolubridge", "pid": 8, "state": "S", "here": true, "descriptors": 9, "mostDescriptors": 99}]})");
    for (const auto& [key, value] : given.items()) {
        if (!value.is_array()) facts[key].update(value);
        for (const Json& row : value.is_array() ? value : Json::array()) {
            const char* name = key == "services" ? "path" : "pid";
            Json* place = nullptr;
            for (Json& each : facts[key]) place = each[name] == row[name] ? &each : place;
            (place == nullptr ? facts[key].emplace_back(Json::object()) : *place).update(row);
        }
    }
    return facts;
}

TEST(Doctor, SaysWhatIsWrong) {
    // The facts, and the problems and warnings that are found, as far as given.
    const std::vector<std::tuple<const char*, const char*>> cases{
        {R"({})", ""},
        {R"({"directory": {"state": "absent"}, "processes": [{"pid": 9, "program": "hmxsim", "directories": ["/other"], "environment": {}},
             {"pid": 10, "program": "hmxgateway", "directories": ["/other"], "environment": {}}]})",
         "There is no runtime directory /run/x/local: no service has been started there.|hmxsim (pid 9), hmxgateway (pid 10): in "
         "/other. This shell looks in /run/x/local: KELO_DOMAIN is not set there and a here."},
        {R"({"directory": {"state": "refused", "reason": "it is a link"}})", "The runtime directory is not used: it is a link."},
        {R"({"directory": {"writable": false, "mode": "0500", "freeFiles": 0, "leftovers": [".1.2.new"]}})",
         "/run/x/local has mode 0500: services cannot be added or found there.|There is no room on the disk of /run/x/local: 100 "
         "MiB "
         "and 0 files are left.|In /run/x/local are leftovers of processes that have ended: .1.2.new."},
        {R"({"directory": {"writable": false}, "shell": {"uid": 2}})",
         "/run/x/local belongs to user 1, and this is user 2: without a policy, services and clients have to be of one user."},
        {R"({"directory": {"writable": false, "readable": true, "mode": "2750"}, "shell": {"uid": 2}, "policy": {"inForce": true}})",
         ""},
        {R"({"directory": {"state": "refused", "reason": "denied"}, "policy": {"directory": "/p", "faults": ["/p/a.toml:1: x", "y"]}})",
         "The runtime directory is not used: denied.|The policy in /p is refused as a whole: /p/a.toml:1: x."},
        {R"({"policy": {"inForce": true}, "processes": [{"pid": 8, "here": true}],
             "services": [{"path": "/hmxdisplaymanager", "state": "refused", "uid": 5, "rule": "p:1"},
                          {"path": "/hmxinputmanager", "answer": {"question": "retrieve /i", "ms": 1, "error": "403 p:2"}},
                          {"path": "/hmx", "state": "absent", "pid": null}]})",
         "/hmxdisplaymanager belongs to user 5, and the policy keeps you apart: p:1.|/hmxinputmanager does not let you retrieve "
         "/i: 403 p:2.|hmxtolubridge (pid 8) is running and all upstream services are there, but /hmx is not published."},
        {R"({"inotify": {"watches": 8000}})", "This user has 1 of 128 inotify instances, and 8000 of 8192 watches."},
        {R"({"services": [{"path": "/hmx", "state": "absent", "pid": null}, {"path": "/hmxinputmanager", "state": "stale", "lock": "pid 5 im"}]})",
         "hmxtolubridge (pid 8) waits for /hmxinputmanager, and publishes /hmx only after that.|/hmxinputmanager: its process, "
         "pid 5 "
         "im, has ended and left its socket."},
        {R"({"services": [{"path": "/hmx", "state": "absent", "pid": null}], "processes": [{"pid": 8, "here": false}]})",
         "/hmx is not there."},
        {R"({"services": [{"path": "/hmx", "state": "absent", "pid": null}]})",
         "hmxtolubridge (pid 8) is running and all upstream services are there, but /hmx is not published."},
        {R"({"services": [{"path": "/hmx", "state": "absent", "pid": null, "holder": 8}]})",
         "/hmx has no socket, but hmxtolubridge (pid 8) holds its lock, so nobody else can publish it."},
        {R"({"services": [{"path": "/hmx", "state": "hung", "pid": null, "holder": 8, "lock": "pid 8 b"}]
})",
         "/hmx: its process, pid 8 b, exists, but does not answer."},
        {R"({"services": [{"path": "/hmx", "state": "hung", "pid": null, "holder": 8}], "processes": [{"pid": 8, "state": "T"}]})",
         "/hmx: its process, hmxtolubridge (pid 8), is stopped."},
        {R"({"services": [{"path": "/hmx", "state": "refused", "uid": 5}, {"path": "/x", "state": "full"}], "processes": [{"pid": 8, "here": false}]})",
         "/x has as many clients as it accepts.|/hmx belongs to user 5, and accepts only that user."},
        {R"({"services": [{"path": "/hmxdisplaymanager", "answer": {"question": "retrieve /d", "ms": 2000, "late": true}},
                          {"path": "/hmxinputmanager", "answer": {"question": "retrieve /i", "ms": 1, "error": "500 no"}},
                          {"path": "/hmxpopupmanager", "answer": {"question": "retrieve /p", "ms": 300}}]})",
         "/hmxdisplaymanager is there, but has not answered retrieve /d within 2000 ms.|/hmxinputmanager answers retrieve /i "
         "with an "
         "error: 500 no.|/hmxpopupmanager took 300 ms to answer retrieve /p."},
        {R"({"services": [{"path": "/hmx", "status": {"version": "2", "limits": {"connections": 10},
                           "counters": {"connectionsOpen": 9, "deadlinesMissed": 3, "cancelled": 4}, "gauges": {"forgottenIds": 5},
                           "tracked": [{"path": "/u", "heldRequests": 6, "pendingRequests": 7}]}}]})",
         "6 requests wait at /hmx for room on the connection to /u, where 7 are unanswered.|Versions differ: hmxctl 1, bridge "
         "2.|/hmx "
         "has 9 of 10 connections open.|At /hmx, 3 requests have had no answer in time since its start (504).|/hmx has forgotten "
         "5 "
         "ids "
         "since its start, because there were too many."},
        {R"({"processes": [{"pid": 8, "replaced": true, "descriptors": 98}, {"pid": 9, "program": "hmxtolubridge", "here": true, "state": "S"}]})",
         "hmxtolubridge (pid 8) has 98 of 99 file descriptors open.|A second hmxtolubridge (pid 9) is running; pid 8 has /hmx, "
         "and "
         "the "
         "other takes over when it ends.|hmxtolubridge (pid 8) runs from a file that has been replaced or removed since."},
    };
    for (const auto& [given, expected] : cases) {
        std::string found;
        for (const Finding& finding : diagnose(factsWith(Json::parse(given)))) {
            EXPECT_EQ((finding.text + finding.remedy).find_first_of("{}"), std::string::npos) << finding.text << finding.remedy;
            if (finding.level != Level::ok) found += (found.empty() ? "" : "|") + finding.text;
        }
        EXPECT_EQ(found, expected) << given;
    }
}

TEST(Doctor, LooksAtProcesses) {
    const Json self = processFacts(::getpid(), "/proc/self");
    EXPECT_EQ(text(self, "program"), "hmxctl_tests");
    EXPECT_GT(self["descriptors"], 2);
    EXPECT_GE(self["mostDescriptors"], self["descriptors"]);
    EXPECT_EQ(self["replaced"], false);
    EXPECT_TRUE(processFacts(999'999'999, "/").is_null());
    EXPECT_EQ(holderIn("pid 12 (x)"), 12);
    EXPECT_FALSE(holderIn("somebody"));
    // Of another process, because an emulator shows its own in a state that there is not.
    const pid_t stopped = ::fork();
    if (stopped == 0) {
        (void)::raise(SIGSTOP);
        ::_exit(0);
    }
    ASSERT_EQ(::waitpid(stopped, nullptr, WUNTRACED), stopped);
    EXPECT_EQ(text(processFacts(stopped, "/"), "state"), "T");
    ::kill(stopped, SIGKILL);
    EXPECT_EQ(::waitpid(stopped, nullptr, 0), stopped);
}

}  // namespace
}  // namespace hmxctl
