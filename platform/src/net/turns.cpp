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
// What needs no answer from elsewhere is handled at once and never in hand. And even a few requests at a time keep all processors
// busy if the next ones always follow at once: another user's request would then wait for a processor at every step of its way.
// So a user also has only so many turns in a millisecond, over all of its connections. A frame takes one turn; a large one takes
// many, because nothing else is handled meanwhile: as many as its size squared, so that the time during which others may have to
// wait stays a small part of all time, however large the frames are. The pieces of an incomplete frame take turns by its size. A
// user that has not taken its turns may take some of them at once.

namespace kelo::net {
namespace {

constexpr std::uint32_t inHandAtMost = Limits::userRequestsInHand;
constexpr std::size_t bytesPerTurn = 16'384;

}  // namespace

Turns::Turns(Loop& loop, const Limits& limits)
    : limits_{limits},
      turn_{std::chrono::nanoseconds{std::chrono::milliseconds{1}} / limits.userTurns},
      connections_{limits.connections, Limits::users, FairShare::Among::users},
      calm_{loop,
            [this] {
                isContended_ = false;
                resumeAll(false);
            }},
      overdue_{loop, [this] { resumeAll(true); }},
      next_{loop, [this] { resumeAll(false); }} {}

std::vector<std::shared_ptr<const User>> Turns::users() const {
    std::vector<std::shared_ptr<const User>> all;
    for (const auto& [uid, known] : users_) {
        if (auto user = known.lock(); user && user->connections > 0) all.push_back(std::move(user));
    }
    return all;
}

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

std::uint32_t Turns::turnsOfFrame(std::size_t bytes) noexcept {
    const auto pieces = static_cast<std::uint32_t>(bytes / bytesPerTurn);
    return 1 + pieces * pieces;
}

std::uint32_t Turns::turnsOfReceiving(std::size_t bytes) noexcept {
    return static_cast<std::uint32_t>(bytes / bytesPerTurn);
}

bool Turns::hasTooMuchInHand(User& user) noexcept {
    const std::uint32_t inHand = user.inHand.load(std::memory_order_relaxed);
    if (inHand < inHandAtMost) user.overdue = 0;
    return inHand >= inHandAtMost + user.overdue;
}

// Whether the next turn is the user's.
bool Turns::isNext(User& user) const noexcept {
    return !isContended_ || (!hasTooMuchInHand(user) && user.next <= Clock::now());
}

bool Turns::take(User& user, std::uint32_t turns) {
    if (latest_ != user.uid) {
        isContended_ = isContended_ || latest_ != static_cast<uid_t>(-1);
        if (isContended_) calm_.arm(Clock::now() + limits_.userContention);
        latest_ = user.uid;
    }
    if (!isContended_ || turns == 0) return true;
    if (hasTooMuchInHand(user)) return false;
    const auto now = Clock::now();
    if (user.next > now) return false;
    user.next = std::max(user.next, now - turn_ * limits_.userTurnsSaved) + turn_ * turns;
    return true;
}

void Turns::await(const std::shared_ptr<User>& user, std::weak_ptr<FrameStream> connection) {
    user->waiting.push_back(std::move(connection));
    waitFor(user);
}

// Has the user's connections resumed at its next turn, or when requests in hand have been answered, whichever it lacks.
void Turns::waitFor(const std::shared_ptr<User>& user) {
    if (std::find(waiting_.begin(), waiting_.end(), user) == waiting_.end()) waiting_.push_back(user);
    const auto now = Clock::now();
    if (user->next > now) {
        next_.arm(std::min(next_.due(), user->next));
        return;
    }
    user->isWaiting = true;
    if (!overdue_.isArmed()) overdue_.arm(now + limits_.userPatience);
    // An answer may have come between the question and this.
    if (user->inHand.load() <= inHandAtMost / 2) overdue_.arm(now);
}

bool Turns::putDown(User& user) noexcept {
    return user.inHand.fetch_sub(1) <= inHandAtMost / 2 + 1 && user.isWaiting.exchange(false);
}

void Turns::resume(User& user) {
    user.isWaiting = false;
    std::shared_ptr<User> kept;
    std::erase_if(waiting_, [&](const std::shared_ptr<User>& each) {
        if (each.get() != &user) return false;
        kept = each;
        return true;
    });
    while (!user.waiting.empty() && isNext(user)) {
        const auto connection = user.waiting.front().lock();
        user.waiting.pop_front();
        if (connection) connection->goOn();
    }
    if (kept && !user.waiting.empty()) waitFor(kept);
}

void Turns::resumeAll(bool isOverdue) {
    for (const std::shared_ptr<User>& user : std::vector{waiting_}) {
        if (isOverdue && hasTooMuchInHand(*user)) user->overdue += inHandAtMost;
        resume(*user);
    }
}

}  // namespace kelo::net
