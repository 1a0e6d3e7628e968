// Requests to one service that wait for their answers: for programs that have nothing else to do meanwhile.
#pragma once

#include <chrono>
#include <memory>
#include <string>
#include <string_view>

#include "core/client_stub.h"
#include "kelo/runtime/kelo_runtime.h"

namespace kelo {

// Thread: any, one at a time; never one of a runtime's own.
class BlockingClient {
public:
    // `options` choose the domain. `patience`: of each request, from the call to the answer; a service that is not there is
    // waited for as long.
    explicit BlockingClient(std::string_view servicePath, std::chrono::milliseconds patience = std::chrono::seconds{5},
                            runtime::RuntimeOptions options = {});
    ~BlockingClient();
    BlockingClient(const BlockingClient&) = delete;
    BlockingClient& operator=(const BlockingClient&) = delete;

    // The first answer, which owns its payload. Where there is none, a status says why, with the reason as text: 503 for a
    // service that is not to be had or was lost, 504 for one that stayed silent, 204 for one that ended the request without an
    // answer.
    Response request(Request request);

    // Fills `result` with the answer's document; 500 with the reason where that is of another type.
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
