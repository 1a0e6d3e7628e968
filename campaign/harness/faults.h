// Makes the system calls of a running program fail one by one: the driver's side of the page in preload/fault_page.h.
#pragma once

#include <string>
#include <vector>

#include "harness/scope.h"
#include "preload/fault_page.h"

namespace campaign {

// A resource. Thread: any.
class Faults {
public:
    // `file`: where the page is; one a program.
    Faults(const Scope& scope, std::string file);
    Faults(const Faults&) = delete;
    Faults& operator=(const Faults&) = delete;
    ~Faults();

    // What a program is started with to be under these faults.
    std::vector<std::string> environment() const;

    struct What {
        Action action = Action::fail;
        int error = EIO;
        std::uint64_t from = 1;  // the first call from now on that it is about, from 1
        std::uint64_t times = ~std::uint64_t{0};
        std::uint64_t every = 1;
    };
    // From now on, and in place of what was said about these calls before.
    void set(Call call, const What& what);
    void clear();
    // Calls made since `set` or `clear`.
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
