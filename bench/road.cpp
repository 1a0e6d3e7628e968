// The peers of the road's measures, and its floor. Three programs in one:
//
//     road upstream DIR SERVICE...     answers every request on these services at once, with a fixed list of four displays
//     road relay DIR LISTEN UPSTREAM   the floor: forwards requests and answers between two services, bytes copied, nothing
//     decoded road client DIR SERVICE COUNT INFLIGHT CONNECTIONS WARMUP MIME
//                                      retrieves /displays COUNT times and prints what it measured as one JSON object
//
// They speak the wire by hand, with blocking sockets, so that they cost little, cost the same whatever stands between them, and
// measure only that. The relay has the bridge's hand-overs: its I/O thread reads, a worker writes; an answer comes back the same
// way. What it saves is everything else: frames are forwarded as they are, and each answer is padded to the size of the page that
// the bridge makes of it.

#include <poll.h>
#include <pthread.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

namespace {

using Bytes = std::vector<std::uint8_t>;
using Clock = std::chrono::steady_clock;

constexpr std::size_t headerSize = 16;
constexpr std::size_t pageSize = 1060;  // of the bridge's answer to the list below

[[noreturn]] void fail(const std::string& what) {
    std::fprintf(stderr, "road: %s: %s\n", what.c_str(), std::strerror(errno));
    std::exit(1);
}

std::uint64_t number(const std::uint8_t* at, std::size_t size) {
    std::uint64_t value = 0;
    for (std::size_t i = 0; i < size; ++i) value |= std::uint64_t{at[i]} << (8 * i);
    return value;
}

void appendNumber(Bytes& out, std::uint64_t value, std::size_t size) {
    for (std::size_t i = 0; i < size; ++i) out.push_back(static_cast<std::uint8_t>(value >> (8 * i)));
}

void appendHead(Bytes& out, unsigned major, std::size_t value) {
    const unsigned type = major << 5U;
    if (value < 24) {
        out.push_back(static_cast<std::uint8_t>(type | value));
    } else if (value < 256) {
        out.insert(out.end(), {static_cast<std::uint8_t>(type | 24U), static_cast<std::uint8_t>(value)});
    } else {
        out.insert(out.end(), {static_cast<std::uint8_t>(type | 25U), static_cast<std::uint8_t>(value >> 8U),
                               static_cast<std::uint8_t>(value)});
    }
}

void appendText(Bytes& out, std::string_view text) {
    appendHead(out, 3, text.size());
    out.insert(out.end(), text.begin(), text.end());
}

Bytes makeFrame(std::uint8_t type, std::uint8_t flags, std::uint64_t id, const Bytes& body) {
    Bytes frame;
    frame.reserve(headerSize + body.size());
    appendNumber(frame, body.size(), 4);
    for (const std::uint8_t byte : {type, flags, std::uint8_t{0}, std::uint8_t{0}}) frame.push_back(byte);
    appendNumber(frame, id, 8);
    frame.insert(frame.end(), body.begin(), body.end());
    return frame;
}

Bytes makeHello(std::string_view servicePath, std::string_view mimeTypes) {
    Bytes body;
    appendHead(body, 5, 3);
    appendText(body, "$version");
    appendHead(body, 0, 1);
    appendText(body, "$application");
    appendText(body, "road");
    appendText(body, mimeTypes.empty() ? "$service-path" : "$mime-types");
    appendText(body, mimeTypes.empty() ? servicePath : mimeTypes);
    return makeFrame(1, 0, 0, body);
}

Bytes makeRequest(std::uint64_t id, std::string_view mimeType) {
    Bytes body;
    appendHead(body, 5, 4);
    for (const auto& [key, value] : {std::pair<std::string_view, std::string_view>{"$request-command", "retrieve"},
                                     {"$request-path", "/displays"},
                                     {"$client-id", "road-1"},
                                     {"$mime-type", mimeType}}) {
        appendText(body, key);
        appendText(body, value);
    }
    return makeFrame(2, 1, id, body);
}

// What a display manager answers: four displays, about 700 bytes.
std::string displayList() {
    std::string list = R"({"infoForAllDisplays":[)";
    const char* const names[] = {"Driver_Display", "Co_Driver_Display", "Cluster_Display", "Lower_Display"};
    for (int i = 0; i < 4; ++i) {
        if (i > 0) list += ',';
        list += R"({"id":)" + std::to_string(i + 1) + R"(,"internalid":)" + std::to_string(i + 100) + R"(,"name":")" + names[i] +
                R"(","touchSupport":true,"terminal":)" + std::to_string(i) +
                R"(,"compositing":true,"resolution":{"width":1920,"height":720},"updateRate":60,"connector":"DP-)" +
                std::to_string(i + 1) + "\"}";
    }
    return list + "]}";
}

Bytes makeAnswer(std::uint64_t id, std::string_view payload) {
    Bytes body;
    appendHead(body, 5, 2);
    appendText(body, "$status");
    appendHead(body, 0, 200);
    appendText(body, "$mime-type");
    appendText(body, "application/json");
    body.insert(body.end(), payload.begin(), payload.end());
    return makeFrame(3, 2, id, body);
}

std::string socketPath(const std::string& directory, std::string_view service) {
    std::string name = directory + "/";
    for (const char c : service) name += c == '/' ? "%2F" : std::string{c};
    return name + ".sock";
}

sockaddr_un addressOf(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path) fail(path);
    std::memcpy(address.sun_path, path.c_str(), path.size());
    return address;
}

int listenAt(const std::string& path) {
    const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const std::string hidden = path + ".new";
    ::unlink(hidden.c_str());
    const sockaddr_un address = addressOf(hidden);
    if (::bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 || ::listen(fd, 64) != 0) fail(hidden);
    if (::rename(hidden.c_str(), path.c_str()) != 0) fail(path);
    return fd;
}

int connectTo(const std::string& path) {
    for (int attempt = 0; attempt < 1000; ++attempt) {
        const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        const sockaddr_un address = addressOf(path);
        if (::connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) return fd;
        ::close(fd);
        std::this_thread::sleep_for(std::chrono::milliseconds{10});
    }
    fail(path);
}

bool sendAll(int fd, const Bytes& bytes) {
    return ::send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(bytes.size());
}

// Collects what a socket says and hands out whole frames.
class FrameReader {
public:
    // Receives once; false at the end.
    bool receive(int fd) {
        if (buffer_.size() - kept_ < chunk) buffer_.resize(kept_ + chunk);
        const auto size = ::recv(fd, buffer_.data() + kept_, buffer_.size() - kept_, 0);
        if (size > 0) kept_ += static_cast<std::size_t>(size);
        return size > 0;
    }
    template <class Handle>
    void frames(Handle handle) {
        std::size_t used = 0;
        while (kept_ - used >= headerSize) {
            const std::size_t size = headerSize + number(&buffer_[used], 4);
            if (kept_ - used < size) break;
            handle(&buffer_[used], size);
            used += size;
        }
        std::memmove(buffer_.data(), buffer_.data() + used, kept_ - used);
        kept_ -= used;
    }

private:
    static constexpr std::size_t chunk = std::size_t{64} * 1024;

    Bytes buffer_;
    std::size_t kept_ = 0;
};

std::uint64_t idOf(const std::uint8_t* frame) {
    return number(frame + 8, 8);
}

// --- upstream

void serveConnection(int fd) {
    const Bytes hello = makeHello({}, "application/json");
    const std::string list = displayList();
    FrameReader reader;
    while (reader.receive(fd)) {
        Bytes out;
        reader.frames([&](const std::uint8_t* frame, std::size_t) {
            if (frame[4] == 6) return;
            const Bytes answer = frame[4] == 1 ? hello : makeAnswer(idOf(frame), list);
            out.insert(out.end(), answer.begin(), answer.end());
        });
        if (!out.empty() && !sendAll(fd, out)) break;
    }
    ::close(fd);
}

int runUpstream(const std::string& directory, const std::vector<std::string>& services) {
    std::vector<std::thread> threads;
    for (const auto& service : services) {
        threads.emplace_back([listener = listenAt(socketPath(directory, service))] {
            for (;;) {
                const int fd = ::accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
                if (fd < 0) return;
                std::thread{serveConnection, fd}.detach();
            }
        });
    }
    for (auto& thread : threads) thread.join();
    return 0;
}

// --- relay: the floor

// One hand-over to the worker: a frame and the socket that it goes to.
struct Parcel {
    int to;
    Bytes bytes;
};

class Worker {
public:
    Worker() : wake_{::eventfd(0, EFD_CLOEXEC)}, thread_{[this] { run(); }} { thread_.detach(); }

    void post(std::vector<Parcel>& parcels) {
        bool wake = false;
        {
            const std::lock_guard lock{mutex_};
            for (auto& parcel : parcels) queue_.push_back(std::move(parcel));
            wake = std::exchange(sleeping_, false);
        }
        parcels.clear();
        const std::uint64_t one = 1;
        if (wake && ::write(wake_, &one, sizeof one) != sizeof one) fail("eventfd");
    }

private:
    void run() {
        std::vector<Parcel> batch;
        for (;;) {
            {
                const std::lock_guard lock{mutex_};
                batch.swap(queue_);
                sleeping_ = batch.empty();
            }
            if (batch.empty()) {
                std::uint64_t count = 0;
                if (::read(wake_, &count, sizeof count) != sizeof count) fail("eventfd");
                continue;
            }
            // One send a destination.
            for (std::size_t i = 0; i < batch.size(); ++i) {
                if (batch[i].bytes.empty()) continue;
                for (std::size_t j = i + 1; j < batch.size(); ++j) {
                    if (batch[j].to != batch[i].to) continue;
                    batch[i].bytes.insert(batch[i].bytes.end(), batch[j].bytes.begin(), batch[j].bytes.end());
                    batch[j].bytes.clear();
                }
                sendAll(batch[i].to, batch[i].bytes);
            }
            batch.clear();
        }
    }

    const int wake_;
    std::mutex mutex_;
    std::vector<Parcel> queue_;
    bool sleeping_ = false;
    std::thread thread_;
};

int runRelay(const std::string& directory, const std::string& listen, const std::string& upstreamService) {
    const int upstream = connectTo(socketPath(directory, upstreamService));
    sendAll(upstream, makeHello(upstreamService, {}));
    FrameReader upstreamReader;
    for (bool greeted = false; !greeted;) {
        if (!upstreamReader.receive(upstream)) fail("upstream");
        upstreamReader.frames([&](const std::uint8_t*, std::size_t) { greeted = true; });
    }
    const int listener = listenAt(socketPath(directory, listen));
    const int epoll = ::epoll_create1(EPOLL_CLOEXEC);
    const auto watch = [epoll](int fd) {
        epoll_event event{};
        event.events = EPOLLIN;
        event.data.fd = fd;
        ::epoll_ctl(epoll, EPOLL_CTL_ADD, fd, &event);
    };
    watch(listener);
    watch(upstream);
    Worker worker;
    struct Client {
        FrameReader reader;
        bool open = false;
    };
    std::vector<Client> clients;
    // The upstream's id of a request is its client's socket and the client's own id, which is all the book-keeping that a relay
    // needs.
    constexpr unsigned shift = 40;
    std::vector<Parcel> parcels;
    const Bytes hello = makeHello({}, "application/json");
    for (;;) {
        epoll_event events[64];
        const int count = ::epoll_wait(epoll, events, 64, -1);
        for (int i = 0; i < count; ++i) {
            const int fd = events[i].data.fd;
            if (fd == listener) {
                const int client = ::accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
                if (client < 0) continue;
                if (clients.size() <= static_cast<std::size_t>(client)) clients.resize(static_cast<std::size_t>(client) + 1);
                clients[static_cast<std::size_t>(client)] = {{}, true};
                watch(client);
                continue;
            }
            FrameReader& reader = fd == upstream ? upstreamReader : clients[static_cast<std::size_t>(fd)].reader;
            if (!reader.receive(fd)) {
                if (fd == upstream) return 0;
                ::close(fd);
                continue;
            }
            reader.frames([&](const std::uint8_t* frame, std::size_t size) {
                Parcel parcel{upstream, Bytes(frame, frame + size)};
                std::uint64_t id = idOf(frame);
                if (fd == upstream) {
                    parcel.to = static_cast<int>(id >> shift);
                    id &= (std::uint64_t{1} << shift) - 1;
                    parcel.bytes.resize(std::max(size, headerSize + pageSize), ' ');
                    const std::size_t length = parcel.bytes.size() - headerSize;
                    for (std::size_t k = 0; k < 4; ++k) parcel.bytes[k] = static_cast<std::uint8_t>(length >> (8 * k));
                } else if (frame[4] == 1) {
                    parcel = {fd, hello};
                    id = 0;
                } else {
                    id |= static_cast<std::uint64_t>(fd) << shift;
                }
                for (std::size_t k = 0; k < 8; ++k) parcel.bytes[8 + k] = static_cast<std::uint8_t>(id >> (8 * k));
                parcels.push_back(std::move(parcel));
            });
        }
        if (!parcels.empty()) worker.post(parcels);
    }
}

// --- client

struct Load {
    std::size_t count;
    std::size_t inFlight;
    std::size_t warmUp;
    std::string mimeType;
};

// Retrieves; the latencies of all but the warm-up, in nanoseconds.
std::vector<std::int64_t> retrieve(const std::string& path, const std::string& service, const Load& load, std::size_t& bytes) {
    const int fd = connectTo(path);
    sendAll(fd, makeHello(service, {}));
    FrameReader reader;
    for (bool greeted = false; !greeted;) {
        if (!reader.receive(fd)) fail("no hello");
        reader.frames([&](const std::uint8_t*, std::size_t) { greeted = true; });
    }
    Bytes request = makeRequest(1, load.mimeType);
    const std::size_t total = load.count + load.warmUp;
    std::vector<Clock::time_point> sent(total + 1);
    std::vector<std::int64_t> latencies;
    latencies.reserve(load.count);
    std::size_t asked = 0;
    std::size_t answered = 0;
    while (answered < total) {
        Bytes out;
        while (asked < total && asked - answered < load.inFlight) {
            ++asked;
            for (std::size_t k = 0; k < 8; ++k) request[8 + k] = static_cast<std::uint8_t>(asked >> (8 * k));
            out.insert(out.end(), request.begin(), request.end());
            sent[asked] = Clock::now();
        }
        if (!out.empty()) sendAll(fd, out);
        if (!reader.receive(fd)) fail("connection lost");
        const auto now = Clock::now();
        reader.frames([&](const std::uint8_t* frame, std::size_t size) {
            if (frame[4] != 3) {
                std::fprintf(stderr, "road: answered with an error: %.*s\n", static_cast<int>(size - headerSize),
                             frame + headerSize);
                std::exit(1);
            }
            if (++answered > load.warmUp) latencies.push_back((now - sent[idOf(frame)]).count());
            bytes = size - headerSize;
        });
    }
    ::close(fd);
    return latencies;
}

int runClient(const std::string& directory, const std::string& service, const Load& load, std::size_t connections) {
    const std::string path = socketPath(directory, service);
    std::vector<std::vector<std::int64_t>> each(connections);
    std::vector<std::size_t> bytes(connections);
    std::vector<std::thread> threads;
    const auto begin = Clock::now();
    for (std::size_t i = 1; i < connections; ++i)
        threads.emplace_back([&, i] { each[i] = retrieve(path, service, load, bytes[i]); });
    each[0] = retrieve(path, service, load, bytes[0]);
    for (auto& thread : threads) thread.join();
    const double seconds = std::chrono::duration<double>(Clock::now() - begin).count();
    std::vector<std::int64_t> all;
    for (const auto& part : each) all.insert(all.end(), part.begin(), part.end());
    std::sort(all.begin(), all.end());
    const auto at = [&](double share) {
        return static_cast<double>(all[static_cast<std::size_t>(share * static_cast<double>(all.size() - 1))]) / 1000.0;
    };
    std::printf(R"({"p50_us":%.2f,"p99_us":%.2f,"per_second":%.0f,"answer_bytes":%zu,"requests":%zu})"
                "\n",
                at(0.5), at(0.99), static_cast<double>((load.count + load.warmUp) * connections) / seconds, bytes[0], all.size());
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    const std::vector<std::string> arguments(argv + 1, argv + argc);
    if (arguments.size() >= 3 && arguments[0] == "upstream")
        return runUpstream(arguments[1], {arguments.begin() + 2, arguments.end()});
    if (arguments.size() == 4 && arguments[0] == "relay") return runRelay(arguments[1], arguments[2], arguments[3]);
    if (arguments.size() == 8 && arguments[0] == "client") {
        const Load load{std::stoul(arguments[3]), std::stoul(arguments[4]), std::stoul(arguments[6]), arguments[7]};
        return runClient(arguments[1], arguments[2], load, std::stoul(arguments[5]));
    }
    std::fprintf(stderr,
                 "usage: road upstream DIR SERVICE... | relay DIR LISTEN UPSTREAM | client DIR SERVICE COUNT INFLIGHT "
                 "CONNECTIONS WARMUP MIME\n");
    return 2;
}
