// A growing byte buffer for writers, and a bounded view for readers.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <span>
#include <string_view>
#include <utility>

namespace util {

// Owns the bytes written so far. To write in small pieces, claim room for the largest that a piece can be, write it there, and
// commit the bytes that it took. Thread: one at a time.
class ByteBufferWriter {
public:
    // `capacity`: bytes reserved now, so that a document of up to that size costs one allocation.
    explicit ByteBufferWriter(std::size_t capacity) {
        if (capacity > 0) grow(capacity);
    }
    ByteBufferWriter() noexcept = default;
    ByteBufferWriter(ByteBufferWriter&& other) noexcept { *this = std::move(other); }
    ByteBufferWriter& operator=(ByteBufferWriter&& other) noexcept {
        bytes_ = std::move(other.bytes_);
        size_ = std::exchange(other.size_, 0);
        capacity_ = std::exchange(other.capacity_, 0);
        return *this;
    }
    ~ByteBufferWriter() = default;

    // Room for `most` bytes after those written; valid until the next call on the buffer.
    char* claim(std::size_t most) {
        if (capacity_ - size_ < most) [[unlikely]]
            grow(most);
        return reinterpret_cast<char*>(bytes_.get() + size_);
    }
    // `size` bytes have been written to the room claimed last.
    void commit(std::size_t size) noexcept { size_ += size; }
    // The same for all bytes up to `end`, a position in that room.
    void commitTo(const char* end) noexcept {
        size_ = static_cast<std::size_t>(reinterpret_cast<const std::uint8_t*>(end) - bytes_.get());
    }

    void write(const void* data, std::size_t size) {
        if (size == 0) return;
        std::memcpy(claim(size), data, size);
        size_ += size;
    }
    void write(std::span<const std::uint8_t> bytes) { write(bytes.data(), bytes.size()); }
    void write(std::string_view text) { write(text.data(), text.size()); }
    void writeByte(std::uint8_t byte) {
        *claim(1) = static_cast<char>(byte);
        ++size_;
    }

    // Replaces bytes that have been written.
    void overwrite(std::size_t at, const void* data, std::size_t size) noexcept { std::memcpy(bytes_.get() + at, data, size); }
    // Inserts bytes before position `at`.
    void insert(std::size_t at, const void* data, std::size_t size) {
        claim(size);
        std::memmove(bytes_.get() + at + size, bytes_.get() + at, size_ - at);
        std::memcpy(bytes_.get() + at, data, size);
        size_ += size;
    }

    // Removes `size` bytes; the bytes after them move down.
    void erase(std::size_t at, std::size_t size) noexcept {
        std::memmove(bytes_.get() + at, bytes_.get() + at + size, size_ - at - size);
        size_ -= size;
    }

    std::span<const std::uint8_t> bytes() const noexcept { return {bytes_.get(), size_}; }
    std::size_t size() const noexcept { return size_; }
    std::size_t capacity() const noexcept { return capacity_; }
    bool empty() const noexcept { return size_ == 0; }
    // Both keep the capacity.
    void clear() noexcept { size_ = 0; }
    void truncate(std::size_t size) noexcept { size_ = size; }
    void swap(ByteBufferWriter& other) noexcept { std::swap(*this, other); }

private:
    [[gnu::cold]] void grow(std::size_t most) {
        const std::size_t capacity = std::max(capacity_ * 2, size_ + most);
        std::unique_ptr<std::uint8_t[]> wider{new std::uint8_t[capacity]};  // not zeroed: it is written before it is read
        if (size_ > 0) std::memcpy(wider.get(), bytes_.get(), size_);
        bytes_ = std::move(wider);
        capacity_ = capacity;
    }

    std::unique_ptr<std::uint8_t[]> bytes_;
    std::size_t size_ = 0;
    std::size_t capacity_ = 0;
};

// Bytes owned by somebody else, which must outlive the reader. Thread: one at a time.
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
