// The question is an event in the queue of each worker. It is not a brief one, so only the worker's own thread can answer it. A
// worker that ends runs what is queued first, and so answers too.
#include "comm/roll_call.h"

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <mutex>
#include <vector>

#include "comm/active_object.h"
#include "net/loop.h"

namespace comm {
namespace {

// Never destroyed: workers may end while the process exits.
struct Members {
    std::mutex mutex;
    std::vector<kelo::net::Loop*> loops;
};
Members& members() {
    static auto* const all = new Members;
    return *all;
}

}  // namespace

class RollCall::Question final : public ActiveObjectEvent {
public:
    void execute() override { --missing; }

    std::atomic<std::size_t> missing{0};
};

RollCall::RollCall() = default;
RollCall::~RollCall() = default;

void RollCall::begin() {
    const auto question = std::make_shared<Question>();
    Members& all = members();
    const std::lock_guard lock{all.mutex};
    question->missing = all.loops.size();
    for (auto* const loop : all.loops) loop->enque(question);
    question_ = question;
}

bool RollCall::isComplete() const noexcept {
    return question_ == nullptr || question_->missing == 0;
}

void RollCall::join(kelo::net::Loop& loop) {
    Members& all = members();
    const std::lock_guard lock{all.mutex};
    all.loops.push_back(&loop);
}

void RollCall::leave(kelo::net::Loop& loop) noexcept {
    Members& all = members();
    const std::lock_guard lock{all.mutex};
    std::erase(all.loops, &loop);
}

}  // namespace comm
