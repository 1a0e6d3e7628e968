#include "names.h"

#include <malloc.h>
#include <unistd.h>

#include <algorithm>
#include <random>

namespace hmxrelay {

const tracing::Channel channel{"HMXRELAY"};

namespace {

bool isNameCharacter(char c) noexcept {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' || c == '_' || c == '.';
}

// FNV-1a.
std::uint64_t mixed(std::uint64_t hash, std::uint8_t byte) noexcept {
    return (hash ^ byte) * 0x100000001b3U;
}

}  // namespace

bool isOriginName(std::string_view name) noexcept {
    return !name.empty() && name.size() <= 63 && std::all_of(name.begin(), name.end(), isNameCharacter) && name.front() != '-' &&
           name.front() != '_' && name.front() != '.';
}

std::string hostName() {
    std::array<char, 256> name{};
    (void)::gethostname(name.data(), name.size() - 1);
    std::string text{name.data()};
    text.resize(std::min<std::size_t>(text.size(), 63));
    std::replace_if(
        text.begin(), text.end(), [](char c) { return !isNameCharacter(c); }, '-');
    return isOriginName(text) ? text : "unnamed";
}

std::uint64_t digestOf(const ElementKey& key, std::uint64_t revision) noexcept {
    std::uint64_t hash = 0xcbf29ce484222325U;
    for (const std::uint8_t byte : key.id) hash = mixed(hash, byte);
    for (unsigned shift = 0; shift < 32; shift += 8) hash = mixed(hash, static_cast<std::uint8_t>(key.occurrence >> shift));
    for (unsigned shift = 0; shift < 64; shift += 8) hash = mixed(hash, static_cast<std::uint8_t>(revision >> shift));
    return hash;
}

void giveBackMemory() noexcept {
    (void)::malloc_trim(0);
}

Bytes16 randomId() {
    std::random_device source;
    Bytes16 id;
    std::generate(id.begin(), id.end(), [&] { return static_cast<std::uint8_t>(source()); });
    return id;
}

}  // namespace hmxrelay
