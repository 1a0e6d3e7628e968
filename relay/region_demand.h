// Region configurations cannot be listed, so an export follows those that somebody asks for: here, who asks for which.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include "entrance.h"
#include "kelo/resource_handler.h"
#include "names.h"
#include "participant.h"

namespace hmxrelay {

// Retrieves wait here until the origin has said what there is. A resource. Thread: the dispatcher's.
class RegionDemand final : public kelo::IResourceHandler {
public:
    using Clock = std::chrono::steady_clock;

    // `served` answers from what is there, and `isKnown(id)` tells whether that is more than nothing; both outlive this.
    RegionDemand(std::function<kelo::IResourceHandler&()> served, std::function<bool(const std::string& id)> isKnown);
    ~RegionDemand() override;
    RegionDemand(const RegionDemand&) = delete;
    RegionDemand& operator=(const RegionDemand&) = delete;

    void connect(const Participant& participant, const Entity& publisher);
    // Those who wait get this error.
    void disconnect(const kelo::Response& why);
    // Something has become known of this region configuration.
    void known(const std::string& id);
    // Ends what nobody has asked for lately, and those who have waited too long.
    void tick(Clock::time_point now);

    void* actionRequest(const kelo::Request& request, std::unique_ptr<kelo::IResponder> responder,
                        const std::string& tag) override;
    void cancelRequest(void* handle) override;

private:
    struct Open {
        std::string id;
        std::optional<Visitor> waiting;  // not answered yet
        Clock::time_point since;
        void* served = nullptr;  // its handle there
    };
    struct Wanted {
        std::size_t users = 0;
        Clock::time_point until;  // without users
    };
    struct Book {
        std::map<void*, Open> open;
        std::map<std::string, Wanted> wanted;
    };
    class Use;

    void write(const std::string& id);
    void pass(void* handle, Visitor visitor);

    std::function<kelo::IResourceHandler&()> served_;
    std::function<bool(const std::string&)> isKnown_;
    std::shared_ptr<Book> book_;
    std::optional<Writer<hmxrelay_Interest>> interest_;
};

}  // namespace hmxrelay
