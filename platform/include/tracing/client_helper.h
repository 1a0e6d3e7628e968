// Access to the tracing output as a whole.
#pragma once

namespace tracing {

// Thread: any.
class Client {
public:
    // Lines are written when they are logged; this writes the number of lost lines, if there are any. `wait`: waits up to 100 ms
    // until standard error can take it.
    void flush(bool wait) noexcept;
};

namespace client_helper {
Client& getClient() noexcept;
}

}  // namespace tracing
