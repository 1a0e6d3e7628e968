// Asks all workers of the process whether they still work.
#pragma once

#include <memory>

namespace kelo::net {
class Loop;
}

namespace comm {

// Thread: one at a time.
class RollCall {
public:
    RollCall();
    ~RollCall();
    RollCall(const RollCall&) = delete;
    RollCall& operator=(const RollCall&) = delete;

    // Asks every worker that there is now. Does not wait.
    void begin();
    // Whether all who were asked last have answered; before the first call there is nobody to wait for.
    bool isComplete() const noexcept;

    // A worker with a thread of its own begins and ceases to take part. Thread: any.
    static void join(kelo::net::Loop& loop);
    static void leave(kelo::net::Loop& loop) noexcept;

private:
    class Question;
    std::shared_ptr<Question> question_;
};

}  // namespace comm
