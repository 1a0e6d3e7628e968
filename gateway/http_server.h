// HTTP/1.1 on one listening socket: connections, requests and answers, on the gateway's loop.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <list>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "event_loop.h"
#include "refusal.h"

struct MHD_Connection;
struct MHD_Daemon;
struct MHD_Response;

namespace hmxgateway {

class HttpServer;
struct Connection;

// An answer, which may be given to several requests. A value. Thread: the gateway's.
class Answer {
public:
    Answer(int status, std::string body, std::string_view contentType);
    // Without a body.
    explicit Answer(int status) : Answer{status, {}, {}} {}

    // Only before it is given.
    Answer& with(std::string_view name, std::string_view value);
    int status() const noexcept { return status_; }

private:
    friend class Exchange;
    int status_;
    std::shared_ptr<MHD_Response> response_;
};

// The body of an answer that comes bit by bit. Thread: the gateway's.
class IStream {
public:
    virtual ~IStream() = default;
    // Copies what comes next; 0 when there is nothing now.
    virtual std::size_t read(char* out, std::size_t room) = 0;
    virtual bool isOver() const = 0;
};

// One request and its answer: from the request line until the answer is sent, or the connection ends. Thread: the gateway's.
class Exchange {
public:
    ~Exchange();
    Exchange(const Exchange&) = delete;
    Exchange& operator=(const Exchange&) = delete;

    std::string_view method() const noexcept { return method_; }
    std::string_view target() const noexcept { return target_; }
    // "" when absent.
    std::string_view header(const char* name) const;
    // How often it stands there.
    std::size_t countHeader(const char* name) const;
    const std::string& body() const noexcept { return body_; }
    bool isForeignUser() const noexcept;

    // Ends the request, now or later. Only the first answer counts.
    void answer(const Answer& answer);
    // The same with the refusal's own answer, which is counted. `detail`: beyond its reason, or "".
    void refuse(Refusal refusal, std::string_view detail = {});
    // Answers with what the stream brings. `answer` has status and headers only.
    void stream(Answer answer, std::unique_ptr<IStream> stream);
    // The same for a body whose size is known, which comes in blocks of this size without a pause.
    void send(Answer answer, std::unique_ptr<IStream> stream, std::uint64_t size, std::size_t block);
    // That the stream has something to be read, or is over.
    void wake();
    bool isAnswered() const noexcept { return answer_.has_value(); }
    int status() const noexcept { return answer_ ? answer_->status() : 0; }

    // The handler's own: what the request is about, for the metrics, and the foreign origin that may see the answer.
    std::string_view subject = "other";
    std::shared_ptr<const void> plan;  // what the handler has made of it
    std::string_view allowedOrigin;

private:
    friend HttpServer;
    friend struct Glue;

    Exchange(HttpServer& server, Connection& connection, MHD_Connection* request, std::string_view target);
    int proceed(std::string_view method, const char* data, std::size_t& size);
    int begin(std::string_view method);
    void receive(std::string_view data);
    void resume();
    int queue();
    std::ptrdiff_t readStream(char* out, std::size_t room);
    void answerWith(Answer answer, std::unique_ptr<IStream> stream, std::uint64_t size, std::size_t block);
    void hangUp();

    HttpServer& server_;
    Connection& connection_;
    MHD_Connection* request_;
    std::string target_;
    std::string method_;
    std::string body_;
    std::optional<Answer> answer_;
    std::unique_ptr<IStream> stream_;
    enum class Stage : std::uint8_t { headers, body, complete, queued } stage_ = Stage::headers;
    bool isSuspended_ = false;
    bool isOver_ = false;  // a stream whose client has gone, or whose server ends
};

// What the server's owner does with requests. Thread: the gateway's.
class IHttpHandler {
public:
    virtual ~IHttpHandler() = default;
    // The headers are there. An answer given now is the request's, whatever its body.
    virtual void begin(Exchange& exchange) = 0;
    // The whole request is there. It stays until it has been answered.
    virtual void complete(Exchange& exchange) = 0;
    // The request is over, answered or not.
    virtual void ended(Exchange& exchange) = 0;
    // What the server itself has refused.
    virtual void refused(Refusal refusal, int status) = 0;
};

// A resource. Thread: the gateway's.
class HttpServer {
public:
    // `listening`: a socket that listens. Loop and handler outlive it. Errors: std::runtime_error.
    HttpServer(EventLoop& loop, IHttpHandler& handler, Descriptor listening);
    ~HttpServer();
    HttpServer(const HttpServer&) = delete;
    HttpServer& operator=(const HttpServer&) = delete;

    // Does what has become possible since the last call, such as sending answers.
    void turn();
    bool isReady() const noexcept { return isReady_; }
    std::size_t connections() const noexcept { return connections_.size(); }

private:
    friend Exchange;
    friend struct Glue;
    using Clock = EventLoop::Clock;

    void* opened(int descriptor);
    void closed(Connection& connection);
    void setDeadline(Connection& connection, std::optional<std::chrono::seconds> fromNow);
    void sweep();
    void cut(Connection& connection, Refusal refusal);
    void makeRoom();

    EventLoop& loop_;
    IHttpHandler& handler_;
    MHD_Daemon* daemon_ = nullptr;
    bool isReady_ = false;
    bool isLocal_ = false;  // on a Unix socket
    std::size_t bodyBytes_ = 0;
    std::list<Connection> connections_;
    Timer sweep_;
};

}  // namespace hmxgateway
