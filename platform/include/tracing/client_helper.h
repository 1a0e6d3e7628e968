// Access to the tracing output as a whole.
#pragma once

namespace tracing {

// Thread: any.
class Client {
public:
    // Sees to it that what was logged has left the process; `wait`: not before that returns.
    void flush(bool wait) noexcept;
};

namespace client_helper {
Client& getClient() noexcept;
}

}  // namespace tracing
