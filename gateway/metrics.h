// What the gateway counts, and how it is shown to monitoring systems (OpenMetrics text).
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <string_view>
#include <utility>

#include "refusal.h"

namespace hmxgateway {

// What is read off at the moment. Thread: any (a value).
struct Gauges {
    std::size_t connections = 0;
    std::size_t streams = 0;
    std::size_t topics = 0;
    std::uint64_t events = 0;
    std::uint64_t slowViewersCut = 0;
};

// Thread: the gateway's.
class Metrics {
public:
    // `subject`: a resource or endpoint; static storage. Never what a client has chosen.
    void countRequest(std::string_view subject, int status) { ++requests_[{subject, status}]; }
    void countRefusal(Refusal refusal) { ++refusals_[static_cast<std::size_t>(refusal)]; }

    // `status`: the bridge's own document, or null when it does not answer.
    [[nodiscard]] std::string text(const Gauges& gauges, const nlohmann::ordered_json& status) const;

private:
    std::map<std::pair<std::string_view, int>, std::uint64_t> requests_;
    std::array<std::uint64_t, static_cast<std::size_t>(Refusal::count)> refusals_{};
};

}  // namespace hmxgateway
