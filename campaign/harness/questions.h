// The requests that drivers send to the bridge: one of every kind, with known ids.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "harness/client.h"

namespace campaign {

// The upstream services, with hmxsim's names for them.
inline constexpr std::string_view managers[] = {"displaymanager", "inputmanager", "popupmanager"};

// Thread: any (a value).
struct Question {
    std::string command;
    std::string path;
    std::string payload;
    bool oneShot = true;
    std::string_view upstream;  // the manager whose answer is needed
};

// Learns the ids from the bridge and makes one question of each kind that needs an upstream service.
std::vector<Question> everyQuestion(Client& client);

}  // namespace campaign
