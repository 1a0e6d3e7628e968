// The runtime's thread sets values under a lock, and the caller waits for them. A handler shares ownership of its value, so an
// answer that comes after the caller has given up still has a place to go; nobody reads it.
#include "core/blocking_client.h"

#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <utility>

#include "kelo/headers.h"
#include "kelo/std/error_storage.h"
#include "kelo/tracing.h"

namespace kelo {

namespace {

using runtime::IKeloRuntime;
using runtime::KeloServiceTrackerInfo;
using Time = std::chrono::steady_clock::time_point;

// A value that one thread sets and another waits for. Thread: any.
template <class T>
class Awaitable {
public:
    void set(T value) {
        {
            const std::lock_guard lock{mutex_};
            value_ = std::move(value);
        }
        changed_.notify_all();
    }
    // The value; T{} if it has not been set before `end`.
    T waitUntil(Time end) {
        std::unique_lock lock{mutex_};
        changed_.wait_until(lock, end, [&] { return value_ != nullptr; });
        return value_;
    }

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    T value_{};
};

using Answer = Awaitable<std::shared_ptr<Response>>;

// Receives the one answer. Thread: the runtime's.
class AnswerHandler final : public IResponseHandler<Response> {
public:
    explicit AnswerHandler(std::shared_ptr<Answer> answer) : answer_{std::move(answer)} {}

    bool onNext(const Response& response) override {
        answer_->set(std::make_shared<Response>(response));
        return true;
    }
    void onError(const Response& response) override { answer_->set(std::make_shared<Response>(response)); }
    void onCompleted() override { answer_->set(std::make_shared<Response>(std::uint16_t{204})); }
    bool isOneShot() const override { return true; }

private:
    std::shared_ptr<Answer> answer_;
};

}  // namespace

// The service, from when it is first seen. Thread: the runtime's, except `waitUntil`.
class BlockingClient::Connection final : public IKeloRuntime::IKeloServiceTracker, public IKeloRuntime::IKeloServiceResolver {
public:
    Connection(std::string_view servicePath, runtime::RuntimeOptions options)
        : runtime_{runtime::createRuntime(std::move(options))} {
        if (!runtime_->start(0)) {
            failure_ = std::ErrorStorage::takeReason();
            return;
        }
        KeloServiceTrackerInfo info;
        info.servicePath = servicePath;
        runtime_->trackService(servicePath, *this, 0);
        runtime_->openResolver(info, *this);
    }
    ~Connection() override { runtime_->stop(); }

    // Why the domain cannot be used; "" if it can.
    const std::string& failure() const noexcept { return failure_; }
    // The API; null if the service is away until `end`.
    IKeloApi* waitUntil(Time end) { return api_.waitUntil(end); }

private:
    void added(const KeloServiceTrackerInfo& /*info*/) override {}
    void modified(const KeloServiceTrackerInfo& /*info*/) override {}
    void removed() override {}
    void resolved(std::uint64_t /*handle*/, IKeloApi* api) override { api_.set(api); }
    void gone() override { api_.set(nullptr); }

    Awaitable<IKeloApi*> api_;
    std::string failure_;
    std::unique_ptr<IKeloRuntime> runtime_;  // last, so that it stops before what its callbacks use is destroyed
};

BlockingClient::BlockingClient(std::string_view servicePath, std::chrono::milliseconds patience, runtime::RuntimeOptions options)
    : servicePath_{servicePath},
      patience_{patience},
      connection_{std::make_unique<Connection>(servicePath, std::move(options))} {}

BlockingClient::~BlockingClient() = default;

Response BlockingClient::request(Request request) {
    if (!connection_->failure().empty()) return Response::createErrorResponse(503, connection_->failure());
    const Time end = std::chrono::steady_clock::now() + patience_;
    IKeloApi* api = connection_->waitUntil(end);
    if (api == nullptr) return Response::createErrorResponse(503, "no service " + servicePath_ + " was found in time");

    request.setOneShot(true);
    headers::appendTracingInfo(request, servicePath_, tracing::getTraceClientId());
    headers::appendAuthInfo(request);
    const auto answer = std::make_shared<Answer>();
    // The deadline is kept here.
    void* handle = api->request(request, std::make_unique<AnswerHandler>(answer), {.deadline = std::chrono::milliseconds{0}});
    if (const auto response = answer->waitUntil(end)) return *response;
    api->cancel(handle);
    return Response::createErrorResponse(504, servicePath_ + " gave no answer in time");
}

Response BlockingClient::decoded(std::string_view path, Response response, ResultView result) const {
    const bool isSuccess = response.status() >= 200 && response.status() < 300;
    if (!isSuccess || !decodeResponse(response, result, {"retrieve", path, "the answer"}, servicePath_)) return response;
    return Response::createErrorResponse(500, std::ErrorStorage::takeReason());
}

}  // namespace kelo
