// A copy of "/hmx" that answers like the original: what is put into it is served by the same resource services.
#pragma once

#include <memory>
#include <string>

#include "hmx/display_object.h"
#include "hmx/displayable_object.h"
#include "hmx/layerconfiguration_object.h"
#include "hmx/popup_object.h"
#include "hmx/regionconfiguration_object.h"
#include "hmx/replica/resource.h"
#include "kelo/composed_service.h"
#include "kelo/resource_handler.h"

namespace hmx::replica {

// A handle that no request of a replica has; for who answers changes. Thread: any.
[[nodiscard]] void* newHandle() noexcept;

// A resource. Thread: one, its owner's; on it requests are made and cancelled, elements put in, and answers given.
class Replica {
public:
    // `changes` gets the requests that would change something, as they are, and outlives this. Its handles come from `newHandle`,
    // because it also hears of the cancellation of retrieves.
    explicit Replica(kelo::IResourceHandler& changes);
    ~Replica();
    Replica(const Replica&) = delete;
    Replica& operator=(const Replica&) = delete;

    // The parts of popups are their displays. What belongs to no part is put under "".
    Resource<kelo::hmx::DisplayObject>& displays() noexcept;
    Resource<kelo::hmx::DisplayableObject>& displayables() noexcept;
    Resource<kelo::hmx::LayerconfigurationObject>& layerconfigurations() noexcept;
    Resource<kelo::hmx::PopupObject>& popups() noexcept;
    Resource<kelo::hmx::RegionconfigurationObject>& regionconfigurations() noexcept;

    // What is to be published, or asked through a LocalApi.
    kelo::SimpleComposedKeloService& service() noexcept;

private:
    struct Content;
    std::unique_ptr<Content> content_;
};

}  // namespace hmx::replica
