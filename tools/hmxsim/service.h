// One simulated service: takes requests in, keeps the open ones, and sends what its manager answers.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "comm/active_object.h"
#include "faults.h"
#include "kelo/resource_handler.h"
#include "request_log.h"
#include "routes.h"
#include "timers.h"

namespace hmxsim {

// What a service cannot do to itself.
class Host {
public:
    virtual ~Host() = default;
    // Takes the service away and publishes it again after the pause. Thread: the worker.
    virtual void close(std::string_view service, std::chrono::milliseconds reopenAfter) = 0;
    // Ends the process at once.
    virtual void crash() = 0;
};

// What services share; outlives them.
struct Surroundings {
    comm::ActiveObject& worker;
    Timers& timers;
    Host& host;
    RequestLog& log;
};

// Thread: the runtime's for what IResourceHandler declares; the worker for all else.
class Service final : public kelo::IResourceHandler {
public:
    enum class Watching : std::uint8_t { none, retrieves };

    // `name`: how faults and the log call the service. `watching`: whether a retrieve that is not one-shot stays open and gets
    // every change of its answer.
    Service(std::string_view name, Manager& manager, Surroundings& surroundings, Watching watching);

    void* actionRequest(const kelo::Request& request, std::unique_ptr<kelo::IResponder> responder,
                        const std::string& tag) override;
    void cancelRequest(void* handle) override;

    std::string_view name() const noexcept { return name_; }
    // Sends every open retrieve whose answer has changed the new one.
    void refresh();
    // The service was taken away: forgets the open requests.
    void closed();
    Faults& faults() noexcept { return faults_; }
    // Requests that were to change something, whatever became of them.
    std::uint64_t changes() const noexcept { return changes_; }

private:
    using Number = std::uintptr_t;

    // Open retrieves that ask the same get the same.
    struct View {
        kelo::Request request;
        kelo::Response last;
        std::vector<Number> watchers;
    };
    struct Open {
        std::unique_ptr<kelo::IResponder> responder;
        Timers::Time notBefore{};  // answers keep their order though they are delayed
        std::string view;          // of a watcher
    };
    enum class Ending : bool { staysOpen, ends };

    void begin(Number number, const kelo::Request& request, std::unique_ptr<kelo::IResponder> responder);
    void watch(Number number, const kelo::Request& request, const kelo::Response& answer);
    void send(Number number, const kelo::Response& answer, Ending ending);
    void deliver(Number number, kelo::Response answer, Ending ending, const Fault& fault);
    void finish(Number number);

    const std::string_view name_;
    Manager& manager_;
    Surroundings& surroundings_;
    const Watching watching_;
    Faults faults_;
    std::atomic<Number> numbers_{0};
    std::uint64_t changes_ = 0;
    std::unordered_map<Number, Open> open_;
    std::unordered_map<std::string, View> views_;
};

}  // namespace hmxsim
