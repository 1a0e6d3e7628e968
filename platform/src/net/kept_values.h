// The newest values of streams that wait for a slow peer to read.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <list>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "util/byte_buffer.h"

namespace kelo::net {

// Guarded by its connection's mutex. Thread: any.
class KeptValues {
public:
    KeptValues() = default;
    KeptValues(const KeptValues&) = delete;
    KeptValues& operator=(const KeptValues&) = delete;

    bool empty() const noexcept { return order_.empty(); }
    // The memory that they take.
    std::size_t bytes() const noexcept { return bytes_; }

    // Keeps a stream's value: a whole frame, which ends with a payload of that size. True if it replaces an older one.
    bool put(std::uint64_t id, std::span<const std::uint8_t> frame, std::size_t payloadSize);
    // Has the frame follow a stream's value, as the last of that stream. False if none of its values waits.
    bool end(std::uint64_t id, std::span<const std::uint8_t> frame);
    void drop(std::uint64_t id);
    void clear();
    // Appends what has waited longest and forgets it. Something must be waiting.
    void writeOldest(util::ByteBufferWriter& out);

private:
    struct Hash : std::hash<std::string_view> {
        using is_transparent = void;
    };
    // The payloads, with the number of streams that each is the newest value of.
    using Payloads = std::unordered_map<std::string, std::size_t, Hash, std::equal_to<>>;
    struct Kept {
        std::uint64_t id = 0;
        std::vector<std::uint8_t> head;  // of the frame
        const Payloads::value_type* payload = nullptr;
        std::vector<std::uint8_t> end;  // the frame after it, once the stream is over
    };
    using Order = std::list<Kept>;

    Payloads::value_type* use(std::string_view payload);
    void release(const Payloads::value_type& payload);
    void forget(Order::iterator kept);
    static std::size_t sizeOf(const Kept& kept) noexcept;
    static std::size_t sizeOf(const Payloads::value_type& payload) noexcept;

    Payloads payloads_;
    Order order_;  // oldest first
    std::unordered_map<std::uint64_t, Order::iterator> byId_;
    std::size_t bytes_ = 0;
};

}  // namespace kelo::net
