#include <sys/inotify.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "road_roles.h"
#include "road_wire.h"

namespace road {

using traffic::Clock;
using traffic::fail;

namespace {

const Frame& mustBeAnswer(const Frame& frame) {
    if (frame.type() == error) {
        std::fprintf(stderr, "road: answered with an error: %.*s\n", static_cast<int>(frame.body().size()), frame.body().data());
        std::exit(1);
    }
    return frame;
}

struct Question {
    std::string command = "retrieve";
    std::string path = "/displays";
    std::string body{};
    std::string mimeType = "application/json";
    std::uint8_t flags = oneShotFlag;

    [[nodiscard]] Bytes frame(std::uint64_t id, std::string_view payload) const {
        return testing_support::frame(
            request, flags, id,
            textMap({{"$request-command", command}, {"$request-path", path}, {"$client-id", "road-1"}, {"$mime-type", mimeType}},
                    payload));
    }
    [[nodiscard]] Bytes frame(std::uint64_t id) const { return frame(id, body); }
};

// Asks one question and waits for its answer.
std::string ask(int fd, FrameReader& reader, const Question& question) {
    sendAll(fd, question.frame(1));
    std::string answer;
    while (answer.empty()) {
        if (!reader.receive(fd)) fail("connection lost");
        reader.frames([&](const Frame& frame) { answer = mustBeAnswer(frame).body(); });
    }
    return answer;
}

// Makes the frames of a client's requests: either only the request id changes, or the number is in the body as well.
class Questions {
public:
    explicit Questions(Question question) : question_{std::move(question)}, frame_{question_.frame(1)} {}

    const Bytes& frame(std::size_t number) {
        if (question_.body.find('%') == std::string::npos) {
            setId(frame_, number);
        } else {
            std::string body = question_.body;
            for (auto at = body.find('%'); at != std::string::npos; at = body.find('%', at))
                body.replace(at, 1, std::to_string(number));
            frame_ = question_.frame(number, body);
        }
        return frame_;
    }

private:
    const Question question_;
    Bytes frame_;
};

}  // namespace

int playClient(const std::string& directory, const std::string& service, const traffic::Options& options) {
    const Question question{options.text("command", "retrieve"), options.text("path", "/displays"), options.text("body"),
                            options.text("mime", "application/json")};
    const Sends sends = sendsOf(options.text("sends"));
    const std::chrono::microseconds interval{options.number("interval_us", 0)};
    traffic::measure(traffic::Load{options}, [&](traffic::Book& book) {
        FrameReader reader;
        const int fd = greet(directory, service, reader);
        Questions questions{question};
        Outbox out{sends};
        Clock::time_point due = Clock::now();
        while (!book.isFinished()) {
            while (book.mayAsk()) {
                if (interval.count() > 0) {
                    due += interval;
                    std::this_thread::sleep_until(due);
                } else {
                    due = Clock::now();
                }
                out.add(questions.frame(book.ask(due)));
            }
            if (!out.flush(fd) || !reader.receive(fd)) fail("connection lost");
            const auto now = Clock::now();
            reader.frames([&](const Frame& frame) { book.answer(mustBeAnswer(frame).id(), frame.body().size(), now); });
        }
        ::close(fd);
    });
    return 0;
}

int measureStart(const std::string& directory, const std::string& service, std::vector<char*> program) {
    const int watch = ::inotify_init1(IN_CLOEXEC);
    if (watch < 0 || ::inotify_add_watch(watch, directory.c_str(), IN_MOVED_TO) < 0) fail(directory);
    program.push_back(nullptr);
    const auto begin = Clock::now();
    const pid_t child = ::fork();
    if (child < 0) fail("fork");
    if (child == 0) {
        ::execv(program[0], program.data());
        ::_exit(127);
    }
    const std::string name = socketName(service);
    for (bool isThere = false; !isThere;) {
        alignas(inotify_event) char buffer[4096];
        const auto size = ::read(watch, buffer, sizeof buffer);
        if (size <= 0) fail("inotify");
        for (std::ptrdiff_t at = 0; at < size;) {
            const auto* const event = reinterpret_cast<const inotify_event*>(buffer + at);
            isThere = isThere || name == event->name;
            at += static_cast<std::ptrdiff_t>(sizeof *event + event->len);
        }
    }
    FrameReader reader;
    const int fd = greet(directory, service, reader);
    ask(fd, reader, {});
    const double milliseconds = std::chrono::duration<double, std::milli>(Clock::now() - begin).count();
    std::printf("{\"first_answer_ms\":%.3f}\n", milliseconds);
    ::kill(child, SIGTERM);
    ::waitpid(child, nullptr, 0);
    return 0;
}

int playWatchers(const std::string& directory, const std::string& service, const traffic::Options& options) {
    const std::size_t watchers = options.number("watchers", 1);
    const std::size_t changes = options.number("changes", 1);
    const std::chrono::microseconds interval{options.number("interval_us", 0)};

    // The popup can be asked for by its id only after an answer has shown it.
    FrameReader changerReader;
    const int changer = greet(directory, service, changerReader);
    const std::string list =
        ask(changer, changerReader, {.path = "/popups", .body = R"({"display":"Driver_Display","name":"Incoming_Call"})"});
    const std::string_view key = R"("id":")";
    const auto at = list.find(key);
    if (at == std::string::npos) fail("no popup in " + list);
    const std::string path = "/popups/" + list.substr(at + key.size(), 36);

    FrameReader reader;
    const int fd = greet(directory, service, reader);
    const Question watch{.path = path, .flags = 0};
    for (std::size_t i = 1; i <= watchers; ++i) sendAll(fd, watch.frame(i));
    const auto awaitAll = [&] {
        std::size_t heard = 0;
        while (heard < watchers) {
            if (!reader.receive(fd)) fail("connection lost");
            reader.frames([&](const Frame& frame) { heard += mustBeAnswer(frame).type() == next ? 1 : 0; });
        }
    };
    awaitAll();
    traffic::sayReady();

    const Question change{.command = "update", .path = path, .body = R"({"requested":true})"};
    std::vector<std::int64_t> nanoseconds;
    for (std::size_t i = 0; i < changes; ++i) {
        const auto begin = Clock::now();
        ask(changer, changerReader, change);
        awaitAll();
        nanoseconds.push_back((Clock::now() - begin).count());
        std::this_thread::sleep_until(begin + interval);
    }
    std::printf("{\"p50_us\":%.1f,\"p99_us\":%.1f}\n", traffic::microsecondsAt(nanoseconds, 0.5),
                traffic::microsecondsAt(nanoseconds, 0.99));
    return 0;
}

}  // namespace road
