// Growing byte buffer for writers, and a bounded view for readers.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <string_view>
#include <utility>
#include <vector>

namespace util {

// Owns the bytes written so far. Thread: one at a time.
class ByteBufferWriter {
public:
    // `capacity`: bytes reserved at once, so that a document of that size costs one allocation.
    explicit ByteBufferWriter(std::size_t capacity = 0) { bytes_.reserve(capacity); }
    // Takes over a buffer for reuse; what it held is dropped, its capacity stays.
    explicit ByteBufferWriter(std::vector<std::uint8_t>&& reuse) : bytes_{std::move(reuse)} { bytes_.clear(); }

    void write(const void* data, std::size_t size) {
        const auto* first = static_cast<const std::uint8_t*>(data);
        bytes_.insert(bytes_.end(), first, first + size);
    }
    void write(std::string_view text) { write(text.data(), text.size()); }
    void writeByte(std::uint8_t byte) { bytes_.push_back(byte); }

    // Replaces bytes that are there already.
    void overwrite(std::size_t at, const void* data, std::size_t size) noexcept { std::memcpy(bytes_.data() + at, data, size); }
    // Puts bytes between those that are there already.
    void insert(std::size_t at, const void* data, std::size_t size) {
        const auto* first = static_cast<const std::uint8_t*>(data);
        bytes_.insert(bytes_.begin() + static_cast<std::ptrdiff_t>(at), first, first + size);
    }

    std::span<const std::uint8_t> bytes() const noexcept { return bytes_; }
    std::size_t size() const noexcept { return bytes_.size(); }
    bool empty() const noexcept { return bytes_.empty(); }
    void clear() noexcept { bytes_.clear(); }
    std::vector<std::uint8_t> release() noexcept { return std::move(bytes_); }

private:
    std::vector<std::uint8_t> bytes_;
};

// A position in bytes that somebody else owns and that outlive the reader. Thread: one at a time.
class ByteBufferReader {
public:
    ByteBufferReader() = default;
    explicit ByteBufferReader(std::span<const std::uint8_t> bytes) noexcept : bytes_{bytes} {}
    explicit ByteBufferReader(std::string_view text) noexcept
        : bytes_{reinterpret_cast<const std::uint8_t*>(text.data()), text.size()} {}

    std::span<const std::uint8_t> bytes() const noexcept { return bytes_; }

private:
    std::span<const std::uint8_t> bytes_;
};

}  // namespace util
