// Whole commands that ask a recording instead of running services.

#include <gtest/gtest.h>

#include <fcntl.h>

#include <fstream>

#include "hmx/recording/writer.h"
#include "scripted_services.h"
#include "support/temporary_directory.h"

namespace hmxctl_test {
namespace {

using hmx::recording::Entry;
using hmx::recording::EntryKind;
using hmx::recording::Source;
using namespace std::chrono_literals;

// A display and a popup that is requested after two seconds; the popups are away from the third to the fourth.
void writeRecording(const std::string& file, bool upstream) {
    const int descriptor = ::open(file.c_str(), O_CREAT | O_WRONLY | O_TRUNC | O_CLOEXEC, 0600);
    ASSERT_GE(descriptor, 0);
    hmx::recording::Head head;
    head.wall = "2026-11-22T12:30:00.000000000+01:00";
    head.upstream = upstream;
    hmx::recording::Writer writer{descriptor, file, head};
    const Source popups{"/hmx", "/popups", Json{{"display", "Driver_Display"}}};
    const auto state = [&](std::chrono::nanoseconds at, const Source& source, const std::string& text, bool isBack = false) {
        writer.write({.at = at,
                      .source = source,
                      .kind = EntryKind::state,
                      .status = 200,
                      .document = Json::parse(text),
                      .isBack = isBack});
    };
    const auto hint = [](const char* requested) {
        return page({popup("Driver_Display", "Hint", std::string{R"(,"requested":)"} + requested)});
    };
    state(5ms, {"/hmx", "/displays"}, page({driver}));
    state(6ms, popups, hint("false"));
    if (upstream)
        state(7ms, {"/hmxinputmanager", "/Driver_Display"}, R"({"regionInfoSorted":[{"hmiName":"Radio","regionID":7}]})");
    state(2s, popups, hint("true"));
    writer.write({.at = 3s, .source = popups, .kind = EntryKind::lost, .status = 503, .reason = "gone"});
    state(4s, popups, hint("true"), true);
    ::close(descriptor);
}

TEST(FromARecording, VerbsWorkAsOnARunningSystem) {
    const testing_support::TemporaryDirectory directory;
    const std::string plain = directory / "plain.jsonl";
    const std::string whole = directory / "whole.jsonl";
    writeRecording(plain, false);
    writeRecording(whole, true);
    const std::string spoiled = directory / "spoiled.jsonl";
    writeRecording(spoiled, false);
    std::ofstream{spoiled, std::ios::app} << R"({"t":5000000000,"service":"/hmx","path":"/displayables","event":"state",)"
                                          << R"("status":200,"document":{"data":[null]}})"
                                          << "\nforeign\n";
    const std::string popups = page({popup("Driver_Display", "Hint", R"(,"requested":true)")});
    const char* const hint = "popups/Driver_Display/Hint";
    struct Row {
        std::string file;
        std::vector<const char*> words;
        ExitCode code;
        std::string out;  // contained in the output; "" for none at all
        std::string err;  // likewise
    };
    const std::vector<Row> rows{
        {plain, {"list", "displays", "-o", "json"}, ExitCode::ok, page({driver}) + "\n", ""},
        {plain, {"list", "popups", "-o", "json"}, ExitCode::ok, popups + "\n", ""},
        {plain, {"list", "popups", "requested=false", "-o", "json", "--at", "3.5s"}, ExitCode::serviceAbsent, "", "503 gone"},
        {plain, {"get", hint, "--at", "12:30:01"}, ExitCode::ok, "requested  no\n", ""},
        {plain, {"get", hint, "--at", "-1.5s"}, ExitCode::ok, "requested  yes\n", ""},
        {plain, {"list", "displays", "--at", "1ms"}, ExitCode::serviceAbsent, "", "says nothing until then"},
        {spoiled, {"list", "displayables"}, ExitCode::rejected, "", "data[0]: expected an object"},
        {spoiled, {"list", "displays", "-o", "jsonl"}, ExitCode::ok, driver, "spoiled.jsonl, line 8: no "},
        {plain, {"list", "layerconfigurations"}, ExitCode::serviceAbsent, "", "services` shows what it holds"},
        {plain, {"hit", "Driver_Display", "1", "1"}, ExitCode::serviceAbsent, "", "does not hold /layerconfigurations"},
        {plain, {"call", "/hmxinputmanager", "retrieve", "/Driver_Display"}, ExitCode::serviceAbsent, "", "record --upstream"},
        {whole, {"call", "/hmxinputmanager", "retrieve", "/Driver_Display"}, ExitCode::ok, "Radio           7\n", ""},
        {whole, {"call", "/hmxinputmanager", "retrieve", "/Other"}, ExitCode::notFound, "", "does not hold /Other"},
        {plain, {"call", "/hmx", "update", "/displays", "{}"}, ExitCode::notPermitted, "", "a recording cannot be changed"},
        {whole, {"services"}, ExitCode::ok, "/hmxinputmanager  alive", ""},
        {plain, {"update", hint, "requested=true"}, ExitCode::usage, "", "needs a running system"},
        {plain, {"status"}, ExitCode::usage, "", "needs a running system"},
        {plain, {"watch", hint, "--speed", "max", "--at", "1s"}, ExitCode::ok, "12:30:01.000 snapshot 1 element\n", "ends here"},
        {plain, {"watch", hint, "--speed", "max"}, ExitCode::ok, "12:30:03.000 source-down", "ends here"},
        {plain,
         {"watch", hint, "--speed", "max"},
         ExitCode::ok,
         "12:30:02.000 changed Driver_Display/Hint requested=yes\n",
         "ends"},
        {plain, {"watch", hint, "--speed", "max"}, ExitCode::ok, "12:30:04.000 source-up\n", "ends here"},
        {plain, {"wait", hint, "requested", "-o", "json"}, ExitCode::ok, R"("requested":true)", ""},
        {plain, {"wait", hint, "visible == true"}, ExitCode::timeout, "", "until the end of the recording"},
        {plain, {"watch", hint, "--speed", "0"}, ExitCode::usage, "", "'0' is no speed"},
        {plain, {"list", "displays", "--at", "noon"}, ExitCode::usage, "", "'noon' is no time"},
        {directory / "none", {"list", "displays"}, ExitCode::unexpected, "", "No such file"},
    };
    ScriptedServices running;
    for (const Row& row : rows) {
        std::vector<const char*> words{"--from", row.file.c_str()};
        words.insert(words.end(), row.words.begin(), row.words.end());
        const Outcome outcome = running.run(words);
        std::string line;
        for (const char* word : row.words) line += std::string{" "} + word;
        EXPECT_EQ(outcome.code, row.code) << line << outcome.err;
        EXPECT_TRUE(row.out.empty() ? outcome.out.empty() : outcome.out.find(row.out) != std::string::npos)
            << line << outcome.out;
        EXPECT_TRUE(row.err.empty() ? outcome.err.empty() : outcome.err.find(row.err) != std::string::npos)
            << line << outcome.err;
    }
    EXPECT_TRUE(running.hmx().asked.empty()) << "nobody else is asked";
    EXPECT_EQ(running.run({"list", "displays", "--at", "3s"}).code, ExitCode::usage) << "of which recording?";
}

}  // namespace
}  // namespace hmxctl_test
