// Faults that a simulated service injects into its answers.
#pragma once

#include <chrono>
#include <cstdint>

#include "kelo/optional.h"
#include "kelo/record.h"
#include "kelo/response.h"
#include "random.h"

namespace hmxsim {

enum class Garble : std::uint8_t { mime, noise, truncate };
constexpr auto enumNames(Garble) {
    return std::array<std::string_view, 3>{"mime", "noise", "truncate"};
}

// What is to go wrong. Of the outcomes `silence`, `status`, `garble`, `close` and `crash` that are set, one is drawn for each
// answer; a delay goes with any of them, or alone. Thread: any (a value).
struct FaultRule {
    kelo::optional<int> delay_ms;       // before each answer
    kelo::optional<int> jitter_ms;      // and up to this much more, drawn
    kelo::optional<bool> silence;       // no answer; the request stays open
    kelo::optional<int> status;         // an error answer with this status
    kelo::optional<Garble> garble;      // the payload cut, overwritten, or of an unknown mime type
    kelo::optional<bool> close;         // the service goes, and returns after `reopen_ms`
    kelo::optional<bool> crash;         // the process ends at once
    kelo::optional<int> reopen_ms;      // default 500
    kelo::optional<int> count;          // answers that the rule hits before it is over; default: no end
    kelo::optional<float> probability;  // that it hits an answer; default 1
    kelo::optional<int> seed;           // of all that is drawn; default: the simulator's
    kelo::optional<bool> now;           // closes or crashes at once, without waiting for an answer
};
constexpr auto recordTable(const FaultRule*) {
    using kelo::record::Row;
    return kelo::record::Table<FaultRule, Row<"delay_ms", &FaultRule::delay_ms>, Row<"jitter_ms", &FaultRule::jitter_ms>,
                               Row<"silence", &FaultRule::silence>, Row<"status", &FaultRule::status>,
                               Row<"garble", &FaultRule::garble>, Row<"close", &FaultRule::close>,
                               Row<"crash", &FaultRule::crash>, Row<"reopen_ms", &FaultRule::reopen_ms>,
                               Row<"count", &FaultRule::count>, Row<"probability", &FaultRule::probability>,
                               Row<"seed", &FaultRule::seed>, Row<"now", &FaultRule::now>>{"FaultRule"};
}
static_assert(kelo::record::covers<FaultRule>);

bool serialize(kelo::serializer::IStructuredSerializer& writer, const FaultRule& value);
bool deserialize(kelo::serializer::IStructuredPullDeserializer& reader, FaultRule& value);

// "" for a rule that can be used, else what is wrong with it.
std::string complaintAbout(const FaultRule& rule);

// What happens to one answer. Thread: any (a value).
struct Fault {
    enum class Kind : std::uint8_t { none, silence, status, garble, close, crash };

    Kind kind = Kind::none;
    std::chrono::milliseconds delay{0};
    std::uint16_t status = 0;
    Garble garble = Garble::truncate;
    std::uint64_t noise = 0;  // drawn for garbling
    std::chrono::milliseconds reopenAfter{0};
};

// How long a closed service stays away.
std::chrono::milliseconds reopenAfter(const FaultRule& rule);

// Garbles the answer as the fault has it.
void garble(kelo::Response& answer, const Fault& fault);

// The rule of one service, and what it draws: the same rule and seed give the same faults, answer by answer.
// Thread: the simulator's worker.
class Faults {
public:
    // Replaces the rule and starts its draws anew; `seed` is used where the rule has none.
    void set(const FaultRule& rule, std::uint64_t seed);
    const FaultRule& rule() const noexcept { return rule_; }
    // The fault of the next answer.
    Fault next();

private:
    FaultRule rule_;
    Random random_{0};
    int left_ = 0;  // answers that the rule still hits; negative: no end
    std::vector<Fault::Kind> outcomes_;
};

}  // namespace hmxsim
