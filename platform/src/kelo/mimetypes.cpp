#include "kelo/mimetypes.h"

namespace kelo::mimetypes {
namespace {

char lower(char c) noexcept {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

bool equalWithoutCase(std::string_view a, std::string_view b) noexcept {
    if (a.size() != b.size()) return false;
    for (std::size_t i = 0; i < a.size(); ++i) {
        if (lower(a[i]) != lower(b[i])) return false;
    }
    return true;
}

std::string_view trimmed(std::string_view text) noexcept {
    const auto isBlank = [](char c) { return c == ' ' || c == '\t'; };
    while (!text.empty() && isBlank(text.front())) text.remove_prefix(1);
    while (!text.empty() && isBlank(text.back())) text.remove_suffix(1);
    return text;
}

}  // namespace

MimeTypeID typename2id(std::string_view name) noexcept {
    constexpr MimeTypeID known[] = {MimeTypeID::json, MimeTypeID::msgpack, MimeTypeID::ixobin, MimeTypeID::plainText,
                                    MimeTypeID::octetStream};
    for (const auto id : known) {
        if (name == id2typename(id)) return id;  // the spelling that nearly everybody uses
    }
    name = trimmed(name.substr(0, name.find(';')));
    for (const auto id : known) {
        if (equalWithoutCase(name, id2typename(id))) return id;
    }
    return MimeTypeID::unknown;
}

std::string_view id2typename(MimeTypeID id) noexcept {
    switch (id) {
        case MimeTypeID::json:
            return applicationJson;
        case MimeTypeID::plainText:
            return plainText;
        case MimeTypeID::octetStream:
            return applicationOctetStream;
        case MimeTypeID::msgpack:
            return applicationMsgpack;
        case MimeTypeID::ixobin:
            return applicationIxobin;
        case MimeTypeID::unknown:
            break;
    }
    return {};
}

bool isStructured(MimeTypeID id) noexcept {
    return id == MimeTypeID::json || id == MimeTypeID::msgpack || id == MimeTypeID::ixobin;
}

}  // namespace kelo::mimetypes
