// What an import has of an origin, served like the original: its resources, and what its upstream services have answered.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "hmx/replica/replica.h"
#include "kelo/payload.h"
#include "upstream_answers.h"

namespace hmxrelay {

// The parts of one resource. Thread: its owner's.
class Shelf {
public:
    virtual ~Shelf() = default;
    // An element of a kind that `set` takes. Errors: hmx::client::Error, unreadable.
    virtual std::shared_ptr<void> read(const kelo::Payload& document) const = 0;
    virtual void set(const std::string& part, const std::vector<std::shared_ptr<void>>& elements) = 0;
    virtual void lose(const std::string& part, const kelo::Response& why) = 0;
    virtual void remove(const std::string& part) = 0;
};

// A resource. Thread: its owner's.
class Shelves {
public:
    // `changes`: see hmx::replica::Replica.
    explicit Shelves(kelo::IResourceHandler& changes);

    // Null for a resource that there is not.
    Shelf* find(std::string_view resource) noexcept;

    kelo::SimpleComposedKeloService& hmx() noexcept { return replica_.service(); }
    UpstreamAnswers& inputManagerAnswers() noexcept { return inputManager_; }
    UpstreamAnswers& displayManagerAnswers() noexcept { return displayManager_; }

private:
    hmx::replica::Replica replica_;
    UpstreamAnswers inputManager_;
    UpstreamAnswers displayManager_;
    std::map<std::string, std::unique_ptr<Shelf>, std::less<>> shelves_;
};

}  // namespace hmxrelay
