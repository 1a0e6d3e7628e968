#include "harness/process.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <string_view>
#include <thread>

#include "harness/scope.h"

extern char** environ;  // NOLINT(readability-redundant-declaration): not every C library declares it

// Everything that a child needs is prepared before the fork: between fork and exec, a process with several threads must not
// allocate.

namespace campaign {
namespace {

std::vector<char*> pointersTo(std::vector<std::string>& texts) {
    std::vector<char*> pointers;
    pointers.reserve(texts.size() + 1);
    for (std::string& text : texts) pointers.push_back(text.data());
    pointers.push_back(nullptr);
    return pointers;
}

std::size_t entriesOf(const std::string& directory) {
    std::error_code error;
    std::size_t count = 0;
    for (auto entry = std::filesystem::directory_iterator{directory, error}; !error && entry != std::filesystem::end(entry);
         entry.increment(error)) {
        ++count;
    }
    return count;
}

// The number after "NAME:" in one of the kernel's files; 0 if there is none.
std::size_t numberIn(const std::string& file, std::string_view name) {
    std::ifstream in{file};
    for (std::string line; std::getline(in, line);) {
        if (line.starts_with(name) && line.size() > name.size() && line[name.size()] == ':')
            return std::stoul(line.substr(name.size() + 1));
    }
    return 0;
}

}  // namespace

Process::Process(const Start& start) {
    std::vector<std::string> command = start.command;
    // If a name occurs twice, the last value is used.
    std::map<std::string, std::string> settings;
    const auto set = [&](std::string_view text) { settings[std::string{text.substr(0, text.find('='))}] = text; };
    for (char** entry = environ; *entry != nullptr; ++entry) set(*entry);
    for (const std::string& text : start.environment) set(text);
    std::vector<int> passed;
    if (!start.descriptors.empty()) {
        std::string names;
        for (const auto& [name, descriptor] : start.descriptors) {
            names += (names.empty() ? "" : ":") + name;
            passed.push_back(descriptor);
        }
        set("LISTEN_FDNAMES=" + names);
        set("LISTEN_FDS=" + std::to_string(passed.size()));
        set("LISTEN_PID=0000000000");  // the child's digits follow
    }
    std::vector<std::string> environment;
    environment.reserve(settings.size());
    for (const auto& [name, text] : settings) environment.push_back(text);
    const std::vector<char*> arguments = pointersTo(command);
    const std::vector<char*> variables = pointersTo(environment);
    char* pidDigits = nullptr;
    for (char* const text : variables) {
        if (text != nullptr && std::string_view{text}.starts_with("LISTEN_PID=") && !passed.empty())
            pidDigits = text + std::strlen(text);
    }
    const std::string log = start.log.empty() ? "/dev/null" : start.log;
    const pid_t parent = ::getpid();
    pid_ = ::fork();
    if (pid_ < 0) throw Failure{"cannot fork: " + std::string{std::strerror(errno)}};
    if (pid_ > 0) return;
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (::getppid() != parent) ::_exit(126);
    const int in = ::open("/dev/null", O_RDONLY);
    const int out = ::open(log.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0666);
    if (in < 0 || out < 0) ::_exit(126);
    ::dup2(in, 0);
    ::dup2(out, 1);
    ::dup2(out, 2);
    // Out of the way first: one may be where another one is to be.
    constexpr int firstPassed = 3;
    const int aside = firstPassed + static_cast<int>(passed.size());
    for (int& descriptor : passed) descriptor = ::fcntl(descriptor, F_DUPFD, aside);
    for (std::size_t i = 0; i < passed.size(); ++i) ::dup2(passed[i], firstPassed + static_cast<int>(i));
    ::close_range(static_cast<unsigned>(aside), ~0U, 0);
    for (pid_t rest = ::getpid(); pidDigits != nullptr && rest > 0; rest /= 10) *--pidDigits = static_cast<char>('0' + rest % 10);
    if (start.uid != 0 && (::setgid(start.uid) != 0 || ::setuid(start.uid) != 0)) ::_exit(126);
    ::execve(arguments[0], arguments.data(), variables.data());
    ::_exit(127);
}

bool Process::isRunning() {
    return pid_ > 0 && !waitForEnd(0);
}

bool Process::waitForEnd(int patience) {
    const auto end = Clock::now() + milliseconds{patience};
    while (pid_ > 0) {
        const pid_t ended = ::waitpid(pid_, &status_, WNOHANG);
        if (ended == pid_ || (ended < 0 && errno == ECHILD)) {
            pid_ = -1;
            return true;
        }
        if (Clock::now() >= end) return false;
        std::this_thread::sleep_for(milliseconds{1});
    }
    return true;
}

void Process::signal(int number) const {
    if (pid_ > 0) ::kill(pid_, number);
}

void Process::stop() const {
    signal(SIGSTOP);
    siginfo_t info{};
    while (pid_ > 0 && ::waitid(P_PID, static_cast<id_t>(pid_), &info, WSTOPPED | WEXITED | WNOWAIT) < 0 && errno == EINTR) {
    }
}

void Process::kill() {
    if (pid_ <= 0) return;
    ::kill(pid_, SIGKILL);
    while (::waitpid(pid_, &status_, 0) < 0 && errno == EINTR) {
    }
    pid_ = -1;
}

std::string Process::file(const char* name) const {
    return "/proc/" + std::to_string(pid_) + "/" + name;
}

std::size_t Process::memoryKiB() const {
    return numberIn(file("smaps_rollup"), "Private_Dirty");
}

std::size_t Process::descriptors() const {
    return entriesOf(file("fd"));
}

std::size_t Process::nextDescriptor() const {
    std::size_t number = 0;
    while (std::filesystem::is_symlink(file("fd") + "/" + std::to_string(number))) ++number;
    return number;
}

std::size_t Process::threads() const {
    return numberIn(file("status"), "Threads");
}

std::size_t Process::sleeps() const {
    std::error_code error;
    std::size_t count = 0;
    for (auto task = std::filesystem::directory_iterator{file("task"), error}; !error && task != std::filesystem::end(task);
         task.increment(error)) {
        count += numberIn(task->path() / "status", "voluntary_ctxt_switches");
    }
    return count;
}

}  // namespace campaign
