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
    // The memory of all that is kept.
    std::size_t bytes() const noexcept { return bytes_; }

    // Keeps a stream's value: a whole frame that ends with a payload of this size. True if it replaces an older value.
    bool put(std::uint64_t id, std::span<const std::uint8_t> frame, std::size_t payloadSize);
    // Has `frame` sent after the stream's kept value, as the stream's last frame. False if no value of it is kept.
    bool end(std::uint64_t id, std::span<const std::uint8_t> frame);
    void drop(std::uint64_t id);
    void clear();
    // Appends the value that has waited longest, and forgets it. There must be one.
    void writeOldest(util::ByteBufferWriter& out);

private:
    struct Hash : std::hash<std::string_view> {
        using is_transparent = void;
    };
    // The payloads, each with the number of streams whose newest value it is.
    using Payloads = std::unordered_map<std::string, std::size_t, Hash, std::equal_to<>>;
    struct Kept {
        std::uint64_t id = 0;
        std::vector<std::uint8_t> head;  // of the frame
        const Payloads::value_type* payload = nullptr;
        std::vector<std::uint8_t> end;  // the frame to send after it, once the stream has ended
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
