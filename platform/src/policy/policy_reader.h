// Reads a policy from its directory.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "policy/policy.h"

namespace kelo::policy {

// What is wrong with a policy, and where. Thread: any (a value).
struct Fault {
    Place place;
    std::string text;

    std::string toString() const { return place.toString() + ": " + text; }
};

// `policy` is null if there are faults. Thread: any (a value).
struct Reading {
    std::shared_ptr<const Policy> policy;
    std::vector<Fault> faults;
};

// `chosen`, else $KELO_POLICY_DIR, else /etc/kelo/policy.d. Thread: any.
[[nodiscard]] std::string policyDirectory(const std::string& chosen);

// Reads every *.toml of the directory, in the order of their names. A directory that does not exist, or has none, is no policy.
// Thread: any.
[[nodiscard]] Reading readPolicy(const std::string& directory);

// Changes whenever the files do; to find out whether they have to be read again. Thread: any.
[[nodiscard]] std::string fingerprintOf(const std::string& directory);

}  // namespace kelo::policy
