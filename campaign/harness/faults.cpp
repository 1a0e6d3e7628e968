#include "harness/faults.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <utility>

namespace campaign {

Faults::Faults(const Scope& scope, std::string file) : library_{scope.faultsLibrary}, file_{std::move(file)} {
    const int fd = ::open(file_.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666);
    void* memory = MAP_FAILED;
    if (fd >= 0 && ::ftruncate(fd, sizeof(FaultPage)) == 0) {
        memory = ::mmap(nullptr, sizeof(FaultPage), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    }
    if (fd >= 0) ::close(fd);
    if (memory == MAP_FAILED) throw Failure{"cannot map " + file_};
    page_ = static_cast<FaultPage*>(memory);  // a new file is all zero, like a page without rules
}

Faults::~Faults() {
    ::munmap(page_, sizeof(FaultPage));
}

std::vector<std::string> Faults::environment() const {
    return {"LD_PRELOAD=" + library_, std::string{faultPageVariable} + "=" + file_};
}

void Faults::set(Call call, const What& what) {
    FaultRule& to = rule(call);
    to.times = 0;  // inactive while it changes
    to.error = what.error;
    to.action = what.action;
    to.every = what.every;
    to.from = what.from;
    to.calls = 0;
    to.times = what.times;
}

void Faults::clear() {
    for (FaultRule& each : page_->rules) {
        each.times = 0;
        each.calls = 0;
    }
}

std::uint64_t Faults::calls(Call call) const {
    return rule(call).calls;
}

}  // namespace campaign
