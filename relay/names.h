// What both sides call things: origins, parts, elements, and the checksum by which a part is known to be whole.
#pragma once

#include <array>
#include <compare>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "kelo/std/uuid.h"
#include "tracing/channel.h"

namespace hmxrelay {

using Bytes16 = std::array<std::uint8_t, 16>;

// A part of an origin. Thread: any (a value).
struct PartName {
    std::string resource;  // "popups"
    std::string part;      // "Driver_Display"; "" where there is only one

    // "popups/Driver_Display".
    std::string text() const { return part.empty() ? resource : resource + (part.front() == '/' ? "" : "/") + part; }
    friend auto operator<=>(const PartName&, const PartName&) = default;
};

// An element of a part. Thread: any (a value).
struct ElementKey {
    Bytes16 id{};
    std::uint32_t occurrence = 0;
    friend auto operator<=>(const ElementKey&, const ElementKey&) = default;
};

enum class Condition : std::uint8_t { live = 1, lost = 2, missing = 3 };

// What a sample of a change, or of its answer, is.
enum class Ask : std::uint8_t { change = 1, cancel = 2 };
enum class Answer : std::uint8_t { value = 1, error = 2, end = 3 };

inline constexpr std::uint32_t formatVersion = 2;
// How many changes may be under way, on either side.
inline constexpr std::size_t mostChanges = 1024;

extern const tracing::Channel channel;

// The resources whose parts are answers of upstream services, by the service's name; their parts are paths.
inline constexpr std::string_view inputManager{"hmxinputmanager"};
inline constexpr std::string_view displayManager{"hmxdisplaymanager"};
inline constexpr std::string_view regions{"regionconfigurations"};

// Up to 63 letters, digits, '-', '_' and '.', beginning with a letter or digit. Thread: any, as for all here.
[[nodiscard]] bool isOriginName(std::string_view name) noexcept;
// Of the machine's name, what can be an origin's.
[[nodiscard]] std::string hostName();

// An element's share of its part's digest, which is the sum of these.
[[nodiscard]] std::uint64_t digestOf(const ElementKey& key, std::uint64_t revision) noexcept;

[[nodiscard]] Bytes16 randomId();

// Gives back to the system what a large amount of reading has left unused.
void giveBackMemory() noexcept;

}  // namespace hmxrelay
