// Makes system calls of a running program fail, one by one: the driver's side of the page in preload/fault_page.h.
#pragma once

#include <string>
#include <vector>

#include "harness/scope.h"
#include "preload/fault_page.h"

namespace campaign {

// A resource. Thread: any.
class Faults {
public:
    // `file`: the file of the page; one for each program.
    Faults(const Scope& scope, std::string file);
    Faults(const Faults&) = delete;
    Faults& operator=(const Faults&) = delete;
    ~Faults();

    // The environment in which a program has these faults.
    std::vector<std::string> environment() const;

    struct What {
        Action action = Action::fail;
        int error = EIO;
        std::uint64_t from = 1;  // the first call, counted from now on, starting with 1
        std::uint64_t times = ~std::uint64_t{0};
        std::uint64_t every = 1;
    };
    // Takes effect at once and replaces the earlier rule for these calls.
    void set(Call call, const What& what);
    void clear();
    // The number of calls since `set` or `clear`.
    std::uint64_t calls(Call call) const;
    std::uint64_t hits() const { return page_->hits; }
    void setClockOffset(std::int64_t seconds) { page_->clockOffset = seconds; }

private:
    FaultRule& rule(Call call) const { return page_->rules[static_cast<std::size_t>(call)]; }

    const std::string library_;
    const std::string file_;
    FaultPage* page_ = nullptr;
};

}  // namespace campaign
