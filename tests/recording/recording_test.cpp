// Recordings as they are written, spoiled, and read again.

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <csignal>
#include <fstream>
#include <numeric>
#include <random>

#include "hmx/client/error.h"
#include "hmx/recording/moment.h"
#include "hmx/recording/reader.h"
#include "hmx/recording/times.h"
#include "hmx/recording/trail.h"
#include "hmx/recording/writer.h"
#include "support/temporary_directory.h"

namespace hmx::recording {
namespace {

using namespace std::chrono_literals;
using client::compact;
using client::Error;

const std::string headLine = lineOf(Head{.wall = "2026-11-22T23:59:50.500+01:00", .zone = "Europe/Berlin", .domain = "local"});
const Source popups{"/hmx", "/popups", {{"display", "Driver_Display"}}};

std::string reasonOf(const std::function<void()>& action) {
    try {
        action();
    } catch (const Error& error) {
        return error.what();
    }
    return "";
}

// A page of popups that are visible or not: "+-+".
Json page(const std::string& visible) {
    Json data = Json::array();
    for (std::size_t i = 0; i < visible.size(); ++i) data.push_back({{"id", i}, {"visible", visible[i] == '+'}});
    return Json{{"total", data.size()}, {"data", data}};
}

// What is seen of one source: its state and the problems.
struct Seen {
    std::string document;
    std::string problems;
    friend bool operator==(const Seen&, const Seen&) = default;
    friend std::ostream& operator<<(std::ostream& out, const Seen& seen) {
        return out << seen.document << " | " << seen.problems;
    }
};

std::string visibleIn(const Moment& moment) {
    const SourceState* state = moment.find(popups);
    if (state == nullptr || !state->isKnown) return "?";
    std::string visible;
    for (const Json& popup : client::member(state->document, "data")) visible += popup["visible"] == true ? '+' : '-';
    return state->kind == EntryKind::state ? visible : std::string{nameOf(state->kind)} + " " + visible;
}

struct File {
    explicit File(const std::string& content) : path{directory / "r.jsonl"} { std::ofstream{path} << content; }
    testing_support::TemporaryDirectory directory;
    std::string path;
};

Seen readAll(const std::string& content) {
    const File file{content};
    Moment moment;
    Seen seen;
    const auto add = [&](std::uint64_t line, const std::string& what) {
        seen.problems += (seen.problems.empty() ? "" : "; ") + std::to_string(line) + ": " + what;
    };
    try {
        Reader reader{file.path};
        while (const std::optional<Entry> entry = reader.next()) moment.apply(*entry);
        for (const Problem& problem : reader.problems()) add(problem.line, problem.what);
        EXPECT_EQ(visibleIn(momentAt(file.path)), visibleIn(moment)) << content;
    } catch (const Error& error) {
        seen.problems = error.what();
    }
    seen.document = visibleIn(moment);
    return seen;
}

TEST(Reader, ReadsWhatIsGoodAndNamesWhatIsNot) {
    Trail trail{popups};
    std::vector<std::string> lines{headLine};
    for (const char* visible : {"-----", "+----", "++---", "+++--", "++++-"}) {
        lines.push_back(trail.answer(lines.size() * 1ms, 200, page(visible)));
    }
    lines.push_back(trail.event(7ms, EntryKind::lost, 503, "away"));
    lines.push_back(trail.answer(8ms, 200, page("----+")));
    const auto joined = [&](const std::vector<std::size_t>& order) {
        std::string text;
        for (const std::size_t line : order) text += lines[line];
        return text;
    };
    const std::string whole = joined({0, 1, 2, 3, 4, 5, 6, 7});
    const std::string cut = whole.substr(0, whole.size() - 1);
    std::string bare = joined({0, 1, 2, 3});  // of a program that does not number
    for (std::size_t at = 0; (at = bare.find(",\"n\":", at)) != std::string::npos;) bare.erase(at, 6);
    const std::string foreign = R"({"status":200,"document":{"data":[{"visible":true}]},"event":"state","path":"/popups",)"
                                R"("parameters":{"display":"Driver_Display"},"service":"/hmx","t":9000000})";
    const std::string gap = " of /popups is missing before it";
    const std::string unknown = "a change of /popups to what is not known";
    const std::vector<std::pair<std::string, Seen>> cases{
        {whole, {"----+", ""}},
        {joined({0, 1, 2, 3, 4, 5, 6}), {"lost ++++-", ""}},
        {cut, {"----+", ""}},
        {cut.substr(0, cut.size() - 1), {"lost ++++-", "8: incomplete, as the last line of a recorder that was killed may be"}},
        {joined({0, 1, 2, 2, 3}), {"++---", "4: the entry before it again"}},
        {joined({0, 1, 2, 3, 1, 4}), {"+++--", "5: an entry that was read already, or too late"}},
        {joined({0, 0, 1, 2}), {"+----", "2: the head again"}},
        {joined({0, 1, 3, 2, 4}), {"+++--", "3: it came before those that it follows; put in order"}},
        {joined({0, 1, 2, 4, 5}), {"+----", "4: 1 entry" + gap + "; 4: " + unknown + "; 5: " + unknown}},
        {joined({0, 1, 2, 4, 6}), {"lost +----", "4: 1 entry" + gap + "; 4: " + unknown}},
        {joined({0, 1, 2, 4, 5, 6, 7}), {"----+", "4: 1 entry" + gap + "; 4: " + unknown + "; 5: " + unknown}},
        {joined({0, 1, 2, 7}), {"----+", "4: 4 entries of /popups are missing before it"}},
        {joined({0, 3, 4}), {"?", "2: " + unknown + "; 3: " + unknown}},
        {joined({0, 1}) + "lorem ipsum\n{\"x\":1}\n\n[]\n" + joined({2}),
         {"+----", "3: no complete JSON object; 4: no entry: \"t\" is not a whole number; 6: no JSON object"}},
        {joined({0, 1}) + R"({"t":2,"service":"/a","path":"/b","event":"later"})" + "\n" + joined({2}),
         {"+----", "3: no event is called \"later\""}},
        {joined({0, 1}) + std::string(100, '[') + "\n" + joined({2}), {"+----", "3: nested too deep"}},
        {joined({0, 1, 2}) + lineOf(Head{}) + joined({3}), {"+----", "4: another recording begins here; it is not read"}},
        {joined({1, 2}), {"+----", "1: no head: when and with what it was recorded is not known"}},
        {lines[0].substr(9) + joined({1, 2}), {"+----", "1: no head: when and with what it was recorded is not known"}},
        {bare, {"++---", ""}},
        {joined({0, 1, 2}) + foreign + "\n", {"+", ""}},
        {bare + bare.substr(lines[0].size()), {"++---", "5: it goes back in time; 6: it goes back in time"}},
        {"", {"?", "is no recording: it is empty"}},
        {"PK\x03\x04\n", {"?", "is no recording: its first line is no complete JSON object"}},
        {R"({"recording":2,"new":true})"
         "\n",
         {"?", ": written in version 2 of the format; this program reads version 1"}},
    };
    for (const auto& [content, expected] : cases) {
        Seen seen = readAll(content);
        const std::size_t path = seen.problems.rfind("r.jsonl");
        if (path != std::string::npos) seen.problems.erase(0, path + 7 + (seen.problems[path + 7] == ' ' ? 1 : 0));
        EXPECT_EQ(seen, expected) << content;
    }
}

// A file that ends anywhere holds at least what its complete lines say.
TEST(Reader, FileThatWasCutAtAnyByte) {
    Trail trail{popups};
    std::string content = headLine;
    std::vector<std::pair<std::size_t, std::string>> ends;
    for (const char* visible : {"--", "+-", "++"}) {
        content += trail.answer(1ms, 200, page(visible));
        ends.emplace_back(content.size() - 1, visible);
    }
    for (std::size_t length = headLine.size() - 1; length <= content.size(); length += 3) {
        std::string expected = "?";
        for (const auto& [end, visible] : ends) expected = length >= end ? visible : expected;
        EXPECT_EQ(readAll(content.substr(0, length)).document, expected) << length;
    }
}

// Whatever an answer changes, its entries lead to the very document.
TEST(Trail, LeadsToEveryDocument) {
    std::mt19937 random{7};
    const auto below = [&](std::size_t bound) { return std::uniform_int_distribution<std::size_t>{0, bound - 1}(random); };
    for (const char* array : {"data", "infoForAllDisplays", ""}) {
        Trail trail{popups};
        Moment moment;
        Json document = *array == '\0' ? Json::array() : Json{{"total", 0}, {array, Json::array()}, {"other", Json::array()}};
        std::size_t changes = 0;
        for (int round = 0; round < 400; ++round) {
            Json& elements = *array == '\0' ? document : document[array];
            for (std::size_t change = below(3); change > 0; --change) {
                const std::size_t at = below(elements.size() + 1);
                const Json element{{below(2) == 0 ? "id" : "name", below(6)}, {"text", std::string(60, 'x')}, {"z", below(9)}};
                if (below(2) == 0)
                    elements.insert(elements.begin() + static_cast<std::ptrdiff_t>(at), element);
                else if (at < elements.size() && below(3) == 0)
                    elements.erase(elements.begin() + static_cast<std::ptrdiff_t>(at));
                else if (at < elements.size())
                    elements[at] = element;
            }
            if (document.is_object() && below(9) == 0) document[below(2) == 0 ? "total" : "next"] = below(9);
            if (document.is_object() && below(9) == 0) document.erase("total");
            if (below(30) == 0) (void)moment.apply(entryOf(trail.event(1s, EntryKind::lost, 503, "gone")));
            const std::string line = trail.answer(2s, 200, document);
            const Entry entry = entryOf(line);
            EXPECT_EQ(lineOf(entry), line);
            changes += entry.kind == EntryKind::change ? 1U : 0U;
            ASSERT_EQ(compact(moment.apply(entry).document), compact(document));
        }
        EXPECT_GT(changes, 300U) << array;
    }
}

TEST(Trail, TakesAnyTextThatIsADocument) {
    const std::vector<std::pair<std::string, std::string>> cases{
        {"{\n  \"data\": [ {\"id\": 1} ,\r\n {\"id\": 2} ] }", R"({"data":[{"id":1},{"id":2}]})"},
        {R"({ "data" : [ ] })", R"({ "data" : [ ] })"},
        {"null", "null"},
        {"7", "7"},
        {"{", ""},
        {"[1,]", ""},
        {"{\"a\":\"\xFF\"}", ""},
        {"", ""},
        {std::string(64, '[') + std::string(64, ']'), std::string(64, '[') + std::string(64, ']')},
    };
    for (const auto& [text, expected] : cases) {
        Trail trail{popups};
        std::string line;
        EXPECT_EQ(reasonOf([&, sent = text] { line = trail.answer(1s, 200, sent); }).empty(), !expected.empty()) << text;
        if (expected.empty()) continue;
        EXPECT_NE(line.find(",\"document\":" + expected + "}\n"), std::string::npos) << line;
        EXPECT_EQ(compact(entryOf(line).document), compact(Json::parse(text))) << line;
    }
}

TEST(Trail, WritesWholeAnswersSoOftenThatReadersNeedNotGoBackFar) {
    Trail trail{popups};
    Json document = page(std::string(30, '-'));
    std::size_t sinceWhole = 0;
    std::size_t wholes = 0;
    for (int round = 0; round < 6'000; ++round) {
        document["data"][static_cast<std::size_t>(round) % 30]["visible"] = round % 7 == 0;
        const std::string line = trail.answer(1s * round, 200, document);
        const bool isWhole = entryOf(line).kind == EntryKind::state;
        wholes += isWhole ? 1U : 0U;
        sinceWhole = isWhole ? 0 : sinceWhole + line.size();
        ASSERT_LE(sinceWhole, std::size_t{258} * 1024U);
    }
    EXPECT_GT(wholes, 2U);
    EXPECT_LT(wholes, 20U);
}

// Steps that were not made for the document.
TEST(Moment, RefusesAChangeThatDoesNotFit) {
    const std::vector<std::pair<std::string, std::string>> cases{
        {R"({"step":"set","at":3,"element":1})", "no element 3"},
        {R"({"step":"insert","at":4,"element":1})", "no element 4"},
        {R"({"step":"erase","at":9223372036854775807})", "no element 9223372036854775807"},
        {R"({"step":"insert","at":3,"element":1})", ""},
    };
    const Entry state{.source = popups, .document = page("+++")};
    for (const auto& [step, expected] : cases) {
        Moment moment;
        (void)moment.apply(state);
        const std::string line = lineOf(Entry{.source = popups, .kind = EntryKind::change, .array = "data"});
        const Entry change = entryOf(line.substr(0, line.find("[]") + 1) + step + "]}");
        const std::string reason = reasonOf([&] { (void)moment.apply(change); });
        EXPECT_NE(reason.find(expected), std::string::npos) << reason;
        EXPECT_EQ(moment.find(popups)->isKnown, expected.empty());
        EXPECT_EQ(reasonOf([&] { (void)moment.apply(state); }), "") << "a whole answer makes good for it";
    }
}

TEST(Moment, IsThatOfTheTimeAskedFor) {
    Trail one{popups};
    Trail other{{"/hmx", "/displays", {}}};
    const std::vector<std::string> lines{headLine,
                                         one.answer(1s, 200, page("-")),
                                         other.answer(2s, 200, page("-")),
                                         one.answer(3s, 200, page("+")),
                                         one.event(4s, EntryKind::lost, 503, "away"),
                                         one.answer(5s, 200, page("++"))};
    const File file{std::accumulate(lines.begin(), lines.end(), std::string{})};
    const std::vector<std::pair<std::chrono::nanoseconds, const char*>> cases{
        {0s, "?"}, {1s, "-"}, {2999ms, "-"}, {3s, "+"}, {4s, "lost +"}, {5s, "++"}, {1h, "++"}};
    for (const auto& [at, expected] : cases) EXPECT_EQ(visibleIn(momentAt(file.path, at)), expected) << at.count();
    const Moment moment = momentAt(file.path, 4s);
    EXPECT_EQ(moment.sources().size(), 2U);
    EXPECT_EQ(moment.at(), 4s);
    EXPECT_EQ(moment.find(popups)->reason, "away");
    EXPECT_EQ(moment.find({"/hmx", "/displays", Json::object()})->since, 2s);
    EXPECT_EQ(endOf(file.path), 5s);
    EXPECT_EQ(momentAt(file.path).at(), 5s);
}

// However the last line is written, and if the recorder's successor goes on.
TEST(Moment, LastsUntilTheRecorderStopped) {
    Trail one{popups};
    const std::string begin = headLine + one.answer(1s, 200, page("-"));
    const std::string later = one.answer(12s, 200, page("+"));
    const std::vector<std::pair<std::string, std::chrono::nanoseconds>> cases{
        {stopLine(9s), 9s},
        {R"({"t":9000000000,"event":"stopped"})", 9s},
        {R"({ "event": "stopped", "why": "SIGTERM", "t": 9000000000 })", 9s},
        {stopLine(9s) + later, 12s},
        {stopLine(0s), 1s},
    };
    for (const auto& [end, expected] : cases) {
        const File file{begin + end};
        std::vector<Problem> problems;
        EXPECT_EQ(momentAt(file.path, {}, &problems).at(), expected) << end;
        EXPECT_EQ(endOf(file.path), expected) << end;
        Reader reader{file.path};
        while (reader.next()) {
        }
        EXPECT_EQ(reader.end(), expected) << end;
        EXPECT_EQ(problems.size() + reader.problemCount(), 0U) << end;
    }
}

TEST(Times, AreReadAsPeopleWriteThem) {
    Head head = headOf(headLine);
    const std::vector<std::pair<const char*, std::chrono::nanoseconds>> cases{
        {"0", 0s},
        {"12.5s", 12500ms},
        {"1500ms", 1500ms},
        {"2m", 2min},
        {"-3s", 97s},
        {"23:59:51.5", 1s},
        {"23:59:50.5", 0s},
        {"00:00:00.5", 10s},
        {"23:59:50", 24h - 500ms},
        {"2026-11-23T00:00:10.5", 20s},
        {"2026-11-22T23:00:10.5Z", 20s},
        {"2026-11-23T00:00:10.500+01:00", 20s},
        {"2026-11-22T17:30:10.5-05:30", 20s},
    };
    for (const auto& [text, expected] : cases) EXPECT_EQ(parseTime(text, head, [] { return 100s; }), expected) << text;
    const std::vector<std::pair<const char*, const char*>> wrong{
        {"", "cannot be read"},          {"-3m", "before the start"},
        {"12:34", "cannot be read"},     {"2026-11-22T23:59:50", "before the start"},
        {"25:00:00", "cannot be read"},  {"2026-02-30T00:00:00", "cannot be read"},
        {"5 parsecs", "cannot be read"}, {"1e300s", "cannot be read"},
    };
    for (const auto& [text, expected] : wrong) {
        const std::string reason = reasonOf([&, at = text] { (void)parseTime(at, head, [] { return 100s; }); });
        EXPECT_NE(reason.find(expected), std::string::npos) << text << ": " << reason;
    }
    EXPECT_EQ(wallTime(9750ms, head), "00:00:00.250");
    head.wall.clear();
    EXPECT_NE(reasonOf([&] { (void)parseTime("12:00:00", head, [] { return 1s; }); }), "") << "no clock on the wall";
    const Head now = headOf(lineOf(headNow()));
    EXPECT_LT(parseTime(now.wall, now, [] { return 0s; }), 1s);
    EXPECT_LT(timeNow(now), 1min);
}

// A disk that fills in the middle of a line.
TEST(Writer, LeavesAReadableFileOnAFullDisk) {
    EXPECT_NE(reasonOf([] {
                  const int full = ::open("/dev/full", O_WRONLY | O_CLOEXEC);
                  const Writer writer{full, "/dev/full", Head{}};
              }).find("cannot write /dev/full: No space left on device"),
              std::string::npos);

    const File file{""};
    (void)std::signal(SIGXFSZ, SIG_IGN);
    rlimit before{};
    ::getrlimit(RLIMIT_FSIZE, &before);
    const rlimit small{1000, before.rlim_max};
    ::setrlimit(RLIMIT_FSIZE, &small);
    const int descriptor = ::open(file.path.c_str(), O_WRONLY | O_CLOEXEC);
    Trail trail{popups};
    std::string written;
    const std::string reason = reasonOf([&] {
        Writer writer{descriptor, file.path, headOf(headLine)};
        for (std::string visible = "-";; visible += '+') {
            writer.writeLines(trail.answer(1s, 200, page(visible)));
            written = visible;
        }
    });
    ::setrlimit(RLIMIT_FSIZE, &before);
    ::close(descriptor);
    EXPECT_NE(reason.find("cannot write " + file.path + ": File too large"), std::string::npos) << reason;
    std::ifstream in{file.path};
    EXPECT_EQ(readAll(std::string{std::istreambuf_iterator<char>{in}, {}}), (Seen{written, ""}));
}

}  // namespace
}  // namespace hmx::recording
