// Services that answer from a script, at once or when the test says so, and their domain.
#pragma once

#include <algorithm>
#include <cstdint>
#include <initializer_list>
#include <list>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "hmx/client/document.h"
#include "hmx/client/domain.h"
#include "hmx/client/error.h"
#include "kelo/kelo_api.h"
#include "kelo/uuid.h"

namespace scripted {

using hmx::client::Json;

// The answers to one request: "{...}" is a value, "404 reason" an error, "completed" the end. If its last event does not end a
// request, it stays open.
using Events = std::vector<std::string>;

// Thread: one at a time. Answers come before `request` returns, or, if `late`, one by one when `deliver` is called.
class ScriptedApi final : public kelo::IKeloApi {
public:
    // Answers `question`, "command path" or "command path body", with each of `answers` in turn, and then always with the last
    // one.
    void on(const std::string& question, std::vector<Events> answers) { script_[question] = {std::move(answers), 0}; }
    void on(const std::string& question, const std::string& answer) { on(question, std::vector<Events>{{answer}}); }

    void* request(const kelo::Request& request, std::unique_ptr<kelo::IResponseHandler<kelo::Response>>&& handler,
                  kelo::RequestLimits) override {
        const std::string body =
            request.payload().empty() ? "" : " " + hmx::client::compact(hmx::client::decode(request.payload()));
        asked.push_back(request.command() + " " + request.path() + body);
        accept = request.accept();
        open_.push_back({++lastHandle_, std::move(handler), eventsFor(request, body)});
        const std::uintptr_t handle = lastHandle_;
        while (!late && deliverTo(handle)) {
        }
        return isOpen(handle) ? toHandle(handle) : UNDEFINED_REQUEST_HANDLE;
    }
    void cancel(void* handle) override {
        cancelled += static_cast<int>(std::erase_if(open_, [&](const Open& each) { return toHandle(each.handle) == handle; }));
    }

    // Delivers one event of the oldest request that still has one; false if there is none.
    bool deliver() {
        for (const Open& each : open_) {
            if (!each.events.empty()) return deliverTo(each.handle);
        }
        return false;
    }

    bool late = false;
    std::vector<std::string> asked;
    std::string accept;                         // of the last request
    std::string encoding = "application/json";  // of the values
    int cancelled = 0;

private:
    // A request and its remaining events.
    struct Open {
        std::uintptr_t handle;
        std::unique_ptr<kelo::IResponseHandler<kelo::Response>> handler;
        Events events;
    };

    static void* toHandle(std::uintptr_t number) { return reinterpret_cast<void*>(number); }
    bool isOpen(std::uintptr_t handle) const {
        return std::any_of(open_.begin(), open_.end(), [&](const Open& each) { return each.handle == handle; });
    }

    // False if the request has no event left.
    bool deliverTo(std::uintptr_t handle) {
        const auto found = std::find_if(open_.begin(), open_.end(), [&](const Open& each) { return each.handle == handle; });
        if (found == open_.end() || found->events.empty()) return false;
        const std::string event = std::exchange(found->events.front(), "");
        found->events.erase(found->events.begin());
        if (isLast(*found->handler, event)) std::erase_if(open_, [&](const Open& each) { return each.handle == handle; });
        return true;
    }

    bool isLast(kelo::IResponseHandler<kelo::Response>& handler, const std::string& event) const {
        if (event == "completed") {
            handler.onCompleted();
            return true;
        }
        const bool error = event.size() > 3 && event[0] >= '4' && event[0] <= '5' && event[3] == ' ';
        if (!error) return handler.onNext(value(event));
        const auto status = static_cast<std::uint16_t>(std::stoi(event.substr(0, 3)));
        handler.onError(kelo::Response::createErrorResponse(status, event.substr(4)));
        return true;
    }

    kelo::Response value(const std::string& text) const {
        if (text.empty()) return kelo::Response{204};
        if (encoding == "application/json") {
            return kelo::Response{200, kelo::Payload::copyOf(text, kelo::MimeType{encoding})};
        }
        return kelo::Response{200, hmx::client::encode(Json::parse(text), encoding)};
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
    std::list<Open> open_;
    std::uintptr_t lastHandle_ = 0;
};

using ScriptedApis = std::map<std::string, ScriptedApi, std::less<>>;

// A domain of such services. Thread: one at a time.
class ScriptedDomain final : public hmx::client::Domain {
public:
    explicit ScriptedDomain(ScriptedApis& apis) : apis_{apis} {}
    hmx::client::Task<kelo::IKeloApi*> attach(std::string path, hmx::client::Deadline) override {
        const auto found = apis_.find(path);
        if (found != apis_.end()) co_return &found->second;
        throw hmx::client::Error{hmx::client::Error::Kind::noService, "no service " + path + " in the test"};
    }
    hmx::client::Task<std::vector<hmx::client::ServiceState>> list(hmx::client::Deadline) override {
        std::vector<hmx::client::ServiceState> states;
        for (const auto& [path, api] : apis_) {
            states.push_back({path, hmx::client::Life::alive, 0, "scripted", 7, {"application/json"}});
        }
        co_return states;
    }
    bool isAlive(std::string_view /*path*/) const override { return true; }
    std::string where() const override { return "the test"; }

private:
    ScriptedApis& apis_;
};

// The page of a list.
inline std::string page(std::initializer_list<std::string> elements) {
    std::string data;
    for (const std::string& element : elements) data += (data.empty() ? "" : ",") + element;
    return R"({"total":)" + std::to_string(elements.size()) + R"(,"totalPages":1,"data":[)" + data + "]}";
}

inline std::string idOf(const std::string& name) {
    return kelo::uuid::createFromName(name).toString();
}

inline std::string display(const std::string& name, const std::string& more = "") {
    const std::string id = idOf("hmx/displays/" + name);
    return R"({"id":")" + id + R"(","name":")" + name + R"(","uri":"/hmx/displays/)" + id + "\"" + more + "}";
}

inline std::string popup(const std::string& displayName, const std::string& name, const std::string& more = "") {
    const std::string id = idOf(displayName + name);
    return R"({"id":")" + id + R"(","name":")" + name + R"(","uri":"/hmx/popups/)" + id + R"(","display":")" + displayName +
           "\"" + more + "}";
}

inline const std::string driver = display("Driver_Display", R"(,"displayID":1,"resolution":{"height":720,"width":1920})");
inline const std::string cluster = display("Cluster_Display", R"(,"displayID":3)");
inline const std::string driverId = idOf("hmx/displays/Driver_Display");
inline const std::string driverPath = "/displays/" + driverId;

}  // namespace scripted
