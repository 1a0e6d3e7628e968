#include "kelo/commands.h"

namespace kelo::commands {

namespace {

constexpr std::string_view names[] = {"retrieve", "update", "delete", "insert"};  // by id

}  // namespace

int toId(std::string_view command) noexcept {
    for (int id = retrieve; id < unknown; ++id) {
        if (command == names[id]) return id;
    }
    return unknown;
}

std::string_view toName(int id) noexcept {
    return id >= retrieve && id < unknown ? names[id] : std::string_view{};
}

}  // namespace kelo::commands
