// The relay makes the same hand-overs as the bridge: its I/O thread reads, a worker writes, and an answer comes back the same
// way. It does nothing else: frames are forwarded as they are, and each answer is padded to the size of the bridge's answer.
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "road_roles.h"
#include "road_wire.h"

namespace road {

namespace {

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
        if (wake && ::write(wake_, &one, sizeof one) != sizeof one) traffic::fail("eventfd");
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
                if (::read(wake_, &count, sizeof count) != sizeof count) traffic::fail("eventfd");
                continue;
            }
            // One send for each destination.
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

}  // namespace

int playRelay(const std::string& directory, const std::string& service, const std::string& upstreamService) {
    FrameReader upstreamReader;
    const int upstream = greet(directory, upstreamService, upstreamReader);
    const int listener = listenAt(directory, service);
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
    // The upstream id of a request is made of its client's socket and the client's own id. A relay needs no other bookkeeping.
    constexpr unsigned shift = 40;
    std::vector<Parcel> parcels;
    const Bytes greeting = helloAnswer();
    traffic::sayReady();
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
            reader.frames([&](const Frame& frame) {
                Parcel parcel{upstream, Bytes(frame.bytes, frame.bytes + frame.size)};
                std::uint64_t id = frame.id();
                if (fd == upstream) {
                    parcel.to = static_cast<int>(id >> shift);
                    id &= (std::uint64_t{1} << shift) - 1;
                    parcel.bytes.resize(std::max(frame.size, headerSize + traffic::answerSize), ' ');
                    putNumber(parcel.bytes.data(), parcel.bytes.size() - headerSize, 4);
                } else if (frame.type() == hello) {
                    parcel = {fd, greeting};
                    id = 0;
                } else {
                    id |= static_cast<std::uint64_t>(fd) << shift;
                }
                setId(parcel.bytes, id);
                parcels.push_back(std::move(parcel));
            });
        }
        if (!parcels.empty()) worker.post(parcels);
    }
}

}  // namespace road
