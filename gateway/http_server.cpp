// libmicrohttpd speaks HTTP; this file is all that knows it. It runs on the gateway's loop: its own epoll descriptor lies in the
// loop's, and `turn` lets it do what is possible. A request whose answer has not come is suspended, as is a stream that has
// nothing to say; resuming it takes effect with the next turn.
//
// A suspended connection is not read, so that a client that hangs up would not be noticed. Of streams, which stay suspended for
// long, the loop watches the sockets itself.
//
// Every connection has at most one deadline: to have sent the headers or the body, or to have read what was sent, whichever it is
// about. A deadline is met by the whole, not by each byte, so that sending slowly wins nothing. Connections whose time is up are
// found by one timer, which is set for the first of them and never earlier than needed. They are told why, if nothing has been
// sent that this would be part of, and shut down; libmicrohttpd then takes them off.
//
// When there are too many connections, the one goes that has waited longest for its request.

#include "http_server.h"

#include <microhttpd.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cstdarg>
#include <cstring>
#include <stdexcept>

#include "gateway_limits.h"
#include "problem.h"

namespace hmxgateway {

// One client. Thread: the gateway's.
struct Connection {
    int descriptor = -1;
    bool isForeignUser = false;
    bool isCut = false;
    bool hasAsked = false;  // it has had a request
    Exchange* exchange = nullptr;
    EventLoop::Clock::time_point since;  // it waits for a request
    std::optional<EventLoop::Clock::time_point> deadline{};
    Refusal lateness = Refusal::slowHeaders;
    std::list<Connection>::iterator self{};
};

// What libmicrohttpd calls.
struct Glue {
    static void* requestLine(void* cls, const char* target, MHD_Connection* request) {
        auto& server = *static_cast<HttpServer*>(cls);
        const MHD_ConnectionInfo* info = MHD_get_connection_info(request, MHD_CONNECTION_INFO_SOCKET_CONTEXT);
        if (info == nullptr || info->socket_context == nullptr) return nullptr;
        return new Exchange{server, *static_cast<Connection*>(info->socket_context), request, target};
    }

    static MHD_Result access(void* /*cls*/, MHD_Connection* /*request*/, const char* /*url*/, const char* method,
                             const char* /*version*/, const char* data, std::size_t* size, void** context) {
        if (*context == nullptr) return MHD_NO;
        return static_cast<Exchange*>(*context)->proceed(method, data, *size) != 0 ? MHD_YES : MHD_NO;
    }

    static void completed(void* /*cls*/, MHD_Connection* /*request*/, void** context, MHD_RequestTerminationCode /*why*/) {
        delete static_cast<Exchange*>(std::exchange(*context, nullptr));
    }

    static void connection(void* cls, MHD_Connection* connection, void** context, MHD_ConnectionNotificationCode what) {
        auto& server = *static_cast<HttpServer*>(cls);
        if (what == MHD_CONNECTION_NOTIFY_STARTED) {
            const MHD_ConnectionInfo* info = MHD_get_connection_info(connection, MHD_CONNECTION_INFO_CONNECTION_FD);
            *context = server.opened(info->connect_fd);
        } else if (*context != nullptr) {
            server.closed(*static_cast<Connection*>(std::exchange(*context, nullptr)));
        }
    }

    static ssize_t readStream(void* cls, std::uint64_t /*position*/, char* out, std::size_t room) {
        return static_cast<Exchange*>(cls)->readStream(out, room);
    }

    // What it refuses by itself, it tells only here.
    [[gnu::format(printf, 2, 0)]] static void log(void* cls, const char* format, va_list values) {
        static constexpr std::string_view refused{"Error processing request (HTTP response code is %u"};
        if (!std::string_view{format}.starts_with(refused)) return;
        const unsigned status = va_arg(values, unsigned);
        static_cast<HttpServer*>(cls)->handler_.refused(Refusal::syntax, static_cast<int>(status));
    }

    static std::size_t keepEncoded(void* /*cls*/, MHD_Connection* /*request*/, char* text) { return std::strlen(text); }

    static MHD_Result copyHeader(void* cls, MHD_ValueKind /*kind*/, const char* name, const char* value) {
        return MHD_add_response_header(static_cast<MHD_Response*>(cls), name, value);
    }
};

// --- Answer ------------------------------------------------------------------------------------------------------------------

Answer::Answer(int status, std::string body, std::string_view contentType) : status_{status} {
    auto* kept = new std::string{std::move(body)};
    MHD_Response* response = MHD_create_response_from_buffer_with_free_callback_cls(
        kept->size(), kept->data(), [](void* text) { delete static_cast<std::string*>(text); }, kept);
    if (response == nullptr) {
        delete kept;
        throw std::bad_alloc{};
    }
    response_.reset(response, MHD_destroy_response);
    if (contentType.empty()) return;
    // Browsers take it for what it is said to be, and show it to no foreign page.
    with("Content-Type", contentType)
        .with("X-Content-Type-Options", "nosniff")
        .with("Cross-Origin-Resource-Policy", "same-origin");
}

Answer& Answer::with(std::string_view name, std::string_view value) {
    // Refused for what would begin another header; nothing that comes from outside is given without a check.
    (void)MHD_add_response_header(response_.get(), std::string{name}.c_str(), std::string{value}.c_str());
    return *this;
}

// --- Exchange ----------------------------------------------------------------------------------------------------------------

Exchange::Exchange(HttpServer& server, Connection& connection, MHD_Connection* request, std::string_view target)
    : server_{server}, connection_{connection}, request_{request}, target_{target} {
    connection_.exchange = this;
}

Exchange::~Exchange() {
    if (stream_) server_.loop_.forget(connection_.descriptor);
    server_.bodyBytes_ -= body_.size();
    connection_.exchange = nullptr;
    connection_.hasAsked = true;
    connection_.since = HttpServer::Clock::now();
    server_.setDeadline(connection_, limits.keepAlive);
    connection_.lateness = Refusal::slowHeaders;
    if (stage_ != Stage::headers) server_.handler_.ended(*this);
}

std::string_view Exchange::header(const char* name) const {
    const char* value = MHD_lookup_connection_value(request_, MHD_HEADER_KIND, name);
    return value == nullptr ? std::string_view{} : std::string_view{value};
}

std::size_t Exchange::countHeader(const char* name) const {
    struct Count {
        const char* name;
        std::size_t found = 0;
    } count{name};
    const auto visit = [](void* cls, MHD_ValueKind, const char* key, const char*) {
        auto& each = *static_cast<Count*>(cls);
        if (::strcasecmp(key, each.name) == 0) ++each.found;
        return MHD_YES;
    };
    (void)MHD_get_connection_values(request_, MHD_HEADER_KIND, visit, &count);
    return count.found;
}

bool Exchange::isForeignUser() const noexcept {
    return connection_.isForeignUser;
}

// Called for the headers, for each piece of the body, and once more for its end; likewise after each resumption.
int Exchange::proceed(std::string_view method, const char* data, std::size_t& size) {
    if (stage_ == Stage::headers) return begin(method);
    if (size > 0) {
        receive({data, size});
        size = 0;
        return MHD_YES;
    }
    if (stage_ == Stage::body) {
        stage_ = Stage::complete;
        server_.setDeadline(connection_, {});
        if (!answer_) server_.handler_.complete(*this);
    }
    if (answer_) return queue();
    isSuspended_ = true;
    MHD_suspend_connection(request_);
    return MHD_YES;
}

int Exchange::begin(std::string_view method) {
    method_ = method;
    stage_ = Stage::body;
    const std::string_view length = header("Content-Length");
    const bool hasBody = (!length.empty() && length != "0") || !header("Transfer-Encoding").empty();
    server_.setDeadline(connection_, hasBody ? std::optional{limits.body} : std::nullopt);
    connection_.lateness = Refusal::slowBody;
    server_.handler_.begin(*this);
    std::size_t bytes = 0;
    (void)std::from_chars(length.data(), length.data() + length.size(), bytes);
    if (bytes > limits.bodyBytes) refuse(Refusal::bodySize);
    if (!answer_) return MHD_YES;
    // A body that is under way is read first, up to 10 MB: closing the connection on it could take the answer from the client.
    constexpr std::size_t most = 10'000'000;
    const bool isUnderWay = hasBody && bytes < most && header("Expect").empty();
    return isUnderWay ? MHD_YES : queue();
}

void Exchange::receive(std::string_view data) {
    if (connection_.isCut) return;
    if (answer_) {
        if (body_.empty()) return;
        server_.bodyBytes_ -= body_.size();
        std::string{}.swap(body_);
        return;
    }
    if (body_.size() + data.size() > limits.bodyBytes) return server_.cut(connection_, Refusal::bodySize);
    if (server_.bodyBytes_ + data.size() > limits.bodiesBytes) return server_.cut(connection_, Refusal::bodies);
    body_.append(data);
    server_.bodyBytes_ += data.size();
}

void Exchange::answer(const Answer& answer) {
    if (answer_) return;
    answer_ = answer;
    resume();
}

void Exchange::refuse(Refusal refusal, std::string_view detail) {
    if (answer_) return;
    server_.handler_.refused(refusal, formOf(refusal).status);
    answer(problem(refusal, detail));
}

void Exchange::resume() {
    if (!isSuspended_) return;
    isSuspended_ = false;
    MHD_resume_connection(request_);
    server_.isReady_ = true;
    server_.setDeadline(connection_, limits.unread);
    connection_.lateness = Refusal::slowReader;
}

int Exchange::queue() {
    stage_ = Stage::queued;
    server_.setDeadline(connection_, limits.unread);
    connection_.lateness = Refusal::slowReader;
    return MHD_queue_response(request_, static_cast<unsigned>(answer_->status_), answer_->response_.get());
}

void Exchange::stream(Answer answer, std::unique_ptr<IStream> stream) {
    constexpr std::size_t block = 256;  // only for clients of HTTP/1.0, which know no chunks
    server_.loop_.watch(connection_.descriptor, EPOLLRDHUP | EPOLLET, [this] { hangUp(); });
    answerWith(std::move(answer), std::move(stream), MHD_SIZE_UNKNOWN, block);
}

void Exchange::send(Answer answer, std::unique_ptr<IStream> stream, std::uint64_t size, std::size_t block) {
    answerWith(std::move(answer), std::move(stream), size, block);
}

void Exchange::answerWith(Answer answer, std::unique_ptr<IStream> stream, std::uint64_t size, std::size_t block) {
    MHD_Response* response = MHD_create_response_from_callback(size, block, Glue::readStream, this, nullptr);
    if (response == nullptr) throw std::bad_alloc{};
    (void)MHD_get_response_headers(answer.response_.get(), Glue::copyHeader, response);
    answer.response_.reset(response, MHD_destroy_response);
    stream_ = std::move(stream);
    this->answer(answer);
}

void Exchange::hangUp() {
    isOver_ = true;
    resume();
}

void Exchange::wake() {
    if (stage_ == Stage::queued) resume();
}

std::ptrdiff_t Exchange::readStream(char* out, std::size_t room) {
    if (isOver_ || stream_->isOver()) return MHD_CONTENT_READER_END_OF_STREAM;
    if (const std::size_t size = stream_->read(out, room); size > 0) {
        server_.setDeadline(connection_, limits.unread);
        return static_cast<std::ptrdiff_t>(size);
    }
    if (stream_->isOver()) return MHD_CONTENT_READER_END_WITH_ERROR;  // it had more to come
    server_.setDeadline(connection_, {});
    isSuspended_ = true;
    MHD_suspend_connection(request_);
    return 0;
}

// --- HttpServer --------------------------------------------------------------------------------------------------------------

HttpServer::HttpServer(EventLoop& loop, IHttpHandler& handler, Descriptor listening)
    : loop_{loop}, handler_{handler}, sweep_{loop, [this] { sweep(); }} {
    int domain = 0;
    socklen_t size = sizeof domain;
    (void)::getsockopt(listening.get(), SOL_SOCKET, SO_DOMAIN, &domain, &size);
    isLocal_ = domain == AF_UNIX;
    // A little more than we let in, so that it is we who choose who goes.
    constexpr unsigned spare = 64;
    daemon_ = MHD_start_daemon(MHD_USE_EPOLL | MHD_ALLOW_SUSPEND_RESUME | MHD_USE_ERROR_LOG, 0, nullptr, nullptr, Glue::access,
                               this, MHD_OPTION_EXTERNAL_LOGGER, Glue::log, this,                       //
                               MHD_OPTION_LISTEN_SOCKET, listening.get(),                               //
                               MHD_OPTION_CONNECTION_LIMIT, limits.connections + spare,                 //
                               MHD_OPTION_CONNECTION_MEMORY_LIMIT, limits.connectionBytes,              //
                               MHD_OPTION_CONNECTION_MEMORY_INCREMENT, static_cast<std::size_t>(1024),  //
                               MHD_OPTION_URI_LOG_CALLBACK, Glue::requestLine, this,                    //
                               MHD_OPTION_UNESCAPE_CALLBACK, Glue::keepEncoded, this,                   //
                               MHD_OPTION_NOTIFY_COMPLETED, Glue::completed, this,                      //
                               MHD_OPTION_NOTIFY_CONNECTION, Glue::connection, this,                    //
                               MHD_OPTION_SIGPIPE_HANDLED_BY_APP, 1,                                    //
                               MHD_OPTION_END);
    if (daemon_ == nullptr) throw std::runtime_error{std::string{"cannot start the HTTP server: "} + std::strerror(errno)};
    (void)listening.release();  // the daemon closes it
    const MHD_DaemonInfo* info = MHD_get_daemon_info(daemon_, MHD_DAEMON_INFO_EPOLL_FD);
    loop_.watch(info->epoll_fd, EPOLLIN, [this] { isReady_ = true; });
}

HttpServer::~HttpServer() {
    const MHD_DaemonInfo* info = MHD_get_daemon_info(daemon_, MHD_DAEMON_INFO_EPOLL_FD);
    loop_.forget(info->epoll_fd);
    // What is suspended cannot be stopped.
    for (Connection& connection : connections_) {
        if (connection.exchange == nullptr) continue;
        connection.exchange->isOver_ = true;
        if (!connection.exchange->answer_) connection.exchange->answer(problem(503, "the gateway ends, outcome unknown"));
        connection.exchange->resume();
    }
    (void)MHD_run(daemon_);
    MHD_stop_daemon(daemon_);
}

void HttpServer::turn() {
    if (!isReady_) return;
    isReady_ = false;
    (void)MHD_run(daemon_);
    MHD_UNSIGNED_LONG_LONG milliseconds = 0;
    if (MHD_get_timeout(daemon_, &milliseconds) == MHD_YES && milliseconds == 0) isReady_ = true;
}

void* HttpServer::opened(int descriptor) {
    if (connections_.size() >= limits.connections) makeRoom();
    Connection& connection = connections_.emplace_back();
    connection.self = std::prev(connections_.end());
    connection.descriptor = descriptor;
    connection.since = Clock::now();
    setDeadline(connection, limits.headers);
    if (isLocal_) {
        ucred peer{};
        socklen_t size = sizeof peer;
        const bool isKnown = ::getsockopt(descriptor, SOL_SOCKET, SO_PEERCRED, &peer, &size) == 0;
        connection.isForeignUser = !isKnown || (peer.uid != ::geteuid() && peer.uid != 0);
    }
    return &connection;
}

void HttpServer::closed(Connection& connection) {
    connections_.erase(connection.self);
}

void HttpServer::setDeadline(Connection& connection, std::optional<std::chrono::seconds> fromNow) {
    connection.deadline.reset();
    if (!fromNow) return;
    connection.deadline = Clock::now() + *fromNow;
    if (!sweep_.at() || *connection.deadline < *sweep_.at()) sweep_.set(connection.deadline);
}

void HttpServer::sweep() {
    const Clock::time_point now = Clock::now();
    std::optional<Clock::time_point> next;
    for (Connection& connection : connections_) {
        if (connection.deadline && *connection.deadline <= now) cut(connection, connection.lateness);
        if (connection.deadline && (!next || *connection.deadline < *next)) next = connection.deadline;
    }
    sweep_.set(next);
}

void HttpServer::cut(Connection& connection, Refusal refusal) {
    if (connection.isCut) return;
    connection.isCut = true;
    connection.deadline.reset();
    const bool isIdle = refusal == Refusal::slowHeaders && connection.hasAsked && connection.exchange == nullptr;
    const RefusalForm& form = formOf(refusal);
    if (form.status != 0 && !isIdle) {
        const std::string body = problemDocument(form.status, form.reason);
        const std::string head = "HTTP/1.1 " + std::to_string(form.status) + " " + std::string{titleOf(form.status)} +
                                 "\r\nContent-Type: " + std::string{problemType} +
                                 "\r\nContent-Length: " + std::to_string(body.size()) + "\r\nConnection: close\r\n\r\n";
        (void)::send(connection.descriptor, (head + body).data(), head.size() + body.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
    }
    (void)::shutdown(connection.descriptor, SHUT_RDWR);
    if (!isIdle) handler_.refused(refusal, form.status);
}

void HttpServer::makeRoom() {
    Connection* longest = nullptr;
    for (Connection& connection : connections_) {
        if (connection.isCut || connection.exchange != nullptr) continue;
        if (longest == nullptr || connection.since < longest->since) longest = &connection;
    }
    if (longest != nullptr) cut(*longest, Refusal::connections);
}

}  // namespace hmxgateway
