#include "net/turns.h"

#include <algorithm>

#include "net/frame_stream.h"

// How long a request takes depends on how many are before it, in the workers' queues and at the upstream services. What is before
// it cannot be overtaken, so it must not be let in. While several users ask, each has only a few requests in hand. Its further
// frames stay where they are, mostly in the kernel, and its connections are not read until some request has been answered. A user
// that fills all the connections that it may have is then before another one's request with no more than those few, and one that
// asks little does not notice the limit.
//
// A user that asks alone has no such limit. That others ask is remembered for a while after each change from one user to another,
// so that one that asks now and then finds the way free.
//
// Upstream services may take long, and a client must be able to cancel what takes long. So after a moment of waiting, what is in
// hand does not count any more.
//
// Frames that need no answer from elsewhere are handled at once and never in hand. For these, each user has some frames in each
// turn of the loop, over all of its connections.

namespace kelo::net {
namespace {

constexpr std::uint32_t mostInHand = 4;
constexpr std::uint32_t framesPerTurn = 8;
constexpr std::chrono::milliseconds patience{5};
constexpr std::chrono::seconds memory{5};

}  // namespace

Turns::Turns(Loop& loop, const Limits& limits)
    : loop_{loop},
      connections_{limits.connections, FairShare::users, FairShare::Among::users},
      calm_{loop,
            [this] {
                isContended_ = false;
                resumeAll(false);
            }},
      overdue_{loop, [this] { resumeAll(true); }} {}

std::shared_ptr<User> Turns::user(uid_t uid) {
    std::erase_if(users_, [](const auto& entry) { return entry.second.expired(); });
    std::weak_ptr<User>& known = users_[uid];
    std::shared_ptr<User> user = known.lock();
    if (!user) known = user = std::make_shared<User>(uid);
    return user;
}

void Turns::addConnection(User& user) noexcept {
    ++user.connections;
    connections_.change(user.connections - 1, user.connections);
}

void Turns::removeConnection(User& user) noexcept {
    --user.connections;
    connections_.change(user.connections + 1, user.connections);
}

Turns::Answer Turns::ask(User& user) {
    if (latest_ != user.uid) {
        isContended_ = isContended_ || latest_ != static_cast<uid_t>(-1);
        if (isContended_) calm_.arm(Clock::now() + memory);
        latest_ = user.uid;
    }
    if (!isContended_) return Answer::now;
    const std::uint32_t inHand = user.inHand.load(std::memory_order_relaxed);
    if (inHand < mostInHand) user.overdue = 0;
    if (inHand >= mostInHand + user.overdue) return Answer::afterwards;
    if (user.turn != loop_.turns()) {
        user.turn = loop_.turns();
        user.frames = 0;
    }
    if (user.frames >= framesPerTurn) return Answer::nextTurn;
    ++user.frames;
    return Answer::now;
}

void Turns::await(const std::shared_ptr<User>& user, std::weak_ptr<FrameStream> connection) {
    user->waiting.push_back(std::move(connection));
    if (!user->isWaiting.exchange(true)) waiting_.push_back(user);
    if (!overdue_.isArmed()) overdue_.arm(Clock::now() + patience);
    // An answer may have come between the question and this.
    if (user->inHand.load() <= mostInHand / 2) overdue_.arm(Clock::now());
}

bool Turns::putDown(User& user) noexcept {
    return user.inHand.fetch_sub(1) <= mostInHand / 2 + 1 && user.isWaiting.exchange(false);
}

void Turns::resume(User& user) {
    user.isWaiting = false;
    std::shared_ptr<User> kept;
    std::erase_if(waiting_, [&](const std::shared_ptr<User>& each) {
        if (each.get() != &user) return false;
        kept = each;
        return true;
    });
    while (!user.waiting.empty() && ask(user) == Answer::now) {
        const auto connection = user.waiting.front().lock();
        user.waiting.pop_front();
        if (connection) connection->goOn();
    }
    if (user.waiting.empty() || !kept) return;
    if (!user.isWaiting.exchange(true)) waiting_.push_back(kept);
    if (!overdue_.isArmed()) overdue_.arm(Clock::now() + patience);
}

void Turns::resumeAll(bool isOverdue) {
    for (const std::shared_ptr<User>& user : std::vector{waiting_}) {
        if (isOverdue) user->overdue += mostInHand;
        resume(*user);
    }
}

}  // namespace kelo::net
