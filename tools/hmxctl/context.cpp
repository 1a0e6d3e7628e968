#include "context.h"

#include <sys/time.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <ctime>
#include <exception>
#include <ostream>

#include "text.h"

namespace hmxctl {
namespace {

// One line for what was tried and how it ended, one for what would help.
void report(std::ostream& err, const std::string& action, const Failure& failure) {
    const std::string what = failure.what();
    // "get displays/X": what is said of the element itself need not name it twice.
    const std::string verb = action.substr(0, action.find(' '));
    const std::string object = action.substr(std::min(action.size(), verb.size() + 1));
    std::string begin = action.empty() ? "" : action + ": ";
    if (!object.empty() && what.rfind(object, 0) == 0) begin = verb + " ";
    // Or the text names the verb itself.
    if (what.rfind(verb + ":", 0) == 0 || what.rfind(verb + " ", 0) == 0) begin.clear();
    std::string lines = "hmxctl: " + printable(begin + what) + "\n";
    if (!failure.hint().empty()) lines += "hmxctl: " + printable(failure.hint()) + "\n";
    err << lines << std::flush;  // in one piece, so that others' lines do not come between
}

// Says on `err` what is asked and answered, if that is wanted, and in any case how old an answer is that is not of now.
// Thread: main.
class Tracer final : public IObserver {
public:
    Tracer(std::ostream& err, bool isVerbose) : err_{err}, isVerbose_{isVerbose} {}

    void asked(const std::string& service, const Query& query) override {
        if (!isVerbose_) return;
        err_ << "hmxctl: > " << query.command << ' ' << query.path << " at " << service;
        if (!query.body.is_null()) err_ << ' ' << printable(compact(query.body));
        err_ << '\n';
    }
    void answered(const kelo::Response& response, std::chrono::steady_clock::duration after) override {
        if (const std::string* const age = response.headers().find("$age"); age != nullptr && !std::exchange(isOld_, true)) {
            err_ << "hmxctl: the origin is lost; this was known " + printable(*age) + " ms ago\n" << std::flush;
        }
        if (!isVerbose_) return;
        const std::chrono::duration<double, std::milli> elapsed = after;
        std::array<char, 32> time{};
        std::snprintf(time.data(), time.size(), "%.1f", elapsed.count());
        err_ << "hmxctl: < " + printable(response.toString()) + " after " + time.data() + " ms\n";
    }

private:
    std::ostream& err_;
    bool isVerbose_;
    bool isOld_ = false;  // that was said
};

// Says what is wrong with a recording when all else has been said. Thread: main.
class Complaints {
public:
    explicit Complaints(Context& context) : context_{context} {}
    Complaints(const Complaints&) = delete;
    Complaints& operator=(const Complaints&) = delete;
    ~Complaints() {
        if (context_.recording == nullptr) return;
        const std::vector<std::string> all = context_.recording->complaints();
        for (std::size_t i = 0; i < std::min(all.size(), most); ++i) context_.err << "hmxctl: " + printable(all[i]) + "\n";
        if (all.size() > most) context_.err << "hmxctl: and " + std::to_string(all.size() - most) + " lines more\n";
    }

private:
    static constexpr std::size_t most = 10;
    Context& context_;
};

}  // namespace

ClientOptions clientOptions(const Arguments& arguments, IObserver* observer) {
    // A process that takes connections and closes them has too many already; one that leaves them alone does nothing.
    constexpr std::chrono::milliseconds probe{200};
    return {.domain = {.runtimeDirectory = arguments.runtimeDirectory,
                       .domain = arguments.domain,
                       .applicationName = "hmxctl",
                       .patient = arguments.patient,
                       .probe = probe},
            .style = {.mimeType = arguments.mimeType,
                      .acceptStale = arguments.stale,
                      .patient = arguments.patient,
                      .observer = observer},
            .service = arguments.service,
            .timeout = arguments.timeout};
}

void Context::note(std::string_view text) {
    out.flush();  // on a terminal, data comes before what is said of it
    err << "hmxctl: " + printable(text) + "\n" << std::flush;
}

bool Context::waitForNews(const std::optional<Deadline>& until) const {
    Dispatcher& dispatcher = client.dispatcher();
    const Dispatcher::Woken woken = dispatcher.wait(until, out.descriptor());
    if (woken == Dispatcher::Woken::hungUp) throw OutputClosed{};
    dispatcher.dispatch();
    return woken == Dispatcher::Woken::news;
}

std::string Context::clockTime() const {
    if (recording != nullptr) return recording->clock();
    timeval now{};
    ::gettimeofday(&now, nullptr);
    std::tm local{};
    ::localtime_r(&now.tv_sec, &local);
    std::array<char, 32> text{};
    const std::size_t length = std::strftime(text.data(), text.size(), "%H:%M:%S", &local);
    const std::string milliseconds = std::to_string(1000 + now.tv_usec / 1000);
    return std::string{text.data(), length} + "." + milliseconds.substr(1);
}

std::string Context::action() const {
    std::string text{arguments.verb->name};
    if (!arguments.words.empty()) text += " " + arguments.words.front();
    return text;
}

ExitCode runCommand(int argc, const char* const* argv, const ClientMaker& makeClient, int outputDescriptor, std::ostream& err) {
    std::string action;
    std::string verb;
    std::string from;
    const auto reported = [&](const Failure& failure) {
        // What would help with running services does not help with a recording.
        if (!from.empty() && failure.code() == ExitCode::serviceAbsent && failure.status() != 0) {
            report(err, action,
                   Failure{failure.code(), failure.what(), "`hmxctl --from " + from + " services` shows what it holds"});
            return failure.code();
        }
        // Whoever typed it wrong can always look up how it is right.
        const bool needsHelp = failure.code() == ExitCode::usage && failure.hint().empty();
        const std::string help = "`hmxctl help" + (verb.empty() ? "" : " " + verb) + "` explains it";
        report(err, action, needsHelp ? Failure{failure.code(), failure.what(), help} : failure);
        return failure.code();
    };
    try {
        const Arguments arguments = parseArguments(argc, argv);
        Output out{outputDescriptor, arguments.colour};
        from = arguments.from;
        if (!arguments.help.empty()) {
            out.write(arguments.help);
            out.flush();
            return ExitCode::ok;
        }
        Tracer tracer{err, arguments.verbose};
        RecordedDomain* recording = nullptr;
        Client::DomainMaker domain;
        if (!arguments.from.empty()) {
            domain = [&](Dispatcher& dispatcher) {
                auto made = openRecording(dispatcher, {.file = arguments.from,
                                                       .at = arguments.at,
                                                       .plays = (arguments.verb->options & (watching | appearing)) != 0,
                                                       .speed = arguments.speed});
                recording = made.get();
                return made;
            };
        }
        const std::unique_ptr<Client> client =
            makeClient(arguments, clientOptions(arguments, arguments.verbose || arguments.stale ? &tracer : nullptr), domain);
        Context context{arguments, *client, out, err, recording};
        Complaints complaints{context};
        action = context.action();
        verb = arguments.verb->name;
        const ExitCode code = arguments.verb->run(context);
        out.flush();
        return code;
    } catch (const OutputClosed&) {
        return ExitCode::ok;
    } catch (const Failure& failure) {
        return reported(failure);
    } catch (const Error& error) {
        return reported(failureOf(error));
    } catch (const std::exception& error) {
        report(err, action, Failure{ExitCode::unexpected, error.what()});
        return ExitCode::unexpected;
    }
}

}  // namespace hmxctl
