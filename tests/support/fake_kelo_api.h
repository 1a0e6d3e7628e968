// An upstream service that only records requests; the test answers for it.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "kelo/kelo_api.h"

namespace support {

// Thread: one at a time.
class FakeKeloApi final : public kelo::IKeloApi {
public:
    struct Sent {
        kelo::Request request;
        void* handle;
        std::unique_ptr<kelo::IResponseHandler<kelo::Response>> handler;  // null once the request is over
        std::chrono::milliseconds deadline;
    };

    void* request(const kelo::Request& request, std::unique_ptr<kelo::IResponseHandler<kelo::Response>>&& handler,
                  kelo::RequestLimits limits = {}) override {
        if (refuseWith != 0) {
            const auto refused = std::move(handler);
            refused->onError(kelo::Response::createErrorResponse(refuseWith, "service gone, not sent"));
            return UNDEFINED_REQUEST_HANDLE;
        }
        sent.push_back({request, reinterpret_cast<void*>(++lastHandle_), std::move(handler), limits.deadline});
        return sent.back().handle;
    }
    void cancel(void* handle) override {
        cancelled.push_back(handle);
        for (auto& entry : sent) {
            if (entry.handle == handle) const auto dropped = std::move(entry.handler);
        }
    }

    // Each sends an event to the request at `index`, in the order of sending. A request that is over gets nothing.
    bool next(std::size_t index, std::string_view body, std::string_view mimeType = "application/json") {
        return next(index, kelo::Response{200, kelo::Payload::copyOf(body, kelo::MimeType{mimeType})});
    }
    bool next(std::size_t index, const kelo::Response& response) {
        auto handler = std::move(sent.at(index).handler);  // so that a cancel from inside the event does not find it
        if (!handler) return true;
        const std::size_t cancellations = cancelled.size();
        const bool finished = handler->onNext(response);
        for (std::size_t i = cancellations; i < cancelled.size(); ++i) {
            if (cancelled[i] == sent.at(index).handle) return true;
        }
        if (!finished) sent.at(index).handler = std::move(handler);
        return finished;
    }
    void error(std::size_t index, std::uint16_t status, std::string_view reason) {
        const auto handler = std::move(sent.at(index).handler);
        if (handler) handler->onError(kelo::Response::createErrorResponse(status, reason));
    }
    void completed(std::size_t index) {
        const auto handler = std::move(sent.at(index).handler);
        if (handler) handler->onCompleted();
    }
    [[nodiscard]] std::size_t open() const {
        std::size_t count = 0;
        for (const auto& entry : sent) count += entry.handler != nullptr ? 1 : 0;
        return count;
    }

    std::vector<Sent> sent;
    std::vector<void*> cancelled;
    std::uint16_t refuseWith = 0;  // the status with which new requests are refused before they are sent; 0: not refused

private:
    std::uintptr_t lastHandle_ = 0;
};

}  // namespace support
