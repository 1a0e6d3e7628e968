// Services that answer from a script, and commands run against them as a user would run them.
#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <functional>
#include <initializer_list>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "context.h"
#include "document.h"
#include "failure.h"
#include "services.h"

namespace hmxctl_test {

using hmxctl::ExitCode;
using hmxctl::Json;

// What one request is answered with: "{...}" is a value, "404 reason" an error, "completed" the end. A request that is still open
// after its last event stays so.
using Events = std::vector<std::string>;

// Thread: one at a time; answers come before `request` returns.
class ScriptedApi final : public kelo::IKeloApi {
public:
    // Answers `question`, "command path" or "command path body", with each of `answers` in turn, and with the last one ever
    // after.
    void on(const std::string& question, std::vector<Events> answers) { script_[question] = {std::move(answers), 0}; }
    void on(const std::string& question, const std::string& answer) { on(question, std::vector<Events>{{answer}}); }

    void* request(const kelo::Request& request, std::unique_ptr<kelo::IResponseHandler<kelo::Response>>&& handler,
                  kelo::RequestLimits) override {
        const std::string body = request.payload().empty() ? "" : " " + hmxctl::compact(hmxctl::decode(request.payload()));
        asked.push_back(request.command() + " " + request.path() + body);
        accept = request.accept();
        const auto mine = std::move(handler);
        for (const std::string& event : eventsFor(request, body)) {
            if (event == "completed") {
                mine->onCompleted();
                return UNDEFINED_REQUEST_HANDLE;
            }
            const bool error = event.size() > 3 && event[0] >= '4' && event[0] <= '5' && event[3] == ' ';
            if (error) {
                const auto status = static_cast<std::uint16_t>(std::stoi(event.substr(0, 3)));
                mine->onError(kelo::Response::createErrorResponse(status, event.substr(4)));
                return UNDEFINED_REQUEST_HANDLE;
            }
            if (mine->onNext(value(event))) return UNDEFINED_REQUEST_HANDLE;
        }
        return this;
    }
    void cancel(void*) override { ++cancelled; }

    std::vector<std::string> asked;
    std::string accept;                         // of the last request
    std::string encoding = "application/json";  // of the values
    int cancelled = 0;

private:
    kelo::Response value(const std::string& text) const {
        if (text.empty()) return kelo::Response{204};
        if (encoding == "application/json") {
            return kelo::Response{200, kelo::Payload::copyOf(text, kelo::MimeType{encoding})};
        }
        return kelo::Response{200, hmxctl::encode(Json::parse(text), encoding)};
    }

    Events eventsFor(const kelo::Request& request, const std::string& body) {
        const std::string plain = request.command() + " " + request.path();
        auto found = script_.find(plain + body);
        if (found == script_.end()) found = script_.find(plain);
        if (found == script_.end()) return {"404 [not known]"};
        auto& [answers, next] = found->second;
        const Events& events = answers.at(next);
        if (next + 1 < answers.size()) ++next;
        return events;
    }

    std::map<std::string, std::pair<std::vector<Events>, std::size_t>> script_;
};

struct Outcome {
    ExitCode code = ExitCode::ok;
    std::string out;
    std::string err;
};

// Thread: one at a time.
class ScriptedServices {
public:
    ScriptedApi& hmx() { return apis_["/hmx"]; }
    ScriptedApi& service(const std::string& path) { return apis_[path]; }

    // Runs `hmxctl WORDS...`.
    Outcome run(const std::vector<const char*>& words) {
        const int file = ::memfd_create("hmxctl-out", MFD_CLOEXEC);
        Outcome outcome = runInto(file, words);
        outcome.out.resize(static_cast<std::size_t>(::lseek(file, 0, SEEK_END)));
        if (::pread(file, outcome.out.data(), outcome.out.size(), 0) < 0) outcome.out = "unreadable";
        ::close(file);
        return outcome;
    }

    // The same with its standard output led elsewhere.
    Outcome runInto(int descriptor, const std::vector<const char*>& words) {
        std::vector<const char*> argv{"hmxctl"};
        argv.insert(argv.end(), words.begin(), words.end());
        std::ostringstream err;
        const auto view = [&](const hmxctl::Arguments&) { return std::make_unique<View>(apis_); };
        const ExitCode code = hmxctl::runCommand(static_cast<int>(argv.size()), argv.data(), view, descriptor, err);
        return {code, "", err.str()};
    }

private:
    using Apis = std::map<std::string, ScriptedApi, std::less<>>;

    class View final : public hmxctl::Services {
    public:
        explicit View(Apis& apis) : apis_{apis} {}
        kelo::IKeloApi& attach(std::string_view path, const hmxctl::Deadline&) override {
            const auto found = apis_.find(path);
            if (found != apis_.end()) return found->second;
            throw hmxctl::Failure{ExitCode::serviceAbsent, "no service " + std::string{path} + " in the test"};
        }
        std::vector<hmxctl::ServiceState> list(const hmxctl::Deadline&) override {
            std::vector<hmxctl::ServiceState> states;
            for (const auto& [path, api] : apis_)
                states.push_back({path, hmxctl::Life::alive, 0, "scripted", 7, {"application/json"}});
            return states;
        }
        std::string where() const override { return "the test"; }

    private:
        Apis& apis_;
    };

    Apis apis_;
};

// The page of a list.
inline std::string page(std::initializer_list<std::string> elements) {
    std::string data;
    for (const std::string& element : elements) data += (data.empty() ? "" : ",") + element;
    return R"({"total":)" + std::to_string(elements.size()) + R"(,"totalPages":1,"data":[)" + data + "]}";
}

}  // namespace hmxctl_test
