// `record`: what services say, into a file. The recorder makes the lines; here they are written, or kept in a ring until they are
// wanted.
//
// Lines are written at the end of each turn of the loop, all in one piece. The ring is written into a file of its own each time:
// what was wanted once is not replaced.

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <set>
#include <utility>

#include "following.h"
#include "hmx/client/elements.h"
#include "hmx/client/schema.h"
#include "hmx/displaymanager/service_path.h"
#include "hmx/inputregions/service_path.h"
#include "hmx/popups/service_path.h"
#include "hmx/recording/recorder.h"
#include "hmx/recording/ring.h"
#include "hmx/recording/times.h"
#include "hmx/recording/writer.h"
#include "osal/signal_queue.h"
#include "parameters.h"
#include "targets.h"
#include "verbs/verbs.h"

namespace hmxctl {
namespace {

namespace recording = hmx::recording;
using recording::Head;
using recording::Plan;
using recording::Recorder;
using recording::Ring;
using recording::Writer;
using std::chrono::nanoseconds;

// How much of lines the ring holds.
constexpr std::size_t ringBytes = std::size_t{4} * 1024U * 1024U;

constexpr std::array managers{kelo::hmx::displaymanager::servicePath, kelo::hmx::inputregions::servicePath,
                              kelo::hmx::popups::servicePath};

Plan planFor(const Context& context) {
    Plan plan;
    Plan all = Plan::everything();
    std::vector<recording::Source> named;
    bool isWhole = false;
    for (const std::string& word : context.arguments.words) {
        const Target target = parseTarget(word, "record");
        const Resource& resource = *target.resource;
        const bool isRegions = !isListable(resource);
        if (!target.element.empty()) {
            if (!isRegions) {
                throw usageError("record " + word + ": a recording holds whole resources",
                                 "hmxctl record " + std::string{resource.name});
            }
            std::UUID id;
            const std::optional<std::UUID> known = std::UUID::parse(target.element, id) ? id : resource.idOf(target.element);
            if (!known) {
                throw usageError("record " + word + ": not the name of one of the " + std::string{resource.name},
                                 "a UUID or " + std::string{resource.nameForm});
            }
            named.push_back({std::string{hmxService}, elementPath(resource, *known)});
            continue;
        }
        isWhole = true;
        plan.popups = plan.popups || resource.path == "/popups";
        for (const recording::Source& source : all.sources) {
            if (source.path == resource.path || source.path.starts_with(std::string{resource.path} + "/"))
                plan.sources.push_back(source);
        }
    }
    if (!isWhole) plan = std::move(all);
    plan.sources.insert(plan.sources.end(), named.begin(), named.end());
    plan.upstream = context.arguments.upstream;
    return plan;
}

// The expression is about all elements that are recorded. A member is right if any of these resources has it.
std::optional<Expression> conditionFor(const Context& context, const Plan& plan) {
    if (context.arguments.condition.empty()) return {};
    Expression condition = Expression::parseForSeveral(context.arguments.condition);
    if (!context.arguments.validate) return condition;
    const auto isRecorded = [&](const Resource& resource) {
        return (plan.popups && resource.path == "/popups") ||
               std::any_of(plan.sources.begin(), plan.sources.end(),
                           [&](const recording::Source& source) { return source.path.starts_with(resource.path); });
    };
    for (const std::string& path : condition.members()) {
        std::optional<Error> fault;
        bool isKnown = false;
        for (const Resource& resource : resources()) {
            if (isKnown || !isRecorded(resource)) continue;
            try {
                checkMemberPath(path, resource.element(), "expression");
                isKnown = true;
            } catch (const Error& error) {
                if (!fault || !error.hint().empty()) fault = error;
            }
        }
        if (!isKnown && fault) throw Error{*fault};
    }
    return condition;
}

// "hmx.jsonl" as "hmx-2.jsonl".
std::string numbered(const std::string& name, int number) {
    if (number == 1) return name;
    const std::size_t slash = name.rfind('/');
    std::size_t dot = name.rfind('.');
    if (dot == std::string::npos || dot == 0 || (slash != std::string::npos && dot <= slash + 1)) dot = name.size();
    return name.substr(0, dot) + "-" + std::to_string(number) + name.substr(dot);
}

std::string nameByTime() {
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    ::localtime_r(&now, &local);
    std::array<char, 64> name{};
    std::strftime(name.data(), name.size(), "hmx-%Y%m%d-%H%M%S.jsonl", &local);
    return name.data();
}

std::string amount(std::uint64_t bytes) {
    if (bytes < 10'000) return std::to_string(bytes) + " bytes";
    return bytes < 10'000'000 ? std::to_string(bytes / 1000) + " kB" : std::to_string(bytes / 1'000'000) + " MB";
}

std::string lengthText(nanoseconds time) {
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "%.1f s", std::chrono::duration<double>{time}.count());
    return text.data();
}

// The versions of the programs whose services are there and are recorded, as far as they say.
Json programsThere(const Context& context, const Plan& plan) {
    Json programs{{"hmxctl", programVersion()}};
    const Deadline deadline{std::chrono::milliseconds{300}};
    try {
        for (const ServiceState& state : context.client.run(context.client.domain().list(deadline))) {
            const bool isRecorded = state.path == hmxService ||
                                    (plan.upstream && std::find(managers.begin(), managers.end(), state.path) != managers.end());
            if (!isRecorded || state.life != Life::alive) continue;
            const Service service = context.client.run(context.client.service(state.path, deadline));
            const Json status = decode(context.client.run(service.request({"retrieve", "/$platform/status"}, deadline)).payload);
            if (!text(status, "version").empty()) programs[text(status, "application")] = text(status, "version");
        }
    } catch (const Error&) {  // nobody is there, or nobody says; the recording begins all the same
    }
    return programs;
}

// An open file, or standard output. A new file has its name only once it is shown, so that whoever finds it finds a recording;
// where the file system cannot do this, it has it from the start. A resource. Errors: Failure. Thread: main.
class File {
public:
    File(const std::string& name, int standardOutput) : name_{name == "-" ? "standard output" : name} {
        if (name == "-") {
            descriptor_ = standardOutput;
            return;
        }
        isOwned_ = true;
        struct stat status {};
        if (::stat(name.c_str(), &status) == 0) {
            if (S_ISREG(status.st_mode)) throw exists();
            descriptor_ = ::open(name.c_str(), O_WRONLY | O_CLOEXEC);  // what is no file, a pipe for example, is used as it is
        } else {
            const std::size_t slash = name.rfind('/');
            const std::string directory = slash == std::string::npos ? "." : name.substr(0, slash + 1);
            descriptor_ = ::open(directory.c_str(), O_TMPFILE | O_WRONLY | O_CLOEXEC, 0666);
            isHidden_ = descriptor_ >= 0;
            if (!isHidden_) descriptor_ = ::open(name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
        }
        if (descriptor_ < 0) throw errno == EEXIST ? exists() : cannotCreate();
    }
    File(const File&) = delete;
    File& operator=(const File&) = delete;
    ~File() {
        if (isOwned_) ::close(descriptor_);
    }

    void show() {
        if (!std::exchange(isHidden_, false)) return;
        const std::string self = "/proc/self/fd/" + std::to_string(descriptor_);
        if (::linkat(AT_FDCWD, self.c_str(), AT_FDCWD, name_.c_str(), AT_SYMLINK_FOLLOW) == 0) return;
        throw errno == EEXIST ? exists() : cannotCreate();
    }

    int descriptor() const noexcept { return descriptor_; }
    const std::string& name() const noexcept { return name_; }

private:
    Failure exists() const {
        return usageError("record: " + name_ + " exists, and is not replaced", "remove it, or choose another name");
    }
    Failure cannotCreate() const { return usageError("record: cannot create " + name_ + ": " + std::strerror(errno)); }

    std::string name_;
    int descriptor_ = -1;
    bool isOwned_ = false;
    bool isHidden_ = false;
};

// One recording. Thread: main.
class Recording {
public:
    explicit Recording(Context& context)
        : context_{context},
          name_{context.arguments.recording.empty() ? nameByTime() : context.arguments.recording},
          plan_{planFor(context)},
          condition_{conditionFor(context, plan_)} {
        const Json programs = programsThere(context, plan_);
        head_ = recording::headNow();
        head_.programs = programs;
        head_.domain = context.arguments.domain;
        head_.upstream = plan_.upstream;
        if (context.arguments.last) {
            ring_.emplace(*context.arguments.last, ringBytes);
        } else {
            open();
            file_->show();
        }
    }

    ExitCode run() {
        std::optional<Deadline> end;
        if (context_.arguments.duration) end.emplace(*context_.arguments.duration);
        Recorder recorder{
            context_.client,
            head_,
            plan_,
            {.line = [&](nanoseconds at, std::string line) { take(recorder, at, std::move(line)); },
             .turn = [&](const auto& source, auto kind, const std::string& reason) { tell(source, kind, reason); }}};
        while (!isOver_ && !(end && end->passed())) {
            wait(end);
            while (const std::optional<int> signal = signals_.take()) obey(*signal);
            context_.client.dispatch();
            flush();
        }
        if (ring_) writeRing();
        if (writer_) {
            const nanoseconds at = now();
            const std::uint64_t entries = writer_->lines() - 1;
            lines_ = recording::stopLine(at);
            flush();
            say("recorded " + std::to_string(entries) + " entries, " + amount(writer_->bytes()) + ", in " + lengthText(at) +
                ": " + file_->name());
        }
        if (const std::optional<Error> silence = recorder.silence()) throw failureOf(*silence);
        if (condition_ && !isTrue_ && end && end->passed()) {
            throw conditionLate(context_, *context_.arguments.duration, condition_->countsIn(elementsOf(recorder)));
        }
        return ExitCode::ok;
    }

private:
    nanoseconds now() const { return recording::timeNow(head_); }

    void say(const std::string& text) { context_.note(text); }

    void open() {
        file_.emplace(numbered(name_, ++files_), context_.out.descriptor());
        writer_.emplace(file_->descriptor(), file_->name(), head_);
    }

    // Until something has happened, or `end`. Throws OutputClosed when nobody reads standard output any more.
    void wait(const std::optional<Deadline>& end) const {
        std::optional<Deadline::Clock::time_point> until = context_.client.nextTimer();
        if (end) until = std::min(until.value_or(end->at()), end->at());
        int milliseconds = -1;
        if (until) {
            const auto left = std::chrono::ceil<std::chrono::milliseconds>(*until - Deadline::Clock::now()).count();
            milliseconds = static_cast<int>(std::clamp<std::int64_t>(left, 0, 60L * 60L * 1000L));
        }
        const int watched = file_ && name_ == "-" ? file_->descriptor() : -1;
        std::array<pollfd, 3> waits{pollfd{context_.client.descriptor(), POLLIN, 0}, pollfd{signals_.descriptor(), POLLIN, 0},
                                    pollfd{watched, 0, 0}};
        if (::poll(waits.data(), waits.size(), milliseconds) > 0 && (waits[2].revents & (POLLERR | POLLHUP)) != 0)
            throw OutputClosed{};
    }

    void obey(int signal) {
        // On standard output, a second recording after the first would be no recording.
        if (signal != SIGUSR1 || (ring_ && name_ == "-")) {
            isOver_ = true;
        } else if (ring_) {
            writeRing();
        } else {
            say("SIGUSR1 writes what --last keeps; here everything is written already");
        }
    }

    void take(const Recorder& recorder, nanoseconds at, std::string line) {
        if (ring_) {
            ring_->add(at, std::move(line));
        } else {
            lines_ += line;
        }
        if (condition_ && !isTrue_ && condition_->holdsFor(elementsOf(recorder))) {
            isTrue_ = isOver_ = true;
            say("'" + context_.arguments.condition + "' is true after " + lengthText(at));
        }
    }

    void flush() {
        if (lines_.empty()) return;
        const std::string lines = std::exchange(lines_, {});
        try {
            writer_->writeLines(lines);
        } catch (const Error&) {
            pollfd output{file_->descriptor(), 0, 0};
            if (name_ == "-" && ::poll(&output, 1, 0) > 0 && (output.revents & (POLLERR | POLLHUP)) != 0) throw OutputClosed{};
            throw;
        }
    }

    void writeRing() {
        const nanoseconds at = now();
        open();
        try {
            ring_->write(at, *writer_);
        } catch (const Error&) {
            file_->show();  // as far as it came
            throw;
        }
        file_->show();
        say("wrote the last " + lengthText(ring_->reach(at)) + " into " + file_->name() +
            (ring_->isFull(at) ? ": memory holds no more than " + amount(ringBytes) + " of it" : ""));
        writer_.reset();
        file_.reset();
    }

    static std::vector<const Json*> elementsOf(const Recorder& recorder) {
        std::vector<const Json*> elements;
        for (const Json* document : recorder.documents()) {
            const Json& data = member(*document, "data");
            if (!data.is_array()) {
                elements.push_back(document);
                continue;
            }
            for (const Json& element : data) elements.push_back(&element);
        }
        return elements;
    }

    // What goes takes many sources with it; that is said once.
    void tell(const recording::Source& source, recording::EntryKind kind, const std::string& reason) {
        if (kind == recording::EntryKind::lost) {
            if (away_.insert(source.service).second) say(source.service + " does not answer: " + reason);
        } else if (kind == recording::EntryKind::failed) {
            say("retrieve " + source.path + " at " + source.service + " fails: " + reason);
        } else if (kind == recording::EntryKind::state && away_.erase(source.service) > 0) {
            say(source.service + " answers");
        }
    }

    Context& context_;
    osal::SignalQueue signals_{SIGINT, SIGTERM, SIGUSR1};
    std::string name_;
    Plan plan_;
    std::optional<Expression> condition_;
    Head head_;
    std::optional<Ring> ring_;
    int files_ = 0;
    std::optional<File> file_;
    std::optional<Writer> writer_;
    std::string lines_;
    std::set<std::string> away_;
    bool isTrue_ = false;
    bool isOver_ = false;
};

}  // namespace

ExitCode runRecord(Context& context) {
    Recording recording{context};
    return recording.run();
}

}  // namespace hmxctl
