// Reads one file of a policy.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "policy/policy_reader.h"

namespace kelo::policy {

// What has been read so far, of all files. Thread: one at a time.
struct Draft {
    Policy policy;
    std::vector<Fault> faults;
    std::optional<Place> auditIsSaid;
};

// Adds what the text of a file says. Its users and groups are looked up.
void readPolicyFile(const std::string& file, std::string_view text, Draft& draft);

}  // namespace kelo::policy
