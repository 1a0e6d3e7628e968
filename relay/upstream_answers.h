// A service that only repeats what another one has answered: the upstream services of an origin.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include "kelo/resource_handler.h"

namespace hmxrelay {

// A resource. Thread: one, its owner's.
class UpstreamAnswers final : public kelo::IResourceHandler {
public:
    // The answer to a retrieve of the path.
    void set(const std::string& path, kelo::Payload answer);
    // There is none, for this reason.
    void lose(const std::string& path, kelo::Response why);
    // Nobody knows of that path (any more).
    void remove(const std::string& path);

    void* actionRequest(const kelo::Request& request, std::unique_ptr<kelo::IResponder> responder,
                        const std::string& tag) override;
    void cancelRequest(void* handle) override;

private:
    struct Known {
        std::optional<kelo::Payload> answer;
        kelo::Response loss;
    };
    struct Open {
        std::string path;
        std::unique_ptr<kelo::IResponder> responder;
    };

    void fail(const std::string& path, const kelo::Response& why);

    std::map<std::string, Known> known_;
    std::map<std::uintptr_t, Open> open_;
    std::uintptr_t last_ = 0;
};

}  // namespace hmxrelay
