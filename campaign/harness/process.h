// A program under test: started, observed from outside, stopped, killed.
#pragma once

#include <sys/types.h>

#include <csignal>
#include <cstddef>
#include <string>
#include <utility>
#include <vector>

namespace campaign {

// A resource: its destructor kills the program. A child also ends with the thread that started it. Thread: one at a time.
class Process {
public:
    struct Start {
        std::vector<std::string> command;      // beginning with the program's file
        std::vector<std::string> environment;  // "NAME=value", in addition to ours
        std::string log;                       // the file that its output is appended to
        uid_t uid = 0;                         // the user to run as; 0: unchanged
        // Passed on as a supervisor does, with their names; they stay ours.
        std::vector<std::pair<std::string, int>> descriptors{};
    };

    explicit Process(const Start& start);
    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;
    ~Process() { kill(); }

    pid_t pid() const noexcept { return pid_; }
    bool isRunning();
    // Kills the program and waits until it is gone.
    void kill();
    void signal(int number) const;
    // Stops it until SIGCONT, and waits until it has stopped: after the signal it runs on for a while.
    void stop() const;
    // Waits for its end; false if it still runs after `patience` milliseconds.
    bool waitForEnd(int patience);
    // The status from waitpid; only for a process that has ended.
    int status() const noexcept { return status_; }

    std::size_t memoryKiB() const;  // resident private memory that was written to
    std::size_t descriptors() const;
    // The number that its next descriptor will have.
    std::size_t nextDescriptor() const;
    std::size_t threads() const;
    // How often its threads have gone to sleep voluntarily.
    std::size_t sleeps() const;

private:
    std::string file(const char* name) const;

    pid_t pid_ = -1;
    int status_ = 0;
};

}  // namespace campaign
