// What is on the displays, read once from all services that know something of it.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "hmx/client/client.h"
#include "hmx/client/document.h"
#include "hmx/client/error.h"

namespace hmx::client {

// What one display shows. Thread: any (a value).
struct DisplayScene {
    Json display;                                // its element
    Json layers{};                               // of its layer configuration, as listed; those switched off with "active": false
    std::optional<std::vector<Json>> popups{};   // elements; nothing if they were not read
    std::optional<std::vector<Json>> regions{};  // input regions, in the input manager's keys, topmost first; likewise
};

// Thread: any (a value).
struct Scene {
    // What could not be had because a service is away.
    struct Absence {
        std::string what;  // "popups left out"
        Error error;
    };

    std::vector<DisplayScene> displays;
    std::vector<Json> displayables{};  // elements; "upstream" is the display manager's own record, if it was to be had
    std::vector<Absence> absences{};   // in the order of asking, one for each service
};

// What is to be read, beside the displays and their layers. Thread: any (a value).
struct SceneParts {
    std::vector<std::string> displays{};  // the names of those that are wanted, in this order; none: all
    bool popups = true;
    bool regions = true;
    bool displayables = false;
};

// `client` outlives the task. Errors: Error, of /hmx itself, and of the others unless they are away.
[[nodiscard]] Task<Scene> readScene(Client& client, SceneParts parts, Deadline deadline);

}  // namespace hmx::client
