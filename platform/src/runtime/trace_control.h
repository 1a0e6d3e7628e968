// The thresholds of the trace channels, shown and changed by clients.
#pragma once

#include <string_view>

#include "kelo/resource_handler.h"

namespace kelo::runtime {

inline constexpr std::string_view tracePath{"/$platform/trace"};

// Answers with all channels and their thresholds. Thread: any.
void answerTraceLevels(const Request& request, IResponder& responder);
// Sets the thresholds in the request's body, all or none, and answers as above. Thread: any.
void changeTraceLevels(const Request& request, IResponder& responder);

}  // namespace kelo::runtime
