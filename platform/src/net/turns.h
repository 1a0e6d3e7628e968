// Users: what each of them has of the process, and whose turn it is.
#pragma once

#include <sys/types.h>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <vector>

#include "net/fair_share.h"
#include "net/loop.h"

namespace kelo::net {

class FrameStream;

// One user with connections to this process, all of them together. Thread: any for the atomic members, the loop's for the others.
struct User {
    explicit User(uid_t user) noexcept : uid{user} {}

    const uid_t uid;
    SharedLimit::Amount requests{0};       // open, of both kinds
    UserLimit::Amount streams{0};          // of these
    SharedLimit::Amount unread{0};         // bytes
    SharedLimit::Amount incomplete{0};     // bytes
    std::atomic<std::uint32_t> inHand{0};  // requests that have had no answer yet
    std::atomic<bool> isWaiting{false};    // some connection waits for an answer to another request
    std::size_t connections = 0;

    Clock::time_point next{};   // when it may take its next turn
    std::uint32_t overdue = 0;  // requests in hand that take so long that they do not count
    std::deque<std::weak_ptr<FrameStream>> waiting;
};

// Decides whose frames are handled now. Thread: the loop's.
class Turns {
public:
    Turns(Loop& loop, const Limits& limits);

    std::shared_ptr<User> user(uid_t uid);
    // Those with connections.
    std::vector<std::shared_ptr<const User>> users() const;
    // Whether the user may have one more connection.
    bool admitsConnection(const User& user) const noexcept { return connections_.admits(user.connections, 1); }
    void addConnection(User& user) noexcept;
    void removeConnection(User& user) noexcept;

    // How many turns it takes to handle a frame of this size, and to receive more of one of which this has arrived.
    static std::uint32_t turnsOfFrame(std::size_t bytes) noexcept;
    static std::uint32_t turnsOfReceiving(std::size_t bytes) noexcept;
    // Takes turns for the user, if they are the next ones. If not, `await`.
    bool take(User& user, std::uint32_t turns);
    // Has the connection told when it may go on.
    void await(const std::shared_ptr<User>& user, std::weak_ptr<FrameStream> connection);
    // A request of the user has been answered. True if `resume` must be called. Thread: any.
    static bool putDown(User& user) noexcept;
    // Lets the user's connections go on, as far as they may.
    void resume(User& user);

private:
    static bool hasTooMuchInHand(User& user) noexcept;
    bool isNext(User& user) const noexcept;
    void waitFor(const std::shared_ptr<User>& user);
    void resumeAll(bool isOverdue);

    const Limits limits_;
    const std::chrono::nanoseconds turn_;
    FairShare connections_;
    std::map<uid_t, std::weak_ptr<User>> users_;
    std::vector<std::shared_ptr<User>> waiting_;
    uid_t latest_ = static_cast<uid_t>(-1);  // whose frame was handled last
    bool isContended_ = false;               // several users have asked lately
    Timer calm_;
    Timer overdue_;
    Timer next_;
};

}  // namespace kelo::net
