// The times of a recording, and the clocks on its wall.
#pragma once

#include <chrono>
#include <functional>
#include <string>
#include <string_view>

#include "hmx/recording/entry.h"

namespace hmx::recording {

// The head of a recording that begins now: its clocks. Thread: any, as all here.
[[nodiscard]] Head headNow();
// The time since the origin of `head`.
[[nodiscard]] std::chrono::nanoseconds timeNow(const Head& head);

// A time as people write it, since the origin:
//   12.5s, 500ms, 2m, 1h   since the origin; without a unit seconds
//   -3s                    before the end, which `end` tells
//   12:34:56.789           the first time after the origin at which the recorder's clock on the wall showed that
//   2026-11-22T12:34:56.789+01:00, also with Z, or without a zone: the recorder's
// Errors: Error, invalid.
[[nodiscard]] std::chrono::nanoseconds parseTime(std::string_view text, const Head& head,
                                                 const std::function<std::chrono::nanoseconds()>& end);
// The clock on the recorder's wall at that time: "12:34:56.789"; "" if the head does not say.
[[nodiscard]] std::string wallTime(std::chrono::nanoseconds at, const Head& head);

}  // namespace hmx::recording
