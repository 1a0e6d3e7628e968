// Whole commands against scripted services: what is asked, what is printed, how it ends.

#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <fstream>
#include <tuple>

#include "hmx/recording/reader.h"
#include "scripted_services.h"
#include "support/temporary_directory.h"

namespace hmxctl_test {
namespace {

using Asked = std::vector<std::string>;

TEST(List, PrintsOnePageInEveryFormat) {
    ScriptedServices services;
    const std::string odd = "{ \"total\":1, \"totalPages\":1, \"data\":[ " + driver + " ] }";
    services.hmx().on("retrieve /displays", odd);
    EXPECT_EQ(services.run({"list", "displays", "-o", "json"}).out, odd + "\n");
    EXPECT_EQ(services.run({"list", "displays", "-o", "raw"}).out, odd);
    EXPECT_EQ(services.run({"list", "displays", "-o", "jsonl"}).out, driver + "\n");
    EXPECT_EQ(services.run({"list", "displays"}).out,
              "NAME            ID  INTERNAL  RESOLUTION  CONNECTOR  TERMINAL  TOUCH  UUID\n"
              "Driver_Display   1         -    1920x720  -                 -  -      19243473\n");
    services.hmx().encoding = "application/vnd.ixobin";
    EXPECT_EQ(services.run({"--mime", "ixobin", "-o", "json", "list", "displays"}).out, page({driver}) + "\n");
    EXPECT_EQ(services.hmx().accept, "application/vnd.ixobin");
}

TEST(List, SendsTypedParameters) {
    ScriptedServices services;
    services.hmx().on("retrieve /displays", page({}));
    services.run({"list", "displays", "displayID=1", "fields=name,terminal", "touchSupport=true"});
    EXPECT_EQ(services.hmx().asked.back(),
              R"(retrieve /displays {"displayID":1,"fields":["name","terminal"],"touchSupport":true})");
    services.run({"list", "displays", "displyID=1", "terminal=x", "limit=0", "name:=[]", "--no-validate"});
    EXPECT_EQ(services.hmx().asked.back(), R"(retrieve /displays {"displyID":"1","terminal":"x","limit":0,"name":[]})");
}

TEST(List, GathersThePopupsOfAllDisplays) {
    ScriptedServices services;
    services.hmx().on("retrieve /displays", page({driver, cluster, display("Other")}));
    services.hmx().on(R"(retrieve /popups {"visible":true,"display":"Driver_Display"})", page({popup("Driver_Display", "A")}));
    services.hmx().on(R"(retrieve /popups {"visible":true,"display":"Other"})", page({popup("Other", "B")}));
    const Outcome outcome = services.run({"list", "popups", "visible=true", "-o", "json"});
    EXPECT_EQ(outcome.out, page({popup("Driver_Display", "A"), popup("Other", "B")}) + "\n")
        << "none on a display that is not known there";
    EXPECT_EQ(services.run({"list", "popups", "limit=1"}).code, ExitCode::usage) << "pages go by display";
    EXPECT_EQ(services.run({"list", "popups", "display=Other", "visible=true", "-o", "jsonl"}).code, ExitCode::notFound)
        << "one display's list is its own request";
}

// A bridge knows an id only once it has passed through it; whoever types a name or an id need not know.
TEST(Get, LetsTheServiceSeeTheElementFirst) {
    ScriptedServices services;
    ScriptedApi& hmx = services.hmx();
    hmx.on("retrieve /displays", page({driver, cluster}));
    hmx.on(R"(retrieve /displays {"name":"Driver_Display"})", page({driver}));
    hmx.on("retrieve " + driverPath, driver);
    EXPECT_EQ(services.run({"get", "displays/Driver_Display", "-o", "json"}).out, driver + "\n");
    EXPECT_EQ(hmx.asked, (Asked{R"(retrieve /displays {"name":"Driver_Display"})", "retrieve " + driverPath}));

    for (const std::string& target : {"displays/" + driverId, "/hmx" + driverPath, "hmx" + driverPath}) {
        hmx.asked.clear();
        hmx.on("retrieve " + driverPath, {{"404 [not known]"}, {driver}});
        EXPECT_EQ(services.run({"get", target.c_str(), "-o", "json"}).out, driver + "\n");
        EXPECT_EQ(hmx.asked, (Asked{"retrieve " + driverPath, "retrieve /displays", "retrieve " + driverPath})) << target;
    }
    hmx.asked.clear();
    hmx.on("retrieve " + driverPath, "404 [not known]");
    EXPECT_EQ(services.run({"get", ("displays/" + driverId).c_str()}).code, ExitCode::notFound);
    EXPECT_EQ(hmx.asked.size(), 3U) << "once more, not for ever";
}

TEST(Get, SaysWhyThereIsNoSuchElement) {
    ScriptedServices services;
    ScriptedApi& hmx = services.hmx();
    hmx.on("retrieve /displays", page({driver, cluster}));
    hmx.on(R"(retrieve /popups {"display":"Driver_Display"})",
           page({popup("Driver_Display", "Phone"), popup("Driver_Display", "Both")}));
    hmx.on(R"(retrieve /popups {"display":"Cluster_Display"})", page({popup("Cluster_Display", "Both")}));
    const std::vector<std::tuple<const char*, ExitCode, const char*>> failing{
        {"displays/192", ExitCode::notFound, "no such element"},
        {"displays/ffff", ExitCode::notFound, "no such element"},
        {"displays/Driver", ExitCode::notFound, "did you mean 'Driver_Display'"},
        {"popups/Both", ExitCode::usage, "fits 2 elements"},
        {"popups/Driver_Display/Phoen", ExitCode::notFound, "did you mean 'Phone'?"},
        {"regionconfigurations/1924", ExitCode::usage, "DISPLAY/HMI[/SUBCOMPONENT]"},
        {"displays/", ExitCode::usage, "which element?"},
        {"displays", ExitCode::usage, "which element?"},
        {"display/x", ExitCode::usage, "did you mean 'displays'"},
    };
    for (const auto& [target, code, text] : failing) {
        const Outcome outcome = services.run({"get", target});
        EXPECT_EQ(outcome.code, code) << target;
        EXPECT_NE(outcome.err.find(text), std::string::npos) << target << ": " << outcome.err;
        EXPECT_EQ(outcome.out, "") << target;
    }
}

TEST(ExitCodes, FollowTheAnswer) {
    const std::vector<std::pair<const char*, ExitCode>> cases{
        {"{}", ExitCode::ok},
        {"400 [bad]", ExitCode::rejected},
        {"401 [who]", ExitCode::notPermitted},
        {"403 [no]", ExitCode::notPermitted},
        {"404 [none]", ExitCode::notFound},
        {"408 [slow]", ExitCode::timeout},
        {"409 [taken]", ExitCode::rejected},
        {"500 [oops]", ExitCode::rejected},
        {"503 no answer", ExitCode::serviceAbsent},
        {"504 late", ExitCode::timeout},
        {"completed", ExitCode::streamEnded},
    };
    for (const auto& [answer, code] : cases) {
        ScriptedServices services;
        services.service("/any").on("retrieve /x", answer);
        const Outcome outcome = services.run({"call", "/any", "retrieve", "/x", "-o", "json"});
        EXPECT_EQ(outcome.code, code) << answer;
        EXPECT_EQ(outcome.out.empty(), code != ExitCode::ok) << answer;
        if (code == ExitCode::ok) continue;
        EXPECT_NE(outcome.err.find("call /any: retrieve /x at /any: "), std::string::npos) << outcome.err;
        const std::string reason = answer == std::string{"completed"} ? "ended the request" : answer;
        EXPECT_NE(outcome.err.find(reason), std::string::npos) << outcome.err;
    }
    ScriptedServices services;
    services.service("/any").on("retrieve /x", std::vector<Events>{{}});
    EXPECT_EQ(services.run({"call", "/any", "retrieve", "/x", "--timeout", "20ms"}).code, ExitCode::timeout);
    EXPECT_EQ(services.service("/any").cancelled, 1) << "what is not waited for is not left behind";
    EXPECT_EQ(services.run({"list", "displays"}).code, ExitCode::serviceAbsent);
    ScriptedApi& absent = services.service("/absent");
    absent.on("retrieve /x", {{"503 no answer"}, {"503 no answer"}, {"{}"}});
    EXPECT_EQ(services.run({"call", "/absent", "retrieve", "/x"}).code, ExitCode::serviceAbsent);
    EXPECT_EQ(services.run({"call", "/absent", "retrieve", "/x", "--timeout", "5s"}).code, ExitCode::ok) << "asked again";
    absent.on("update /x", {{"503 lost, outcome unknown"}, {"503 no room, request not sent"}, {""}});
    EXPECT_EQ(services.run({"call", "/absent", "update", "/x", "1", "--timeout", "5s"}).code, ExitCode::serviceAbsent) << "once";
    EXPECT_EQ(services.run({"call", "/absent", "update", "/x", "1", "--timeout", "5s"}).code, ExitCode::ok) << "it was not sent";
    services.service("/any").on("retrieve /x", "{not json");
    EXPECT_EQ(services.run({"call", "/any", "retrieve", "/x"}).code, ExitCode::unexpected);
}

TEST(Usage, SaysWhatIsWrongAndWhatWouldHelp) {
    const std::vector<std::pair<std::vector<const char*>, const char*>> cases{
        {{}, "no verb given"},
        {{"lst"}, "did you mean 'list'?"},
        {{"list"}, "list: RESOURCE is missing"},
        {{"wait", "popups/a/b"}, "wait: EXPRESSION is missing"},
        {{"version", "now"}, "version: what is 'now'?"},
        {{"list", "displays", "-o", "xml"}, "one of table, json, jsonl, raw"},
        {{"list", "displays", "--timeout", "soon"}, "'soon' is not a duration"},
        {{"list", "displays", "--timeout", "0"}, "'0' is not a duration"},
        {{"list", "displays", "--mime", "xml"}, "--mime: 'xml'"},
        {{"list", "displays", "--outptu", "json"}, "did you mean '--output'?"},
        {{"list", "displays", "--count", "3"}, "unknown option --count"},
        {{"watch", "displays", "--count", "0"}, "--count: '0'"},
        {{"list", "displays", "--domain", "../etc"}, "--domain: '../etc'"},
        {{"list", "displays", "displyID=1"}, "did you mean 'displayID'"},
        {{"list", "displays", "fields=name,terminl"}, "did you mean 'terminal'"},
        {{"list", "displays", "fields=limit"}, "no such key in DisplayObject"},
        {{"list", "displays", "limit=0"}, "limit takes a number from 1"},
        {{"list", "displays", "resolution:={\"width\":1}"}, "resolution: elements cannot be selected by an object"},
        {{"list", "displays", "terminal:=null"}, "terminal: elements cannot be selected by"},
        {{"get", "displays/x", "touchSupport=true"}, "touchSupport has no effect on a single element"},
        {{"watch", "popups/a/b", "visible=true"}, "visible has no effect on a single element"},
        {{"delete", "regionconfigurations/x", "name=x"}, "name has no effect on a single element"},
        {{"watch", "displays", "--for", "ever"}, "'ever' is not a duration"},
        {{"list", "displays/x"}, "hmxctl get displays/x"},
        {{"list", "displays", "name"}, "'name' is not KEY=VALUE"},
        {{"list", "regionconfigurations"}, "one by one only"},
        {{"watch", "regionconfigurations"}, "which element?"},
        {{"insert", "displays", "name=x"}, "these do: regionconfigurations"},
        {{"update", "displays/x", "name=x"}, "these do: regionconfigurations, popups"},
        {{"update", "popups/a/b"}, "keys: requestData, requested, visible"},
        {{"update", "popups/a/b", "requestd=true"}, "did you mean 'requested'"},
        {{"delete", "popups/a/b"}, "these do: regionconfigurations"},
        {{"insert", "regionconfigurations", "-f", "/nowhere/region.json"}, "cannot read /nowhere/region.json"},
        {{"hit", "D", "1", "two"}, "Y is 'two'"},
        {{"call", "hmx", "retrieve", "/x"}, "did you mean '/hmx'?"},
        {{"wait", "displays/a", "resolution.with > 1"}, "did you mean 'width'?"},
        {{"uuid"}, "either RESOURCE/NAME or --name TEXT"},
        {{"uuid", "popups/NoDisplay"}, "popups/DISPLAY/NAME"},
        {{"sim", "sett", "displays/a"}, "did you mean 'set'"},
        {{"sim", "set", "displays", "terminal=1"}, "names no element"},
        {{"sim", "set", "displays/a", "terminl=1"}, "did you mean 'terminal'"},
        {{"sim", "add", "popups/a", "visible=true"}, "name: is required"},
        {{"sim", "fault", "popupmanager", "dely_ms=1"}, "did you mean 'delay_ms'"},
        {{"sim", "plan", "cler"}, "what is 'cler'"},
        {{"completion", "csh"}, "one of bash, zsh, fish"},
        {{"help", "lst"}, "did you mean 'list'?"},
    };
    for (const auto& [words, text] : cases) {
        ScriptedServices services;
        services.hmx();
        const Outcome outcome = services.run(words);
        const std::string line = words.empty() ? "" : std::string{words.front()} + " " + words.back();
        EXPECT_EQ(outcome.code, ExitCode::usage) << line;
        EXPECT_NE(outcome.err.find(text), std::string::npos) << line << ": " << outcome.err;
        EXPECT_LE(std::count(outcome.err.begin(), outcome.err.end(), '\n'), 2) << outcome.err;
        EXPECT_EQ(outcome.out, "") << line;
        EXPECT_TRUE(services.hmx().asked.empty()) << line;
    }
}

TEST(Arguments, WordsThatLookLikeSomethingElse) {
    ScriptedServices services;
    ScriptedApi& any = services.service("/any");
    any.on("update /x", "");
    const std::vector<std::pair<std::vector<const char*>, const char*>> cases{
        {{"call", "/any", "update", "/x", "[1,2]"}, "[1,2]"},
        {{"call", "/any", "update", "/x", "-5"}, "-5"},
        {{"call", "/any", "update", "/x", "true"}, "true"},
        {{"call", "/any", "update", "/x", "{\"a\":\"b=c\"}"}, "{\"a\":\"b=c\"}"},
        {{"call", "/any", "update", "/x", "a=list", "b:=[1]"}, "{\"a\":\"list\",\"b\":[1]}"},
        {{"call", "/any", "update", "/x", "--", "--a=1"}, "{\"--a\":\"1\"}"},
    };
    for (const auto& [words, body] : cases) {
        const Outcome outcome = services.run(words);
        EXPECT_EQ(outcome.err, "");
        EXPECT_EQ(any.asked.back(), std::string{"update /x "} + body);
    }
}

TEST(Change, SendsTheBodyAndPrintsTheUri) {
    ScriptedServices services;
    ScriptedApi& hmx = services.hmx();
    const std::string path = "/popups/" + idOf("DPhone");
    hmx.on("retrieve /displays", page({display("D")}));
    hmx.on("retrieve /popups", page({popup("D", "Phone")}));
    hmx.on("update " + path, {{"404 [popup id not found]"}, {"\"/hmx" + path + "\""}});
    const Outcome byId = services.run({"update", path.c_str(), "requested=true", "requestData=7"});
    EXPECT_EQ(byId.out, "/hmx" + path + "\n");
    EXPECT_EQ(hmx.asked.front(), "update " + path + R"( {"requested":true,"requestData":"7"})");
    EXPECT_EQ(hmx.asked.back(), hmx.asked.front()) << "again once the id is known";
    EXPECT_EQ(services.run({"update", "popups/D/Phone", "requested=true", "-o", "json"}).out, "\"/hmx" + path + "\"\n");

    const std::string region = "/regionconfigurations/" + idOf("Driver_DisplayHMI_ID_ANDROID_DRIVER");
    hmx.on("delete " + region, "");
    EXPECT_EQ(services.run({"delete", "regionconfigurations/Driver_Display/HMI_ID_ANDROID_DRIVER"}).out, "");
    EXPECT_EQ(services.run({"delete", region.c_str(), "-o", "json"}).out, "null\n");
    EXPECT_EQ(hmx.asked.back(), "delete " + region);

    const int file = ::memfd_create("body", 0);
    const std::string text = R"({"display":"Driver_Display","hmi":"HMI_ID_ANDROID_DRIVER","regions":{"infoForAllLayers":[]}})";
    ASSERT_EQ(::write(file, text.data(), text.size()), static_cast<ssize_t>(text.size()));
    const std::string name = "/proc/self/fd/" + std::to_string(file);
    hmx.on("insert /regionconfigurations", "\"hmx" + region + "\"");
    const Outcome inserted =
        services.run({"insert", "regionconfigurations", "-f", name.c_str(), "subComponent=bar", "display=Co_Driver_Display"});
    EXPECT_EQ(inserted.out, "hmx" + region + "\n") << inserted.err;
    EXPECT_EQ(
        hmx.asked.back(),
        R"(insert /regionconfigurations {"display":"Co_Driver_Display","hmi":"HMI_ID_ANDROID_DRIVER","regions":{"infoForAllLayers":[]},"subComponent":"bar"})");
    ::close(file);
}

// Changes, a loss by the upstream's doing, an attempt that fails as well, and the return.
TEST(Watch, FollowsChangesLossAndReturn) {
    ScriptedServices services;
    const std::string other = display("Driver_Display", R"(,"displayID":2)");
    const Events first{page({driver, cluster}), page({driver, cluster}), page({other}), "503 upstream gone"};
    const std::vector<Events> script{first, {"503 no answer"}, {page({other})}};
    services.hmx().on("retrieve /displays", script);
    const Outcome json = services.run({"watch", "displays", "-o", "json", "--count", "6"});
    EXPECT_EQ(json.out,
              R"({"event":"snapshot","resource":"displays","elements":[)" + driver + "," + cluster + "]}\n" +
                  R"({"event":"changed","resource":"displays","id":")" + driverId + R"(","name":"Driver_Display","element":)" +
                  other + "}\n" + R"({"event":"removed","resource":"displays","id":")" + idOf("hmx/displays/Cluster_Display") +
                  R"(","name":"Cluster_Display"})" + "\n" +
                  R"({"event":"source-down","resource":"displays","reason":"retrieve /displays at /hmx: 503 upstream gone"})" +
                  "\n" + R"({"event":"source-up","resource":"displays"})" + "\n" +
                  R"({"event":"snapshot","resource":"displays","elements":[)" + other + "]}\n");
    EXPECT_EQ(json.err, "");

    services.hmx().on("retrieve /displays", script);
    const Outcome lines = services.run({"watch", "displays", "--count", "3"});
    EXPECT_NE(lines.out.find("snapshot 2 elements\n  Driver_Display displayID=1 resolution=1920x720\n"), std::string::npos)
        << lines.out;
    EXPECT_NE(lines.out.find("changed Driver_Display displayID=2 resolution=-\n"), std::string::npos) << lines.out;
    EXPECT_NE(lines.out.find("removed Cluster_Display displayID=3\n"), std::string::npos) << lines.out;

    services.hmx().on("retrieve /displays", script);
    EXPECT_EQ(services.run({"watch", "displays", "--no-reconnect"}).code, ExitCode::serviceAbsent);
    services.hmx().on("retrieve /displays", std::vector<Events>{{page({driver}), "completed"}});
    EXPECT_EQ(services.run({"watch", "displays", "--no-reconnect"}).code, ExitCode::streamEnded);
    EXPECT_EQ(services.run({"watch", "displays", "--once"}).code, ExitCode::ok);
    services.hmx().on("retrieve /displays", "400 [no]");
    EXPECT_EQ(services.run({"watch", "displays"}).code, ExitCode::rejected);
    EXPECT_EQ(ScriptedServices{}.run({"watch", "displays", "--no-reconnect"}).code, ExitCode::serviceAbsent);
}

TEST(Watch, SourceThatIsAwayFromTheStart) {
    EXPECT_EQ(ScriptedServices{}.run({"watch", "displays"}).code, ExitCode::serviceAbsent) << "at once";
    EXPECT_EQ(ScriptedServices{}.run({"watch", "displays", "--timeout", "60ms"}).code, ExitCode::serviceAbsent);
    ScriptedServices services;
    services.hmx().on("retrieve /displays", std::vector<Events>{{page({driver}), "503 gone"}, {"503 gone"}});
    EXPECT_EQ(services.run({"watch", "displays", "--timeout", "60ms"}).code, ExitCode::serviceAbsent);
    EXPECT_EQ(services.run({"watch", "displays", "--timeout", "5s", "--for", "60ms"}).code, ExitCode::ok);
    services.hmx().on("retrieve /displays", {{"503 no answer"}, {page({driver})}});
    const Outcome outcome = services.run({"watch", "displays", "-o", "jsonl", "--count", "3"});
    const std::string up = R"({"event":"source-up","resource":"displays"})";
    EXPECT_EQ(outcome.out.find(R"({"event":"source-down")"), 0U) << outcome.out;
    EXPECT_NE(outcome.out.find("\n" + up + "\n" + R"({"event":"snapshot")"), std::string::npos) << outcome.out;
}

TEST(Watch, ElementThatGoesAndComesBack) {
    ScriptedServices services;
    services.hmx().on("retrieve /displays", page({driver}));
    services.hmx().on("retrieve " + driverPath, {{driver}, {driver, "404 UNKNOWN"}, {"404 UNKNOWN"}, {"404 UNKNOWN"}, {driver}});
    const Outcome outcome = services.run({"watch", "displays/Driver_Display", "-o", "json", "--count", "3"});
    EXPECT_NE(outcome.out.find(R"({"event":"removed","resource":"displays","target":"Driver_Display")"), std::string::npos)
        << outcome.out;
    EXPECT_NE(outcome.out.rfind(R"({"event":"changed","resource":"displays","target":"Driver_Display")"), std::string::npos)
        << outcome.out;
    EXPECT_EQ(services.run({"watch", "displays/Nope"}).code, ExitCode::notFound);
}

TEST(Wait, EndsWhenTheExpressionHolds) {
    ScriptedServices services;
    const std::string path = "/popups/" + idOf("DPhone");
    const std::string hidden = popup("D", "Phone", R"(,"visible":false)");
    const std::string visible = popup("D", "Phone", R"(,"visible":true)");
    services.hmx().on("retrieve /displays", page({display("D")}));
    services.hmx().on("retrieve /popups", page({hidden}));
    services.hmx().on("retrieve " + path, {{hidden}, {hidden, hidden, "503 gone"}, {hidden}, {hidden, visible}});
    EXPECT_EQ(services.run({"wait", "popups/D/Phone", "visible == true", "-o", "json"}).out, visible + "\n");
    EXPECT_EQ(services.run({"wait", "popups/D/Phone", "visible"}).out, "") << "nothing unless asked for";

    services.hmx().on("retrieve " + path, hidden);
    const Outcome late = services.run({"wait", "popups/D/Phone", "visible == true && slot == 'top'", "--timeout", "30ms"});
    EXPECT_EQ(late.code, ExitCode::timeout);
    EXPECT_NE(late.err.find("did not hold within 30 ms: visible is false, slot is absent"), std::string::npos) << late.err;
    EXPECT_EQ(services.run({"wait", "popups/D/Nope", "visible"}).code, ExitCode::notFound);
    EXPECT_EQ(services.run({"wait", "popups/D/Nope", "visible", "--appear", "--timeout", "30ms"}).code, ExitCode::timeout);
    EXPECT_EQ(ScriptedServices{}.run({"wait", "popups/D/Phone", "visible"}).code, ExitCode::serviceAbsent);
}

TEST(Wait, IsAboutResourcesAndRemovals) {
    const std::string shown = popup("D", "A", R"(,"visible":true)");
    const std::string hidden = popup("D", "A", R"(,"visible":false)");
    const std::string other = popup("E", "B", R"(,"visible":false)");
    const std::vector<std::tuple<std::vector<const char*>, ExitCode, std::string>> cases{
        {{"wait", "popups", "display=D", "any visible == true", "-o", "jsonl"}, ExitCode::ok, shown + "\n"},
        {{"wait", "popups", "visible", "-o", "jsonl"}, ExitCode::ok, shown + "\n" + other + "\n"},
        {{"wait", "popups", "none visible && name == 'B'"}, ExitCode::ok, ""},
        {{"wait", "popups", "count(visible) == 2"}, ExitCode::timeout, "(visible) holds for 1 of 2 elements"},
        {{"wait", "popups", "display=E", "all visible"}, ExitCode::timeout, "visible holds for 0 of 1 element\n"},
        {{"wait", "popups", "count == 3"}, ExitCode::timeout, "did not hold within 60 ms: there are 2 elements"},
        {{"wait", "popups", "any visibel"}, ExitCode::usage, "did you mean 'visible'?"},
        {{"wait", "popups", "removed"}, ExitCode::usage, "for all of them: 'count == 0'"},
        {{"wait", "popups/D/A", "display=D", "removed"}, ExitCode::timeout, "did not hold within 60 ms: the element is there"},
        {{"wait", "popups/E/B", "removed"}, ExitCode::ok, ""},
        {{"wait", "popups/D/Nope", "removed"}, ExitCode::ok, ""},
        {{"wait", "regionconfigurations", "count == 0"}, ExitCode::usage, "which element?"},
        {{"watch", "popups", "display=D", "--until", "any visible"}, ExitCode::ok, "snapshot 1 element"},
        {{"watch", "popups/D/A", "--until", "visible"}, ExitCode::ok, "changed D/A visible=yes"},
        {{"watch", "popups", "--until", "count > 2", "--for", "60ms"}, ExitCode::timeout, "--for gives it longer"},
    };
    for (const auto& [words, code, text] : cases) {
        ScriptedServices services;
        services.hmx().on("retrieve /displays", page({display("D"), display("E")}));
        services.hmx().on(R"(retrieve /popups {"display":"D"})", std::vector<Events>{{page({hidden}), page({shown})}});
        services.hmx().on(R"(retrieve /popups {"display":"D","name":"A"})", page({hidden}));
        services.hmx().on(R"(retrieve /popups {"display":"E"})", page({other}));
        services.hmx().on(R"(retrieve /popups {"display":"E","name":"B"})", page({other}));
        services.hmx().on("retrieve /popups/" + idOf("DA"), std::vector<Events>{{hidden}, {hidden, shown}});
        services.hmx().on("retrieve /popups/" + idOf("EB"), std::vector<Events>{{other}, {other, "404 gone"}});
        std::vector<const char*> all = words;
        all.insert(all.end(), {"--timeout", "60ms"});
        const Outcome outcome = services.run(all);
        EXPECT_EQ(outcome.code, code) << words[1] << " " << words.back() << ": " << outcome.err;
        EXPECT_NE((outcome.out + outcome.err).find(text), std::string::npos)
            << words.back() << ": " << outcome.out << outcome.err;
    }
}

// What `record` writes, line by line, without its times.
std::vector<std::string> linesOf(const std::string& file) {
    std::ifstream in{file};
    std::vector<std::string> lines;
    for (std::string line; std::getline(in, line);) {
        if (line.starts_with("{\"t\":")) line.replace(0, line.find(',') + 1, "{");
        lines.push_back(line);
    }
    return lines;
}

TEST(Record, WritesWhatTheSourcesSay) {
    const testing_support::TemporaryDirectory directory;
    ScriptedServices services;
    const std::string two = page({display("D"), display("E")});
    const std::string hidden = R"({"id":"7","name":"A","visible":false})";
    const std::string shown = R"({"id":"7","name":"A","visible":true})";
    services.hmx().on("retrieve /displays", std::vector<Events>{{page({display("D")}), "503 upstream gone"}, {two}});
    services.hmx().on(R"(retrieve /popups {"display":"D"})",
                      std::vector<Events>{{page({popup("D", "Z"), hidden}), page({popup("D", "Z"), shown})}});
    const std::string later = page({popup("E", "B")});
    services.hmx().on(R"(retrieve /popups {"display":"E"})", later);
    const std::string file = directory / "r.jsonl";
    const Outcome outcome = services.run({"record", "popups", "-o", file.c_str(), "--until", "count == 5"});
    EXPECT_EQ(services.run({"record", "-o", file.c_str()}).code, ExitCode::usage) << "what exists is not replaced";
    EXPECT_EQ(outcome.code, ExitCode::ok) << outcome.err;
    EXPECT_NE(outcome.err.find("'count == 5' is true after"), std::string::npos) << outcome.err;
    const std::string displays = R"("service":"/hmx","path":"/displays","event":)";
    const std::string popups = R"("service":"/hmx","path":"/popups","parameters":{"display":"D"},"event":)";
    const std::vector<std::string> lines = linesOf(file);
    EXPECT_NE(lines[0].find(R"({"recording":1,"programs":{"hmxctl":")"), std::string::npos) << lines[0];
    const Asked expected{
        R"({"n":1,)" + displays + R"("state","status":200,"document":)" + page({display("D")}) + "}",
        R"({"n":2,)" + displays + R"("lost","status":503,"reason":"upstream gone"})",
        R"({"n":1,)" + popups + R"("state","status":200,"document":)" + page({popup("D", "Z"), hidden}) + "}",
        R"({"n":2,)" + popups + R"("change","status":200,"array":"data","steps":[{"step":"set","at":1,"element":)" + shown +
            "}]}",
        R"({"n":3,)" + displays + R"("state","status":200,"back":true,"document":)" + two + "}",
        R"({"n":1,"service":"/hmx","path":"/popups","parameters":{"display":"E"},"event":"state","status":200,"document":)" +
            later + "}",
        R"({"event":"stopped"})"};
    EXPECT_EQ(Asked(lines.begin() + 1, lines.end()), expected);
}

// The ring begins with whole answers, whatever has fallen out of it.
TEST(Record, KeepsTheLatestInMemory) {
    const testing_support::TemporaryDirectory directory;
    ScriptedServices services;
    services.hmx().on("retrieve /displays", std::vector<Events>{{page({driver}), page({cluster}), page({})}});
    const std::string file = directory / "r.jsonl";
    const std::vector<const char*> words{"record", "displays", "-o", file.c_str(), "--last", "20ms", "--for", "120ms"};
    EXPECT_EQ(services.run(words).code, ExitCode::ok);
    const std::vector<std::string> lines = linesOf(file);
    ASSERT_EQ(lines.size(), 3U);
    EXPECT_EQ(lines[1],
              R"({"n":3,"service":"/hmx","path":"/displays","event":"state","status":200,"document":)" + page({}) + "}");
    EXPECT_GE(hmx::recording::endOf(file), std::chrono::milliseconds{120});
}

TEST(Record, SaysWhatItCannotDo) {
    const std::vector<std::tuple<std::vector<const char*>, ExitCode, const char*>> cases{
        {{"record", "displays/X", "-o", "-"}, ExitCode::usage, "a recording holds whole resources"},
        {{"record", "regionconfigurations/X", "-o", "-"}, ExitCode::usage, "DISPLAY/HMI[/SUBCOMPONENT]"},
        {{"record", "popups", "--until", "visibel", "-o", "-"}, ExitCode::usage, "did you mean 'visible'?"},
        {{"record", "-o", "/nowhere/r.jsonl"}, ExitCode::usage, "cannot create /nowhere/r.jsonl"},
        {{"record", "-o", "/dev/full"}, ExitCode::unexpected, "cannot write /dev/full: No space left on device"},
        {{"record", "-o", "-", "--for", "20ms"}, ExitCode::serviceAbsent, "no service /hmx in the test"},
        {{"record", "--until", "count > 9", "-o", "-", "--for", "20ms"}, ExitCode::serviceAbsent, "no service /hmx"},
    };
    for (const auto& [words, code, text] : cases) {
        const Outcome outcome = ScriptedServices{}.run(words);
        EXPECT_EQ(outcome.code, code) << words.back() << outcome.err;
        EXPECT_NE(outcome.err.find(text), std::string::npos) << outcome.err;
    }
}

TEST(Status, ShowsClientsAsOneTable) {
    ScriptedServices services;
    services.hmx().on(
        "retrieve /$platform/status",
        R"({"published":[{"path":"/hmx","connections":1,"clients":[{"pid":99999999,"uid":1,"program":"/bin/n","application":"nav",)"
        R"("requests":2,"streams":3,"queuedBytes":4,"keptBytes":5,"heldRequests":6,"heldBytes":8}]}]})");
    EXPECT_EQ(
        services.run({"status"}).out,
        "published\n  PATH  CONNECTIONS\n  /hmx            1\n\nclients\n"
        "  SERVICE       PID  UID  PROGRAM  CALLS ITSELF  REQUESTS  STREAMS  QUEUED BYTES  KEPT BYTES  HELD REQUESTS  HELD "
        "BYTES  MEMORY, KB\n"
        "  /hmx     99999999    1  /bin/n   nav                  2        3             4           5              6        "
        "   8           -\n");
    services.hmx().on("retrieve /$platform/status", R"({"published":[{"path":"/hmx","connections":1}]})");
    EXPECT_EQ(services.run({"status"}).out, "published\n  PATH  CONNECTIONS\n  /hmx            1\n");
}

TEST(Trace, ShowsLevelsAndChangesThoseThatThereAre) {
    ScriptedServices services;
    services.hmx().on("retrieve /$platform/trace", R"([{"channel":"A","level":2,"id":"AX01"},{"channel":"LONGER","level":2}])");
    services.hmx().on("update /$platform/trace", R"([{"channel":"A","level":1,"id":"AX01"},{"channel":"LONGER","level":2}])");
    EXPECT_EQ(services.run({"trace"}).out, "CHANNEL  ID    LEVEL\nA        AX01      2\nLONGER   -         2\n");
    EXPECT_EQ(services.run({"trace", "A=1", "*=4"}).out, "CHANNEL  ID    LEVEL\nA        AX01      1\nLONGER   -         2\n");
    EXPECT_EQ(services.hmx().asked.back(), R"(update /$platform/trace [{"channel":"A","level":1},{"channel":"*","level":4}])");
    const auto asked = services.hmx().asked.size();
    for (const auto& [word, text] :
         {std::pair{"A", "CHANNEL=LEVEL"}, {"A=6", "CHANNEL=LEVEL"}, {"=1", "CHANNEL=LEVEL"}, {"LONGR=1", "LONGER"}}) {
        const Outcome outcome = services.run({"trace", word});
        EXPECT_EQ(outcome.code, ExitCode::usage) << word;
        EXPECT_NE(outcome.err.find(text), std::string::npos) << outcome.err;
    }
    EXPECT_EQ(services.hmx().asked.size(), asked + 1) << "only the channels were asked for";
}

TEST(Describe, ShowsRecordsAndRoutes) {
    ScriptedServices services;
    const Outcome popups = services.run({"describe", "popups", "-o", "json"});
    const Json document = Json::parse(popups.out);
    EXPECT_EQ(document["element"]["record"], "PopupObject");
    EXPECT_EQ(document["commands"].size(), 3U);
    const Outcome regions = services.run({"describe", "regionconfigurations"});
    EXPECT_NE(regions.out.find("regionconfigurations  insert    /regionconfigurations    InsertRegionconfigurationObject"),
              std::string::npos);
    EXPECT_NE(regions.out.find("Co_Driver_Display | Driver_Display"), std::string::npos);
    const std::size_t nested = regions.out.find("        hitOutside");
    EXPECT_NE(nested, std::string::npos) << "nested members are indented";
    EXPECT_EQ(regions.out.find("hitOutside", nested + 20), std::string::npos) << "and each record is shown once";
    EXPECT_EQ(Json::parse(services.run({"describe", "-o", "json"}).out).size(), 5U);
}

TEST(Sim, SpeaksTheControlServicesLanguage) {
    ScriptedServices services;
    ScriptedApi& sim = services.service("/hmxsim");
    const std::vector<std::pair<std::vector<const char*>, const char*>> cases{
        {{"sim", "world"}, "retrieve /world"},
        {{"sim", "set", "displays/Driver_Display", "terminal=2", "name=5"},
         R"(update /state/displaymanager/displays/Driver_Display {"terminal":2,"name":"5"})"},
        {{"sim", "set", "displaymanager/displays/D", "terminal=2"}, R"(update /state/displaymanager/displays/D {"terminal":2})"},
        {{"sim", "set", "layers/D/1", "display:=null"}, R"(update /state/displaymanager/layerConfig/D%2F1 {"display":null})"},
        {{"sim", "set", "input/D", "proximity=true", "name=D"},
         R"(update /state/inputmanager/displays/D {"proximity":true,"name":"D"})"},
        {{"sim", "popup", "D/Phone", "requested=true"}, R"(update /popups/D/Phone {"requested":true})"},
        {{"sim", "add", "popups/D", "name=Phone", "priorityInlayer=3"},
         R"(insert /popups/D {"name":"Phone","priorityInlayer":3})"},
        {{"sim", "remove", "popups/D/Phone"}, "delete /popups/D/Phone"},
        {{"sim", "fault"}, "retrieve /faults"},
        {{"sim", "fault", "displaymanager", "delay_ms=200", "probability=0.5", "garble=noise", "silence=true"},
         R"(update /faults/displaymanager {"delay_ms":200,"probability":0.5,"garble":"noise","silence":true})"},
        {{"sim", "fault", "displaymanager", "clear"}, "delete /faults/displaymanager"},
        {{"sim", "plan"}, "retrieve /plan"},
        {{"sim", "plan", "clear"}, "delete /plan"},
        {{"sim", "requests", "clear"}, "delete /requests"},
    };
    for (const auto& [words, asked] : cases) {
        std::string question = asked;
        sim.on(question.substr(0, question.find(" {")), "");
        const Outcome outcome = services.run(words);
        EXPECT_EQ(outcome.err, "") << asked;
        EXPECT_EQ(sim.asked.empty() ? "" : sim.asked.back(), question);
        EXPECT_EQ(sim.accept, "application/json");
    }
}

TEST(Output, ReaderThatGoesAwayIsNoFault) {
    ScriptedServices services;
    std::vector<Events> endless{{page({driver})}};
    services.hmx().on("retrieve /displays", endless);
    int ends[2];
    ASSERT_EQ(::pipe2(ends, O_CLOEXEC), 0);
    ::close(ends[0]);
    std::signal(SIGPIPE, SIG_IGN);
    EXPECT_EQ(services.runInto(ends[1], {"list", "displays"}).code, ExitCode::ok);
    EXPECT_EQ(services.runInto(ends[1], {"watch", "displays"}).code, ExitCode::ok) << "a watch notices without an event";
    ::close(ends[1]);
    const int full = ::open("/dev/full", O_WRONLY | O_CLOEXEC);
    EXPECT_EQ(services.runInto(full, {"list", "displays"}).code, ExitCode::unexpected);
    ::close(full);
}

}  // namespace
}  // namespace hmxctl_test
