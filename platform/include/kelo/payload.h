// The body of a request or response.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "kelo/mimetypes.h"
#include "util/byte_buffer.h"

namespace kelo {

// The name of a mime type. A known one needs no memory of its own; any other is kept as given. Thread: any (a value).
class MimeType {
public:
    MimeType() = default;
    explicit MimeType(std::string_view name) : id_{mimetypes::typename2id(name)} {
        if (id_ == mimetypes::MimeTypeID::unknown && !name.empty()) other_ = std::make_shared<const std::string>(name);
    }
    explicit MimeType(mimetypes::MimeTypeID id) noexcept : id_{id} {}

    mimetypes::MimeTypeID id() const noexcept { return id_; }
    std::string_view text() const noexcept { return other_ ? std::string_view{*other_} : mimetypes::id2typename(id_); }
    bool empty() const noexcept { return text().empty(); }

    friend bool operator==(const MimeType& a, const MimeType& b) noexcept { return a.id_ == b.id_ && a.text() == b.text(); }

private:
    mimetypes::MimeTypeID id_ = mimetypes::MimeTypeID::unknown;
    std::shared_ptr<const std::string> other_;  // the name, if there is no id for it
};

// A value that may borrow its bytes. A payload made by `borrow` or `createFromWriter`, or passed to a response handler or
// resource handler, refers to bytes of somebody else and is valid for the length of that call. A copy owns its bytes, so keeping
// a copy is always safe; moving changes nothing. Thread: one at a time.
class Payload {
public:
    Payload() = default;
    Payload(const Payload& other) : mimeType_{other.mimeType_}, owned_(other.view_.begin(), other.view_.end()), view_{owned_} {}
    Payload(Payload&& other) noexcept { *this = std::move(other); }
    Payload& operator=(const Payload& other) {
        if (this != &other) *this = Payload{other};
        return *this;
    }
    Payload& operator=(Payload&& other) noexcept {
        if (this == &other) return *this;
        mimeType_ = std::move(other.mimeType_);
        owned_ = std::move(other.owned_);  // a vector's bytes do not move when it is moved, so the view stays valid
        view_ = other.view_;
        other.owned_.clear();
        other.view_ = {};
        return *this;
    }
    ~Payload() = default;

    static Payload getEmpty() { return {}; }
    // Borrows the writer's bytes; the writer must outlive the payload and not change.
    static Payload createFromWriter(const util::ByteBufferWriter& writer, std::string_view mimeType) {
        return borrow(writer.bytes(), MimeType{mimeType});
    }
    static Payload borrow(std::span<const std::uint8_t> bytes, MimeType mimeType) {
        Payload payload;
        payload.mimeType_ = std::move(mimeType);
        payload.view_ = bytes;
        return payload;
    }
    static Payload copyOf(std::span<const std::uint8_t> bytes, MimeType mimeType) {
        const Payload borrowed = borrow(bytes, std::move(mimeType));  // a named object: only its copy owns the bytes
        return Payload{borrowed};
    }
    static Payload copyOf(std::string_view text, MimeType mimeType) {
        return copyOf({reinterpret_cast<const std::uint8_t*>(text.data()), text.size()}, std::move(mimeType));
    }

    std::span<const std::uint8_t> bytes() const noexcept { return view_; }
    std::string_view text() const noexcept { return {reinterpret_cast<const char*>(view_.data()), view_.size()}; }
    bool empty() const noexcept { return view_.empty(); }
    const MimeType& mimeType() const noexcept { return mimeType_; }
    void setMimeType(MimeType mimeType) { mimeType_ = std::move(mimeType); }
    // Borrows other bytes; the mime type stays.
    void rebind(std::span<const std::uint8_t> bytes) noexcept {
        owned_.clear();
        view_ = bytes;
    }

private:
    MimeType mimeType_;
    std::vector<std::uint8_t> owned_;
    std::span<const std::uint8_t> view_;
};

}  // namespace kelo
