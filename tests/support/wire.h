// Frames and sockets according to docs/wire.md, written by hand without the platform's code: for tests, campaign and benchmarks.
#pragma once

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace testing_support {

using Bytes = std::vector<std::uint8_t>;

inline constexpr std::size_t headerSize = 16;
enum FrameType : std::uint8_t { hello = 1, request = 2, next = 3, error = 4, completed = 5, cancel = 6 };
inline constexpr std::uint8_t oneShotFlag = 1;  // of a request
inline constexpr std::uint8_t endFlag = 2;      // of a next

inline std::uint64_t numberAt(const std::uint8_t* at, std::size_t size) {
    std::uint64_t value = 0;
    for (std::size_t i = 0; i < size; ++i) value |= std::uint64_t{at[i]} << (8 * i);
    return value;
}
inline void putNumber(std::uint8_t* at, std::uint64_t value, std::size_t size) {
    for (std::size_t i = 0; i < size; ++i) at[i] = static_cast<std::uint8_t>(value >> (8 * i));
}

// The size of the frame that begins here; 0 while it is not complete.
inline std::size_t wholeFrame(const std::uint8_t* bytes, std::size_t size) {
    if (size < headerSize) return 0;
    const std::size_t whole = headerSize + numberAt(bytes, 4);
    return size < whole ? 0 : whole;
}

// Writes the head of a CBOR text, unsigned integer or map, with a number below 64 Ki.
inline void appendCborHead(Bytes& out, unsigned major, std::size_t value) {
    const unsigned type = major << 5U;
    const auto put = [&](std::size_t byte) { out.push_back(static_cast<std::uint8_t>(byte)); };
    if (value < 24) return put(type | value);
    put(type | (value < 256 ? 24U : 25U));
    if (value >= 256) put(value >> 8U);
    put(value);
}
inline void appendCborText(Bytes& out, std::string_view text) {
    appendCborHead(out, 3, text.size());
    out.insert(out.end(), text.begin(), text.end());
}

// A body. `number`: a field with a number, which comes first; left out if its key is empty.
using NumberField = std::pair<std::string_view, std::size_t>;
using TextFields = std::initializer_list<std::pair<std::string_view, std::string_view>>;
inline Bytes fieldMap(NumberField number, TextFields fields, std::string_view payload = {}) {
    Bytes body;
    appendCborHead(body, 5, fields.size() + (number.first.empty() ? 0 : 1));
    if (!number.first.empty()) {
        appendCborText(body, number.first);
        appendCborHead(body, 0, number.second);
    }
    for (const auto& [key, value] : fields) {
        appendCborText(body, key);
        appendCborText(body, value);
    }
    body.insert(body.end(), payload.begin(), payload.end());
    return body;
}
inline Bytes textMap(TextFields fields, std::string_view payload = {}) {
    return fieldMap({}, fields, payload);
}

inline Bytes frame(std::uint8_t type, std::uint8_t flags, std::uint64_t id, const Bytes& body) {
    Bytes out(headerSize + body.size());
    putNumber(out.data(), body.size(), 4);
    out[4] = type;
    out[5] = flags;
    putNumber(out.data() + 8, id, 8);
    std::copy(body.begin(), body.end(), out.begin() + headerSize);
    return out;
}
inline Bytes helloFrame(std::string_view servicePath, std::size_t version = 1, std::string_view application = "raw") {
    return frame(hello, 0, 0, fieldMap({"$version", version}, {{"$application", application}, {"$service-path", servicePath}}));
}
inline Bytes helloAnswer(std::string_view application = "raw", std::string_view mimeTypes = "application/json") {
    return frame(hello, 0, 0, fieldMap({"$version", 1}, {{"$application", application}, {"$mime-types", mimeTypes}}));
}
inline Bytes requestFrame(std::uint64_t id, std::string_view command, std::string_view path, bool oneShot = true,
                          std::string_view payload = {}) {
    return frame(request, oneShot ? oneShotFlag : 0, id,
                 textMap({{"$request-command", command}, {"$request-path", path}, {"$mime-type", "application/json"}}, payload));
}
inline Bytes answerFrame(std::uint8_t type, std::uint8_t flags, std::uint64_t id, unsigned status, std::string_view payload,
                         std::string_view mimeType = "application/json") {
    if (type == completed || type == cancel) return frame(type, flags, id, {});
    return frame(type, flags, id, fieldMap({"$status", status}, {{"$mime-type", mimeType}}, payload));
}

// A socket that `use` has bound or connected to the path's address (`use` returns 0 on success); otherwise -1 with errno.
template <class Use>
int socketAt(const std::string& path, Use use) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    errno = ENAMETOOLONG;
    if (path.size() >= sizeof address.sun_path) return -1;
    std::memcpy(address.sun_path, path.c_str(), path.size());
    const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd >= 0 && use(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) return fd;
    const int fault = errno;
    if (fd >= 0) ::close(fd);
    errno = fault;
    return -1;
}
inline int connectTo(const std::string& path) {
    return socketAt(path, [](int fd, const sockaddr* address, socklen_t size) { return ::connect(fd, address, size); });
}
inline int listenAt(const std::string& path) {
    return socketAt(path, [](int fd, const sockaddr* address, socklen_t size) {
        return ::bind(fd, address, size) == 0 ? ::listen(fd, 128) : -1;
    });
}

}  // namespace testing_support
