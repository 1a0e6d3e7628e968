#include "inbox.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <utility>

#include "failure.h"
#include "output.h"

namespace hmxctl {
namespace {

// How many intermediate states a command that is slow to print them still gets to see.
constexpr std::size_t mostKept = 16;

// Thread: the runtime's.
class Collector final : public kelo::IResponseHandler<kelo::Response> {
public:
    Collector(std::shared_ptr<Inbox> inbox, std::size_t source, bool oneShot)
        : inbox_{std::move(inbox)}, source_{source}, oneShot_{oneShot} {}

    bool onNext(const kelo::Response& response) override {
        inbox_->put({source_, Event::Kind::next, response});
        return oneShot_;
    }
    void onError(const kelo::Response& response) override { inbox_->put({source_, Event::Kind::error, response}); }
    void onCompleted() override { inbox_->put({source_, Event::Kind::completed, {}}); }
    bool isOneShot() const override { return oneShot_; }

private:
    std::shared_ptr<Inbox> inbox_;
    std::size_t source_;
    bool oneShot_;
};

}  // namespace

Inbox::Inbox() : wakeUp_{::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)} {
    if (wakeUp_ < 0) throw Failure{ExitCode::unexpected, std::string{"eventfd: "} + std::strerror(errno)};
}

Inbox::~Inbox() {
    ::close(wakeUp_);
}

void Inbox::put(Event event) {
    bool sleeping = false;
    {
        const std::lock_guard lock{mutex_};
        sleeping = events_.empty();
        const auto last = std::find_if(events_.rbegin(), events_.rend(), [&](const Event& each) {
            return each.source == event.source && each.kind == Event::Kind::next;
        });
        if (event.kind == Event::Kind::next && events_.size() >= mostKept && last != events_.rend()) {
            *last = std::move(event);
        } else {
            events_.push_back(std::move(event));
        }
    }
    const std::uint64_t one = 1;
    if (sleeping) (void)!::write(wakeUp_, &one, sizeof one);
}

std::optional<Event> Inbox::take(const std::optional<Deadline>& deadline, int output) {
    for (;;) {
        {
            const std::lock_guard lock{mutex_};
            if (!events_.empty()) {
                Event event = std::move(events_.front());
                events_.pop_front();
                return event;
            }
        }
        // Nothing is asked of the output, so that only its reader's end is reported.
        std::array<pollfd, 2> waits{pollfd{wakeUp_, POLLIN, 0}, pollfd{output, 0, 0}};
        const auto milliseconds =
            deadline ? static_cast<int>(std::min<std::int64_t>(deadline->left().count(), 60L * 60L * 1000L)) : -1;
        const int ready = ::poll(waits.data(), waits.size(), milliseconds);
        if (ready < 0 && errno != EINTR) throw Failure{ExitCode::unexpected, std::string{"poll: "} + std::strerror(errno)};
        if (ready > 0 && (waits[1].revents & (POLLERR | POLLHUP)) != 0) throw OutputClosed{};
        std::uint64_t count = 0;
        if (ready > 0 && waits[0].revents != 0) (void)!::read(wakeUp_, &count, sizeof count);
        if (ready == 0 && deadline && deadline->passed()) return {};
    }
}

std::unique_ptr<kelo::IResponseHandler<kelo::Response>> makeHandler(std::shared_ptr<Inbox> inbox, std::size_t source,
                                                                    bool oneShot) {
    return std::make_unique<Collector>(std::move(inbox), source, oneShot);
}

}  // namespace hmxctl
