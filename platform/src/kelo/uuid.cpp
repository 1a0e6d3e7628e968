#include "kelo/uuid.h"

#include <uuid/uuid.h>

namespace kelo::uuid {

std::UUID createFromName(std::string_view name) noexcept {
    std::array<std::uint8_t, std::UUID::byteCount> bytes;
    uuid_generate_sha1(bytes.data(), *uuid_get_template("url"), name.data(), name.size());
    return std::UUID{bytes};
}

void createFromName(std::string_view name, std::UUID& out) noexcept {
    out = createFromName(name);
}

}  // namespace kelo::uuid
