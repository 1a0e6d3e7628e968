// HTTP from the client's side, and the floor beside the gateway: what libmicrohttpd alone serves of the same bytes.
//
//     http_load floor FILE                             serves the file's bytes at every path; prints its port
//     http_load get PORT PATH CONNECTIONS SECONDS      requests a second, and the median in µs
//     http_load watch PORT PATH BODY VIEWERS ROUNDS    per round, changes the element and prints when the viewers heard of it:
//                                                      median and last, in µs after the change was sent
#include <arpa/inet.h>
#include <microhttpd.h>
#include <netinet/tcp.h>
#include <sys/epoll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

double microseconds(Clock::duration time) {
    return std::chrono::duration<double, std::micro>(time).count();
}

// A connection that sends requests and takes answers whole. Thread: one at a time.
struct Connection {
    int socket = -1;
    std::size_t left = 0;  // of the answer
    Clock::time_point asked{};
};

int connectTo(const char* port) {
    const int made = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(static_cast<std::uint16_t>(std::atoi(port)));
    if (::connect(made, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        std::perror("http_load: connect");
        std::exit(1);
    }
    const int yes = 1;
    (void)::setsockopt(made, IPPROTO_TCP, TCP_NODELAY, &yes, sizeof yes);
    return made;
}

void sendAll(int socket, const std::string& text) {
    if (::send(socket, text.data(), text.size(), MSG_NOSIGNAL) != static_cast<ssize_t>(text.size())) std::exit(1);
}

// The length of an answer with a Content-Length, read whole.
std::size_t readAnswer(int socket) {
    std::string answer;
    std::array<char, 65536> piece{};
    for (;;) {
        const std::size_t head = answer.find("\r\n\r\n");
        if (head != std::string::npos) {
            const std::size_t length = answer.find("Content-Length: ");
            if (answer.compare(9, 1, "2") != 0 || length == std::string::npos) {
                std::fprintf(stderr, "http_load: %s\n", answer.c_str());
                std::exit(1);
            }
            const std::size_t whole = head + 4 + std::strtoul(answer.c_str() + length + 16, nullptr, 10);
            if (answer.size() >= whole) return whole;
        }
        const ssize_t got = ::recv(socket, piece.data(), piece.size(), 0);
        if (got <= 0) std::exit(1);
        answer.append(piece.data(), static_cast<std::size_t>(got));
    }
}

int serveFloor(const char* file) {
    std::ifstream in{file};
    static const std::string content{std::istreambuf_iterator<char>{in}, {}};
    const auto answer = [](void*, MHD_Connection* request, const char*, const char*, const char*, const char*, std::size_t*,
                           void** seen) -> MHD_Result {
        if (*seen == nullptr) {
            *seen = request;
            return MHD_YES;
        }
        MHD_Response* response =
            MHD_create_response_from_buffer(content.size(), const_cast<char*>(content.data()), MHD_RESPMEM_PERSISTENT);
        MHD_add_response_header(response, "Content-Type", "application/json");
        const MHD_Result done = MHD_queue_response(request, 200, response);
        MHD_destroy_response(response);
        return done;
    };
    MHD_Daemon* daemon = MHD_start_daemon(MHD_USE_EPOLL_INTERNAL_THREAD, 0, nullptr, nullptr, answer, nullptr, MHD_OPTION_END);
    if (daemon == nullptr) return 1;
    std::printf("%u\n", unsigned{MHD_get_daemon_info(daemon, MHD_DAEMON_INFO_BIND_PORT)->port});
    std::fflush(stdout);
    for (;;) ::pause();
}

int get(const char* port, const std::string& path, std::size_t count, double seconds) {
    const std::string request = "GET " + path + " HTTP/1.1\r\nHost: localhost\r\nAccept: application/json\r\n\r\n";
    const int epoll = ::epoll_create1(EPOLL_CLOEXEC);
    std::vector<Connection> connections(count);
    std::size_t answerSize = 0;
    for (Connection& each : connections) {
        each.socket = connectTo(port);
        sendAll(each.socket, request);
        answerSize = readAnswer(each.socket);
        epoll_event event{EPOLLIN, {.ptr = &each}};
        ::epoll_ctl(epoll, EPOLL_CTL_ADD, each.socket, &event);
    }
    std::vector<double> times;
    const Clock::time_point begin = Clock::now();
    const Clock::time_point end = begin + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));
    const auto ask = [&](Connection& each) {
        each.left = answerSize;
        each.asked = Clock::now();
        sendAll(each.socket, request);
    };
    for (Connection& each : connections) ask(each);
    std::array<epoll_event, 64> events{};
    std::array<char, 65536> piece{};
    while (Clock::now() < end) {
        const int ready = ::epoll_wait(epoll, events.data(), static_cast<int>(events.size()), 1000);
        for (int i = 0; i < ready; ++i) {
            auto& each = *static_cast<Connection*>(events[static_cast<std::size_t>(i)].data.ptr);
            const ssize_t got = ::recv(each.socket, piece.data(), piece.size(), 0);
            if (got <= 0 || static_cast<std::size_t>(got) > each.left) return 1;
            each.left -= static_cast<std::size_t>(got);
            if (each.left > 0) continue;
            times.push_back(microseconds(Clock::now() - each.asked));
            ask(each);
        }
    }
    const double rate = static_cast<double>(times.size()) / (microseconds(Clock::now() - begin) / 1e6);
    std::nth_element(times.begin(), times.begin() + static_cast<std::ptrdiff_t>(times.size() / 2), times.end());
    std::printf("%.0f %.1f\n", rate, times[times.size() / 2]);
    return 0;
}

int watch(const char* port, const std::string& path, const std::string& body, std::size_t viewers, int rounds) {
    const int epoll = ::epoll_create1(EPOLL_CLOEXEC);
    std::vector<Connection> connections(viewers);
    std::array<char, 65536> piece{};
    for (Connection& each : connections) {
        each.socket = connectTo(port);
        sendAll(each.socket, "GET " + path + " HTTP/1.1\r\nHost: localhost\r\nAccept: text/event-stream\r\n\r\n");
        epoll_event event{EPOLLIN, {.ptr = &each}};
        ::epoll_ctl(epoll, EPOLL_CTL_ADD, each.socket, &event);
    }
    std::array<epoll_event, 256> events{};
    const auto takeAll = [&](auto heard, std::chrono::milliseconds quiet) {
        for (;;) {
            const int ready =
                ::epoll_wait(epoll, events.data(), static_cast<int>(events.size()), static_cast<int>(quiet.count()));
            if (ready <= 0) return;
            for (int i = 0; i < ready; ++i) {
                auto& each = *static_cast<Connection*>(events[static_cast<std::size_t>(i)].data.ptr);
                if (::recv(each.socket, piece.data(), piece.size(), 0) <= 0) std::exit(1);
                if (heard(each)) return;
            }
        }
    };
    takeAll([](Connection&) { return false; }, std::chrono::milliseconds{500});
    const int changer = connectTo(port);
    for (int round = 0; round < rounds; ++round) {
        std::string changed = body;
        changed.replace(changed.find('#'), 1, std::to_string(round));
        std::vector<double> times;
        const Clock::time_point begin = Clock::now();
        sendAll(changer, "PATCH " + path + " HTTP/1.1\r\nHost: localhost\r\nContent-Type: application/json\r\nContent-Length: " +
                             std::to_string(changed.size()) + "\r\n\r\n" + changed);
        for (Connection& each : connections) each.left = 1;
        takeAll(
            [&](Connection& each) {
                if (each.left > 0) times.push_back(microseconds(Clock::now() - begin));
                each.left = 0;
                return times.size() == viewers;
            },
            std::chrono::milliseconds{2000});
        (void)readAnswer(changer);
        takeAll([](Connection&) { return false; }, std::chrono::milliseconds{20});
        if (times.size() != viewers) return 1;
        std::printf("%.0f %.0f\n", times[viewers / 2], times.back());
    }
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    rlimit limit{};
    ::getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = limit.rlim_max;
    (void)::setrlimit(RLIMIT_NOFILE, &limit);
    const std::vector<std::string> words{argv + 1, argv + argc};
    if (words.size() == 2 && words[0] == "floor") return serveFloor(argv[2]);
    if (words.size() == 5 && words[0] == "get") return get(argv[2], words[2], std::stoul(words[3]), std::stod(words[4]));
    if (words.size() == 6 && words[0] == "watch")
        return watch(argv[2], words[2], words[3], std::stoul(words[4]), std::stoi(words[5]));
    std::fprintf(stderr, "http_load: floor FILE | get PORT PATH CONNECTIONS SECONDS | watch PORT PATH BODY VIEWERS ROUNDS\n");
    return 2;
}
