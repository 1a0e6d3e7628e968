// Answers of the platform itself, in the encoding that the client accepts.
#pragma once

#include <functional>

#include "kelo/resource_handler.h"
#include "kelo/serializer/basic.h"

namespace kelo::runtime {

// Sends the document that `write` writes, or an error if it returns true. Thread: any.
void answerDocument(const Request& request, IResponder& responder,
                    const std::function<bool(serializer::IStructuredSerializer&)>& write);

}  // namespace kelo::runtime
