// A program under test: started, observed from outside, stopped, killed.
#pragma once

#include <sys/types.h>

#include <csignal>
#include <cstddef>
#include <string>
#include <vector>

namespace campaign {

// A resource; what is still running at its end is killed. Children also end with the thread that started them. Thread: one at a
// time.
class Process {
public:
    struct Start {
        std::vector<std::string> command;      // the program's file first
        std::vector<std::string> environment;  // "NAME=value", in addition to ours
        std::string log;                       // where its output goes, appended
        uid_t uid = 0;                         // to run as, where that is not 0
    };

    explicit Process(const Start& start);
    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;
    ~Process() { kill(); }

    pid_t pid() const noexcept { return pid_; }
    bool isRunning();
    // Kills and waits until it is gone.
    void kill();
    void signal(int number) const;
    // Stops it, until SIGCONT, and waits until it has: the signal alone leaves it running for a while.
    void stop() const;
    // Waits for its end; false when it still runs after so many milliseconds.
    bool waitForEnd(int patience);
    // As waitpid gave it; of a process that has ended.
    int status() const noexcept { return status_; }

    std::size_t memoryKiB() const;  // resident, its own and changed
    std::size_t descriptors() const;
    std::size_t threads() const;
    // How often its threads have gone to sleep by themselves.
    std::size_t sleeps() const;

private:
    std::string file(const char* name) const;

    pid_t pid_ = -1;
    int status_ = 0;
};

}  // namespace campaign
