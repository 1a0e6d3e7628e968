// Paths as things that can be watched.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "event_hub.h"
#include "hmx/client/client.h"
#include "http_server.h"

namespace hmxgateway {

// What `text`, a path with a query, names: a resource, an element or a touch surface. Nothing for any other path. Errors:
// hmx::client::Error, invalid, for parameters that it does not take. `client` outlives the watch.
[[nodiscard]] std::optional<Watch> watchFor(hmx::client::Client& client, const std::string& text);

// A viewer as the body of an answer. Thread: the gateway's.
class EventStream final : public IStream {
public:
    explicit EventStream(std::unique_ptr<Viewer> viewer) : viewer_{std::move(viewer)} {}
    std::size_t read(char* out, std::size_t room) override { return viewer_->read(out, room); }
    bool isOver() const override { return viewer_->isCut(); }

private:
    std::unique_ptr<Viewer> viewer_;
};

}  // namespace hmxgateway
