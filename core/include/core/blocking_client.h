// A client that waits for the answers to its requests, for programs that have nothing else to do meanwhile.
#pragma once

#include <chrono>
#include <memory>
#include <string>
#include <string_view>

#include "core/client_stub.h"
#include "kelo/runtime/kelo_runtime.h"

namespace kelo {

// Thread: any, one at a time; never one of a runtime's own threads.
class BlockingClient {
public:
    // `options`: the domain. `patience`: for each request, the time from the call to the answer, including the wait for a service
    // that is not there.
    explicit BlockingClient(std::string_view servicePath, std::chrono::milliseconds patience = std::chrono::seconds{5},
                            runtime::RuntimeOptions options = {});
    ~BlockingClient();
    BlockingClient(const BlockingClient&) = delete;
    BlockingClient& operator=(const BlockingClient&) = delete;

    // Returns the first answer, which owns its payload. If there is none, the status says why, with a reason as text: 503 if the
    // service could not be reached or was lost, 504 if it did not answer in time, 204 if it ended the request without an answer.
    Response request(Request request);

    // Reads the answer's document into `result`; 500, with the reason, if the document is of another type.
    template <class Result>
    Response retrieve(std::string_view path, Result& result) {
        return decoded(path, request(Request{"retrieve", path}), ResultView::of(result));
    }

private:
    class Connection;
    Response decoded(std::string_view path, Response response, ResultView result) const;

    std::string servicePath_;
    std::chrono::milliseconds patience_;
    std::unique_ptr<Connection> connection_;
};

}  // namespace kelo
