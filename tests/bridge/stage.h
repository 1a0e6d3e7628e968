// The stage of the bridges' tests: one bridge between a client and an upstream service, both played by the test, on a worker that
// the test cranks.
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "bridge/display_bridge.h"
#include "bridge/displayable_bridge.h"
#include "bridge/input_bridge.h"
#include "bridge/layers_bridge.h"
#include "bridge/popup_bridge.h"
#include "support/documents.h"
#include "support/fake_kelo_api.h"
#include "support/hand_cranked_worker.h"
#include "support/traced_lines.h"

namespace stage {

// Channels read their thresholds when they are created, which is before main.
[[gnu::constructor(101), gnu::used, maybe_unused]] static void traceEverything() {
    setenv("KELO_TRACE", "*=0", 1);
}

using Events = std::vector<std::string>;
using Json = nlohmann::ordered_json;

inline Json load(const std::string& file) {
    std::ifstream stream{std::filesystem::path{HMX_SOURCE_DIR} / "tests/bridge/exchanges" / file};
    return Json::parse(stream);
}

// An event as the files describe it: "503 <reason>" and "completed" are ends; everything else is a value.
inline bool isEnd(const std::string& text) {
    return text == "completed" || (text.size() > 4 && text[3] == ' ');
}
inline std::string textOf(const Json& event) {
    return event.is_string() && isEnd(event.get<std::string>()) ? event.get<std::string>() : event.dump();
}
// "<operation> [<id>] [<JSON>]"
inline std::string requestOf(const Json& exchange) {
    std::string request = exchange["operation"];
    if (exchange.contains("id")) request += " " + exchange["id"].get<std::string>();
    if (exchange.contains("with")) request += " " + exchange["with"].dump();
    return request;
}

// The client's end of one request. Records its events.
struct Downstream {
    bool oneShot = true;   // the handler's isOneShot
    bool finishes = true;  // the result of its onNext
    bool throws = false;   // from its onNext, after recording the value
    std::function<void()> onValue{};
    Events events{};  // values as JSON, "404 <reason>", "completed", and "gone" when the handler is destroyed

    Events take() { return std::exchange(events, {}); }
};

template <class T>
class DownstreamHandler final : public kelo::IResponseHandler<T> {
public:
    explicit DownstreamHandler(Downstream& downstream) : downstream_{downstream} {}
    ~DownstreamHandler() override { downstream_.events.emplace_back("gone"); }
    bool onNext(const T& value) override {
        if constexpr (std::is_null_pointer_v<T>) {
            downstream_.events.emplace_back("null");
        } else {
            downstream_.events.push_back(support::toJson(value));
        }
        if (downstream_.onValue) downstream_.onValue();
        if (downstream_.throws) throw std::runtime_error{"a client's handler"};
        return downstream_.finishes;
    }
    void onError(const kelo::Response& response) override {
        downstream_.events.push_back(std::to_string(response.status()) + " " + std::string{response.reason()});
    }
    void onCompleted() override { downstream_.events.emplace_back("completed"); }
    bool isOneShot() const override { return downstream_.oneShot; }

private:
    Downstream& downstream_;
};

// An operation's argument from JSON; "" gives the empty one.
template <class T>
T argument(std::string_view json) {
    T value{};
    if constexpr (std::is_same_v<T, kelo::optional<kelo::toluglobals::ToluParams>>) {
        if (json.empty()) return value;
        value.emplace();
        const auto reader = kelo::serializer::Factory::createDeserializer(support::MimeTypeID::json);
        EXPECT_FALSE(reader->start(util::ByteBufferReader{json}) || kelo::serializer::deserialize(*reader, *value)) << json;
    } else if constexpr (!std::is_same_v<T, kelo::optional<std::vector<std::string>>>) {
        value = support::fromJson<T>(json);
    }
    return value;
}

class Stage {
public:
    // `resource`: selects the bridge by what it serves. The API is attached. What follows is for the region configurations.
    explicit Stage(const std::string& resource, const hmx::RegionLimits& limits = {},
                   std::unique_ptr<kelo::supervisor::KeptState> kept = nullptr)
        : lines{channelOf(resource)} {
        using namespace hmx;
        if (resource == "displays") {
            own<DisplayBridge>(&DisplayBridge::retrieveDisplayObjects, &DisplayBridge::retrieveDisplayObject);
        } else if (resource == "displayables") {
            own<DisplayableBridge>(&DisplayableBridge::retrieveDisplayableObjects, &DisplayableBridge::retrieveDisplayableObject);
        } else if (resource == "layerconfigurations") {
            own<LayersBridge>(&LayersBridge::retrieveLayerconfigurationObjects, &LayersBridge::retrieveLayerconfigurationObject);
        } else if (resource == "regionconfigurations") {
            auto& bridge = own<InputBridge>(&InputBridge::insertRegionconfigurationObject,
                                            &InputBridge::retrieveRegionconfigurationObject, limits, std::move(kept));
            operations_["insert"] = operations_["list"];
            add("update", bridge, &InputBridge::updateRegionconfigurationObject);
            add("delete", bridge, &InputBridge::deleteRegionconfigurationObject);
        } else {
            auto& bridge = own<PopupBridge>(&PopupBridge::retrievePopupObjects, &PopupBridge::retrievePopupObject);
            add("update", bridge, &PopupBridge::updatePopupObject);
        }
        attach(api);
    }

    void attach(support::FakeKeloApi& to) {
        worker.run([&] { setApi_({.info = {}, .api = &to}); });
    }
    void detach() { worker.run(resetApi_); }

    // Calls the operation; its event runs when the worker is cranked.
    void* post(const std::string& request, Downstream& downstream) {
        const std::string head = request.substr(0, request.find('{'));
        const auto blank = head.find(' ');
        const std::string id = blank == std::string::npos ? "" : head.substr(blank + 1, std::UUID::textLength);
        return operations_.at(head.substr(0, blank))(id, request.substr(head.size()), downstream);
    }
    void* ask(const std::string& request, Downstream& downstream) {
        void* const key = post(request, downstream);
        worker.crank();
        return key;
    }
    void cancel(void* key) {
        cancel_(key);
        worker.crank();
    }
    // Sends an event for the upstream request at `index`, on a thread that is not the worker.
    void answer(std::size_t index, const std::string& event) { answer(api, index, event); }
    void answer(support::FakeKeloApi& from, std::size_t index, const std::string& event) {
        if (event == "completed") {
            from.completed(index);
        } else if (isEnd(event)) {
            from.error(index, static_cast<std::uint16_t>(std::stoi(event)), event.substr(4));
        } else {
            from.next(index, event);
        }
        worker.crank();
    }
    // The same on the worker, as if the worker itself read the API's connection.
    void answerOnWorker(std::size_t index, const std::string& event) {
        worker.run([&] { api.next(index, event); });
    }
    // Ends what is open upstream: nothing of it may outlive the bridge.
    void end() {
        detach();
        for (std::size_t i = 0; i < api.sent.size(); ++i) answer(i, "503 service gone, outcome unknown");
    }
    // "<command> <path> [<body>]" of the last request sent; "" if none was sent since the first `since`.
    std::string lastSent(std::size_t since = 0) const {
        if (api.sent.size() <= since) return "";
        const kelo::Request& request = api.sent.back().request;
        const std::string body{request.payload().text()};
        return request.command() + " " + request.path() + (body.empty() ? "" : " " + body);
    }

    support::HandCrankedWorker worker;
    support::FakeKeloApi api;
    support::TracedLines lines;

private:
    static std::string channelOf(const std::string& resource) {
        const std::map<std::string, std::string> ends{{"displays", "DISPLAYS"},
                                                      {"displayables", "DISPLAYABLES"},
                                                      {"layerconfigurations", "LAYERS"},
                                                      {"regionconfigurations", "REGIONS"},
                                                      {"popups", "POPUPS"}};
        return "HMX_TOLU_BRIDGE_" + ends.at(resource);
    }
    template <class Bridge, class List, class Element, class... More>
    Bridge& own(List list, Element element, More&&... more) {
        auto bridge = std::make_shared<Bridge>(worker.shared(), std::forward<More>(more)...);
        setApi_ = [bridge](const hmx::ServiceApi& to) { bridge->setApi(to); };
        resetApi_ = [bridge] { bridge->resetApi(); };
        cancel_ = [bridge](void* key) { bridge->cancelRequest(key); };
        add("list", *bridge, list);
        add("element", *bridge, element);
        return *bridge;
    }
    template <class Bridge, class Result, class Argument>
    void add(const char* name, Bridge& bridge,
             void* (Bridge::*function)(std::unique_ptr<kelo::IResponseHandler<Result>>&&, const Argument&)) {
        operations_[name] = [&bridge, function](const std::string&, const std::string& json, Downstream& downstream) {
            return (bridge.*function)(std::make_unique<DownstreamHandler<Result>>(downstream), argument<Argument>(json));
        };
    }
    template <class Bridge, class Result, class Argument>
    void add(const char* name, Bridge& bridge,
             void* (Bridge::*function)(std::unique_ptr<kelo::IResponseHandler<Result>>&&, const std::UUID&, const Argument&)) {
        operations_[name] = [&bridge, function](const std::string& id, const std::string& json, Downstream& downstream) {
            std::UUID uuid;
            EXPECT_TRUE(std::UUID::parse(id, uuid)) << id;
            return (bridge.*function)(std::make_unique<DownstreamHandler<Result>>(downstream), uuid, argument<Argument>(json));
        };
    }

    std::map<std::string, std::function<void*(const std::string&, const std::string&, Downstream&)>> operations_;
    std::function<void(const hmx::ServiceApi&)> setApi_;
    std::function<void()> resetApi_;
    std::function<void(void*)> cancel_;
};

}  // namespace stage
