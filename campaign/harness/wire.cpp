#include "harness/wire.h"

#include <cerrno>
#include <span>

#include "harness/scope.h"

namespace campaign {
namespace {

// Reads the header map of a body; the rest is the payload.
class MapReader {
public:
    explicit MapReader(std::string_view body) : body_{body} {}

    void readInto(Frame& frame) {
        if (body_.empty()) return;
        const auto [major, count, endless] = head();
        if (major != 5) throw Failure{"a body that does not begin with a map"};
        for (std::uint64_t i = 0; endless ? !takeBreak() : i < count; ++i) {
            const std::string_view key = text();
            const auto [type, value, _] = head();
            if (type == 0) {
                frame.numbers[key] = value;
            } else if (type == 3) {
                frame.texts[key] = bytes(value);
            } else {
                throw Failure{"a header field of another type"};
            }
        }
        frame.payload = body_.substr(at_);
    }

private:
    struct Head {
        unsigned major;
        std::uint64_t value;
        bool endless;
    };

    std::uint8_t byte() {
        if (at_ >= body_.size()) throw Failure{"a body that is cut short"};
        return static_cast<std::uint8_t>(body_[at_++]);
    }
    Head head() {
        const unsigned first = byte();
        const unsigned size = first & 31U;
        std::uint64_t value = size;
        if (size >= 24 && size <= 27) {
            value = 0;
            for (unsigned i = 0; i < 1U << (size - 24); ++i) value = value << 8U | byte();
        }
        return {first >> 5U, value, size == 31};
    }
    bool takeBreak() {
        if (at_ >= body_.size() || body_[at_] != '\xff') return false;
        ++at_;
        return true;
    }
    std::string_view bytes(std::uint64_t size) {
        if (size > body_.size() - at_) throw Failure{"a body that is cut short"};
        const auto found = body_.substr(at_, size);
        at_ += size;
        return found;
    }
    std::string_view text() {
        const auto [major, size, _] = head();
        if (major != 3) throw Failure{"a header key that is no text"};
        return bytes(size);
    }

    std::string_view body_;
    std::size_t at_ = 0;
};

}  // namespace

int Frame::status() const {
    const auto found = numbers.find("$status");
    return found == numbers.end() ? 0 : static_cast<int>(found->second);
}

std::string_view Frame::text(std::string_view key) const {
    const auto found = texts.find(key);
    return found == texts.end() ? std::string_view{} : found->second;
}

bool FrameReader::receive(int fd) {
    if (at_ > 0) bytes_.erase(bytes_.begin(), bytes_.begin() + static_cast<std::ptrdiff_t>(at_));
    at_ = 0;
    constexpr std::size_t room = std::size_t{256} * 1024;
    const std::size_t had = bytes_.size();
    bytes_.resize(had + room);
    const auto size = ::recv(fd, bytes_.data() + had, room, MSG_DONTWAIT);
    const int fault = errno;
    bytes_.resize(had + (size > 0 ? static_cast<std::size_t>(size) : 0));
    return size > 0 || (size < 0 && (fault == EAGAIN || fault == EINTR));
}

std::optional<Frame> FrameReader::take() {
    const std::span<const std::uint8_t> left = std::span{bytes_}.subspan(at_);
    if (left.size() >= headerSize && numberAt(left.data(), 4) > 1U << 20U) throw Failure{"a frame that is larger than the limit"};
    const std::size_t size = wholeFrame(left.data(), left.size());
    if (size == 0) return std::nullopt;
    Frame frame;
    frame.type = left[4];
    frame.flags = left[5];
    frame.id = numberAt(left.data() + 8, 8);
    if (frame.type < hello || frame.type > cancel) throw Failure{"a frame of unknown type"};
    MapReader{std::string_view{reinterpret_cast<const char*>(left.data()) + headerSize, size - headerSize}}.readInto(frame);
    at_ += size;
    return frame;
}

}  // namespace campaign
