// The status of the process, logged when the log's sink asks for it.
#pragma once

#include "kelo/resource_handler.h"

namespace kelo::runtime {

// Logs what it is answered on the channel KELO_STATUS, in pieces of a line each. Thread: one at a time.
class StatusLog final : public IResponder {
public:
    bool next(const Response& response) override;
    void error(const Response& response) override;
    void completed() override {}
};

}  // namespace kelo::runtime
