#include "policy/policy_source.h"

#include <algorithm>
#include <utility>

#include "tracing/channel.h"

// A policy is replaced as a whole, or not at all: whoever holds the old one keeps it until told. Files that cannot be used change
// nothing, except at the start of a process, when there is nothing yet: then only its own user and root are served, as without a
// policy. The fingerprint is taken before the files are read. If they change in between, they are read once more than needed.

namespace kelo::policy {
namespace {

const tracing::Channel channel{"KELO_POLICY"};

constexpr std::size_t mostLines = 10;

}  // namespace

bool PolicySource::reload() {
    fingerprint_ = fingerprintOf(directory_);
    Reading reading = readPolicy(directory_);
    faults_ = std::move(reading.faults);
    const bool isFirst = !std::exchange(hasRead_, true);
    if (!reading.policy) {
        for (std::size_t i = 0; i < std::min(faults_.size(), mostLines); ++i) {
            tracing::logCV(channel, 4, "%s", faults_[i].toString().c_str());
        }
        tracing::logCV(
            channel, 4, "the policy in %s is not used because of %zu faults; %s", directory_.c_str(), faults_.size(),
            isFirst || !current_->isInForce ? "only this user and root are served" : "the one before it stays in force");
        return false;
    }
    const Policy& next = *reading.policy;
    if (next.isInForce) {
        constexpr int always = 2;
        tracing::logCV(channel, always, "the policy in %s is in force: %zu rules%s", directory_.c_str(), next.tables.size(),
                       next.audits ? ", but it only audits: what it refuses is logged and passes" : "");
    } else if (current_->isInForce) {
        tracing::logCV(channel, 3, "there is no policy in %s any more; only this user and root are served", directory_.c_str());
    }
    const bool isOther = next.isInForce || current_->isInForce;
    current_ = std::move(reading.policy);
    return isOther;
}

}  // namespace kelo::policy
