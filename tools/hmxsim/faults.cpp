// Reproducible means that the random choices for one answer depend on nothing but the answers before it. So the outcomes of a
// rule are fixed when the rule is set, and for an answer that is not affected nothing is drawn except that decision.
#include "faults.h"

namespace hmxsim {

bool serialize(kelo::serializer::IStructuredSerializer& writer, const FaultRule& value) {
    return kelo::record::write(writer, value);
}
bool deserialize(kelo::serializer::IStructuredPullDeserializer& reader, FaultRule& value) {
    return kelo::record::read(reader, value);
}

std::string complaintAbout(const FaultRule& rule) {
    if (rule.delay_ms.value_or(0) < 0) return "delay_ms: less than 0";
    if (rule.jitter_ms.value_or(0) < 0) return "jitter_ms: less than 0";
    if (rule.reopen_ms.value_or(0) < 0) return "reopen_ms: less than 0";
    if (rule.count.value_or(1) < 1) return "count: less than 1";
    if (const int status = rule.status.value_or(500); status < 400 || status > 599) return "status: not from 400 to 599";
    if (const float p = rule.probability.value_or(1); !(p >= 0 && p <= 1)) return "probability: not from 0 to 1";
    if (rule.now.value_or(false) && !rule.close.value_or(false) && !rule.crash.value_or(false))
        return "now: only with close or crash";
    return {};
}

void Faults::set(const FaultRule& rule, std::uint64_t seed) {
    rule_ = rule;
    random_ = Random{rule.seed ? static_cast<std::uint64_t>(*rule.seed) : seed};
    outcomes_.clear();
    const auto add = [&](bool wanted, Fault::Kind kind) {
        if (wanted) outcomes_.push_back(kind);
    };
    add(rule.silence.value_or(false), Fault::Kind::silence);
    add(bool(rule.status), Fault::Kind::status);
    add(bool(rule.garble), Fault::Kind::garble);
    add(rule.close.value_or(false), Fault::Kind::close);
    add(rule.crash.value_or(false), Fault::Kind::crash);
    const bool doesAnything = !outcomes_.empty() || rule.delay_ms || rule.jitter_ms;
    left_ = doesAnything ? rule.count.value_or(-1) : 0;
}

Fault Faults::next() {
    Fault fault;
    if (left_ == 0 || !random_.chance(rule_.probability.value_or(1))) return fault;
    if (left_ > 0) --left_;
    const auto jitter = random_.below(static_cast<std::uint64_t>(rule_.jitter_ms.value_or(0)) + 1);
    fault.delay = std::chrono::milliseconds{rule_.delay_ms.value_or(0) + static_cast<std::int64_t>(jitter)};
    if (!outcomes_.empty()) fault.kind = outcomes_[random_.below(outcomes_.size())];
    if (fault.kind == Fault::Kind::garble) fault.noise = random_.below(UINT64_MAX);
    fault.status = static_cast<std::uint16_t>(rule_.status.value_or(0));
    fault.garble = rule_.garble.value_or(Garble::truncate);
    fault.reopenAfter = reopenAfter(rule_);
    return fault;
}

std::chrono::milliseconds reopenAfter(const FaultRule& rule) {
    return std::chrono::milliseconds{rule.reopen_ms.value_or(500)};
}

void garble(kelo::Response& answer, const Fault& fault) {
    const kelo::Payload& payload = answer.payload();
    std::vector<std::uint8_t> bytes{payload.bytes().begin(), payload.bytes().end()};
    kelo::MimeType mimeType = payload.mimeType();
    Random drawn{fault.noise};
    switch (fault.garble) {
        case Garble::mime:
            mimeType = kelo::MimeType{"application/x-unknown"};
            break;
        case Garble::truncate:  // no document that is an object, a list or a bool can be cut and still be one
            bytes.resize(drawn.below(bytes.size()));
            break;
        case Garble::noise:
            for (std::uint8_t& byte : bytes) byte = static_cast<std::uint8_t>(drawn.below(256));
            break;
    }
    answer.setPayload(kelo::Payload::copyOf(bytes, std::move(mimeType)));
}

}  // namespace hmxsim
