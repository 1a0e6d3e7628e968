// A simulator without sockets: the test makes the requests, cranks the worker and moves the clock.
#pragma once

#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "comm/active_object.h"
#include "simulator.h"
#include "world_file.h"

namespace hmxsim_tests {

class HandTimers final : public hmxsim::Timers {
public:
    Time now() const override { return now_; }
    void at(Time due, Callback callback) override { waiting_.emplace(due, std::move(callback)); }
    // Runs what is due on the way, each at its own moment.
    void advance(std::chrono::milliseconds by) {
        const Time end = now_ + by;
        while (!waiting_.empty() && waiting_.begin()->first <= end) {
            now_ = std::max(now_, waiting_.begin()->first);
            auto entry = waiting_.extract(waiting_.begin());
            entry.mapped()();
        }
        now_ = end;
    }

private:
    Time now_{std::chrono::hours{1}};
    std::multimap<Time, Callback> waiting_;
};

// What one client heard: "204", "200 <payload>", "404 <reason>", "completed", "dropped" for a responder that was given up.
using Events = std::vector<std::string>;

class RecordingResponder final : public kelo::IResponder {
public:
    RecordingResponder(std::shared_ptr<Events> events, bool oneShot) : events_{std::move(events)}, oneShot_{oneShot} {}
    ~RecordingResponder() override {
        if (!ended_) events_->push_back("dropped");
    }
    bool next(const kelo::Response& response) override {
        const std::string_view payload = response.payload().text();
        events_->push_back(std::to_string(response.status()) + (payload.empty() ? "" : " ") + std::string{payload});
        ended_ = oneShot_;
        return oneShot_;
    }
    void error(const kelo::Response& response) override {
        events_->push_back(std::to_string(response.status()) + " " + std::string{response.reason()});
        ended_ = true;
    }
    void completed() override {
        events_->push_back("completed");
        ended_ = true;
    }

private:
    std::shared_ptr<Events> events_;
    const bool oneShot_;
    bool ended_ = false;
};

// One request of a client.
struct Client {
    std::shared_ptr<Events> events = std::make_shared<Events>();
    hmxsim::Service* service = nullptr;
    void* handle = nullptr;

    // What it heard since the last time.
    Events take() const { return std::exchange(*events, {}); }
};

class Stage : private hmxsim::Host {
public:
    explicit Stage(const std::string& world, std::uint64_t seed = 1)
        : simulator{hmxsim::readWorld(hmxsim::Document{"world.json", world}), hmxsim::Surroundings{worker, timers, *this, log},
                    seed} {}
    ~Stage() override { worker.runPending(); }

    Client send(hmxsim::Service& service, const std::string& command, const std::string& path, const std::string& body = "",
                bool oneShot = true) {
        Client client;
        client.service = &service;
        kelo::Request request{command, path, kelo::Payload::copyOf(body, kelo::MimeType{"application/json"})};
        request.setOneShot(oneShot);
        auto responder = std::make_unique<RecordingResponder>(client.events, oneShot);
        client.handle = service.actionRequest(request, std::move(responder), "test");
        worker.runPending();
        return client;
    }
    Client watch(hmxsim::Service& service, const std::string& path, const std::string& body = "") {
        return send(service, "retrieve", path, body, false);
    }
    // The one answer to a one-shot request.
    std::string ask(hmxsim::Service& service, const std::string& command, const std::string& path, const std::string& body = "") {
        const Events events = send(service, command, path, body).take();
        return events.size() == 1 ? events.front() : std::to_string(events.size()) + " events";
    }
    std::string control(const std::string& command, const std::string& path, const std::string& body = "") {
        return ask(simulator.controlService(), command, path, body);
    }
    void cancel(const Client& client) {
        client.service->cancelRequest(client.handle);
        worker.runPending();
    }
    void advance(int milliseconds) {
        timers.advance(std::chrono::milliseconds{milliseconds});
        worker.runPending();
    }
    hmxsim::Service& displays() { return simulator.service(hmxsim::ManagerId::display); }
    hmxsim::Service& inputs() { return simulator.service(hmxsim::ManagerId::input); }
    hmxsim::Service& popups() { return simulator.service(hmxsim::ManagerId::popup); }

    Events hostCalls;  // "close popupmanager 500", "crash"
    HandTimers timers;
    comm::ActiveObject worker{"hmxsim", comm::ActiveObject::ByHand{}};
    hmxsim::RequestLog log{timers.now()};
    hmxsim::Simulator simulator;

private:
    void close(std::string_view service, std::chrono::milliseconds reopenAfter) override {
        hostCalls.push_back("close " + std::string{service} + ' ' + std::to_string(reopenAfter.count()));
    }
    void crash() override { hostCalls.push_back("crash"); }
};

// One-shot requests in turn, each with the answer that it must have.
struct Exchange {
    const char* command;
    const char* path;
    const char* body;
    const char* answer;
};
inline void expectAnswers(Stage& stage, hmxsim::Service& service, std::initializer_list<Exchange> exchanges) {
    for (const auto& [command, path, body, answer] : exchanges) {
        EXPECT_EQ(stage.ask(service, command, path, body), answer) << command << ' ' << path << ' ' << body;
    }
}

}  // namespace hmxsim_tests
