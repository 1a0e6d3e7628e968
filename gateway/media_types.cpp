// An Accept header is a list of ranges, "text/*;q=0.5, */*;q=0.1" (RFC 9110, 12.5.1). Of an offer, the most specific range that
// it is in says how much it weighs, in thousandths; with no range it weighs nothing. A range that cannot be read says nothing.

#include "media_types.h"

#include <algorithm>
#include <array>

#include "ascii.h"
#include "kelo/mimetypes.h"
#include "util/text.h"

namespace hmxgateway {
namespace {

using kelo::mimetypes::applicationIxobin;
using kelo::mimetypes::applicationJson;
using kelo::mimetypes::applicationMsgpack;

constexpr std::array mediaTypes{
    MediaType{applicationJson, applicationJson},
    MediaType{applicationMsgpack, applicationMsgpack},
    MediaType{"application/msgpack", applicationMsgpack},
    MediaType{"application/x-msgpack", applicationMsgpack},
    MediaType{"application/cbor", applicationIxobin},
    MediaType{applicationIxobin, applicationIxobin},
    MediaType{eventStreamType, ""},
};

std::string_view trimmed(std::string_view text) {
    while (!text.empty() && (text.front() == ' ' || text.front() == '\t')) text.remove_prefix(1);
    while (!text.empty() && (text.back() == ' ' || text.back() == '\t')) text.remove_suffix(1);
    return text;
}

// "0", "1", "0.25", "1.000"; -1 for anything else.
int weightOf(std::string_view text) {
    if (text.empty() || text.size() > 5 || (text[0] != '0' && text[0] != '1') || (text.size() > 1 && text[1] != '.')) return -1;
    int weight = (text[0] - '0') * 1000;
    int digit = 100;
    for (const char c : text.substr(std::min<std::size_t>(2, text.size()))) {
        if (c < '0' || c > '9') return -1;
        weight += (c - '0') * digit;
        digit /= 10;
    }
    return weight > 1000 ? -1 : weight;
}

struct Range {
    std::string_view name;
    int weight = 1000;
};

Range readRange(std::string_view text) {
    Range range{trimmed(text.substr(0, text.find(';')))};
    for (std::size_t at = text.find(';'); at != std::string_view::npos; at = text.find(';', at + 1)) {
        const std::string_view parameter = trimmed(text.substr(at + 1, text.find(';', at + 1) - at - 1));
        if (parameter.size() > 2 && equalInAnyCase(parameter.substr(0, 2), "q=")) range.weight = weightOf(parameter.substr(2));
    }
    return range;
}

// 3: is it; 2: of its kind; 1: anything; 0: something else.
int closeness(std::string_view range, std::string_view type) {
    if (equalInAnyCase(range, type)) return 3;
    if (range == "*/*") return 1;
    const std::size_t slash = type.find('/');
    return range.ends_with("/*") && equalInAnyCase(range.substr(0, range.size() - 1), type.substr(0, slash + 1)) ? 2 : 0;
}

int weightOf(const MediaType& offer, std::string_view accept) {
    int closest = 0;
    int weight = 0;
    while (!accept.empty()) {
        const Range range = readRange(util::takeEntry(accept));
        const int close = closeness(range.name, offer.name);
        if (range.weight < 0 || close <= closest) continue;
        closest = close;
        weight = range.weight;
    }
    return weight;
}

}  // namespace

std::span<const MediaType> answerTypes() noexcept {
    return mediaTypes;
}

const MediaType* choose(std::string_view accept, std::span<const MediaType> offers) noexcept {
    if (trimmed(accept).empty()) return &offers.front();
    const MediaType* best = nullptr;
    int most = 0;
    for (const MediaType& offer : offers) {
        const int weight = weightOf(offer, accept);
        if (weight > most) best = &offer, most = weight;
    }
    return best;
}

std::string_view bodyType(std::string_view contentType) noexcept {
    const std::string_view name = trimmed(contentType.substr(0, contentType.find(';')));
    if (equalInAnyCase(name, "application/merge-patch+json")) return applicationJson;
    const auto* found = std::find_if(mediaTypes.begin(), mediaTypes.end(),
                                     [&](const MediaType& each) { return equalInAnyCase(each.name, name); });
    return found == mediaTypes.end() ? std::string_view{} : found->mimeType;
}

}  // namespace hmxgateway
