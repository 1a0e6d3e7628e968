// The policy that a process follows, and where it comes from.
#pragma once

#include <memory>
#include <string>

#include "policy/policy_reader.h"

namespace kelo::policy {

// Thread: one at a time.
class PolicySource {
public:
    explicit PolicySource(std::string directory) : directory_{std::move(directory)} {}

    const std::string& directory() const noexcept { return directory_; }
    // Never null; no policy until the first reading.
    const std::shared_ptr<const Policy>& current() const noexcept { return current_; }
    // Whether the files, as they are now, cannot be used; what is current was read before that.
    bool isBroken() const noexcept { return !faults_.empty(); }
    const std::vector<Fault>& faults() const noexcept { return faults_; }

    // Reads the files if they have changed. True if another policy is current now.
    bool refresh() { return fingerprintOf(directory_) != fingerprint_ && reload(); }
    // Reads the files in any case.
    bool reload();

private:
    const std::string directory_;
    std::shared_ptr<const Policy> current_ = std::make_shared<const Policy>();
    std::string fingerprint_;  // of what was read last
    std::vector<Fault> faults_;
    bool hasRead_ = false;
};

}  // namespace kelo::policy
