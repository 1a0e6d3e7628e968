#include "net/kept_values.h"

// Many streams of one peer often have the same value: a process that serves many clients makes the same request for each of them,
// and a change reaches all these streams at once. So equal payloads are kept once, however many streams wait for them. What a
// peer can make us keep then depends on how much different data there is, not on how often the peer asks for it.
//
// Values are looked up only if a peer does not keep up; hashing and comparing a value costs far less than making it.

namespace kelo::net {
namespace {

constexpr std::size_t nodeBytes = 64;  // of a container's node with the allocator's overhead, approximately

std::string_view textOf(std::span<const std::uint8_t> bytes) noexcept {
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

}  // namespace

std::size_t KeptValues::sizeOf(const Kept& kept) noexcept {
    return 2 * nodeBytes + sizeof kept + kept.head.capacity() + kept.end.capacity();
}

std::size_t KeptValues::sizeOf(const Payloads::value_type& payload) noexcept {
    return nodeBytes + payload.first.capacity();
}

KeptValues::Payloads::value_type* KeptValues::use(std::string_view payload) {
    auto found = payloads_.find(payload);
    if (found == payloads_.end()) {
        found = payloads_.try_emplace(std::string{payload}, 0).first;
        bytes_ += sizeOf(*found);
    }
    ++found->second;
    return &*found;
}

void KeptValues::release(const Payloads::value_type& payload) {
    const auto found = payloads_.find(payload.first);
    if (--found->second > 0) return;
    bytes_ -= sizeOf(*found);
    payloads_.erase(found);
}

bool KeptValues::put(std::uint64_t id, std::span<const std::uint8_t> frame, std::size_t payloadSize) {
    const auto head = frame.first(frame.size() - payloadSize);
    const auto known = byId_.find(id);
    if (known != byId_.end()) {
        Kept& kept = *known->second;
        std::vector<std::uint8_t> newHead{head.begin(), head.end()};
        release(*std::exchange(kept.payload, use(textOf(frame.last(payloadSize)))));
        bytes_ += newHead.capacity() - kept.head.capacity() - kept.end.capacity();
        kept.head = std::move(newHead);
        kept.end = {};  // of an earlier stream, whose id the peer has reused too early
        return true;
    }
    Order made;
    made.push_back({id, {head.begin(), head.end()}, nullptr, {}});
    byId_.try_emplace(id, made.begin());
    try {
        made.front().payload = use(textOf(frame.last(payloadSize)));
    } catch (...) {
        byId_.erase(id);
        throw;
    }
    bytes_ += sizeOf(made.front());
    order_.splice(order_.end(), made);
    return false;
}

bool KeptValues::end(std::uint64_t id, std::span<const std::uint8_t> frame) {
    const auto known = byId_.find(id);
    if (known == byId_.end()) return false;
    Kept& kept = *known->second;
    std::vector<std::uint8_t> end{frame.begin(), frame.end()};
    bytes_ += end.capacity() - kept.end.capacity();
    kept.end = std::move(end);
    return true;
}

void KeptValues::forget(Order::iterator kept) {
    bytes_ -= sizeOf(*kept);
    release(*kept->payload);
    byId_.erase(kept->id);
    order_.erase(kept);
}

void KeptValues::drop(std::uint64_t id) {
    const auto known = byId_.find(id);
    if (known != byId_.end()) forget(known->second);
}

void KeptValues::clear() {
    byId_.clear();
    order_.clear();
    payloads_.clear();
    bytes_ = 0;
}

void KeptValues::writeOldest(util::ByteBufferWriter& out) {
    const auto oldest = order_.begin();
    const std::size_t before = out.size();
    try {
        out.write(std::span<const std::uint8_t>{oldest->head});
        out.write(std::string_view{oldest->payload->first});
        out.write(std::span<const std::uint8_t>{oldest->end});
    } catch (...) {
        out.truncate(before);
        throw;
    }
    forget(oldest);
}

}  // namespace kelo::net
