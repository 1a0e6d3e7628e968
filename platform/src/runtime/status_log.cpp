#include "runtime/status_log.h"

#include <cstddef>
#include <string_view>
#include <vector>

#include "tracing/channel.h"
#include "util/line_buffer.h"

namespace kelo::runtime {

namespace {

constexpr std::size_t pieceBytes = 1000;  // some log systems cut lines of little more than that

const tracing::Channel channel{"KELO_STATUS"};

}  // namespace

bool StatusLog::next(const Response& response) {
    constexpr int level = 2;
    std::vector<std::string_view> pieces;
    for (std::string_view rest = response.payload().text(); !rest.empty(); rest.remove_prefix(pieces.back().size())) {
        const std::size_t comma = rest.size() > pieceBytes ? rest.rfind(',', pieceBytes - 1) : std::string_view::npos;
        pieces.push_back(comma == std::string_view::npos ? util::cutUtf8(rest, pieceBytes) : rest.substr(0, comma + 1));
    }
    int number = 0;
    for (const std::string_view piece : pieces) {
        tracing::logCV(channel, level, "status %i/%zu %.*s", ++number, pieces.size(), static_cast<int>(piece.size()),
                       piece.data());
    }
    return true;
}

void StatusLog::error(const Response& response) {
    tracing::logCV(channel, 4, "no status: %.*s", static_cast<int>(response.reason().size()), response.reason().data());
}

}  // namespace kelo::runtime
