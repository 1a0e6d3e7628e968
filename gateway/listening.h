// Where the gateway listens, and the token that it then demands.
#pragma once

#include <stdexcept>
#include <string>

#include "event_loop.h"

namespace hmxgateway {

// Ends the program: what was tried and how it ended. Thread: any (a value).
class StartFailure : public std::runtime_error {
public:
    StartFailure(int exitCode, const std::string& what) : std::runtime_error{what}, exitCode_{exitCode} {}
    int exitCode() const noexcept { return exitCode_; }

private:
    int exitCode_;
};

// A resource: the socket, and the file of a Unix socket. Thread: any.
class Listening {
public:
    // `address`: "HOST:PORT" with a numeric address, or "unix:PATH". Errors: StartFailure.
    explicit Listening(const std::string& address);
    ~Listening();
    Listening(const Listening&) = delete;
    Listening& operator=(const Listening&) = delete;

    bool isUnix() const noexcept { return !path_.empty(); }
    // Whether only this machine can reach it.
    bool isLocal() const noexcept { return isLocal_; }
    // "http://127.0.0.1:8780/" or "unix:PATH".
    const std::string& url() const noexcept { return url_; }
    // The host of it, as a Host header has it; "" of a Unix socket.
    const std::string& host() const noexcept { return host_; }
    Descriptor takeSocket() noexcept { return std::move(socket_); }

private:
    void listenUnix(const std::string& address);
    void listenTcp(const std::string& address);

    Descriptor socket_;
    std::string path_;
    bool isLocal_ = true;
    std::string url_;
    std::string host_;
};

// The first line of the file. Errors: StartFailure: it cannot be read, others may read it, or its token is too short.
[[nodiscard]] std::string readToken(const std::string& file);

}  // namespace hmxgateway
