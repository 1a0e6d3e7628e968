// Documents of any shape, written by hand: what the tests of every encoding have in common.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

#include "support/any_value.h"
#include "support/documents.h"

namespace any_document {

using support::MimeTypeID;

// The cases of a list: separated by bars and newlines, without surrounding blanks.
inline std::vector<std::string_view> casesOf(std::string_view list) {
    std::vector<std::string_view> cases;
    while (!list.empty()) {
        const std::size_t end = std::min(list.find_first_of("|\n"), list.size());
        std::string_view one = list.substr(0, end);
        one.remove_prefix(std::min(one.find_first_not_of(' '), one.size()));
        one.remove_suffix(one.size() - (one.find_last_not_of(' ') + 1));
        if (!one.empty()) cases.push_back(one);
        list.remove_prefix(std::min(end + 1, list.size()));
    }
    return cases;
}

inline std::string fromHex(std::string_view hex) {
    std::string bytes;
    unsigned digits = 0;
    for (const char c : hex) {
        if (c == ' ') continue;
        const auto digit = static_cast<unsigned>(c <= '9' ? c - '0' : c - 'a' + 10);
        if (digits++ % 2 == 0) {
            bytes += static_cast<char>(digit << 4U);
        } else {
            bytes.back() = static_cast<char>(static_cast<unsigned char>(bytes.back()) | digit);
        }
    }
    return bytes;
}

// Why the bytes are not a document; "" if they are one. They are in memory of exactly their size, so that a sanitizer detects
// reading beyond them.
inline std::string read(MimeTypeID mimeType, std::string_view document, support::Any& any) {
    const std::vector<char> bytes{document.begin(), document.end()};
    return support::readDocument(mimeType, {bytes.data(), bytes.size()}, any);
}
inline std::string skip(MimeTypeID mimeType, std::string_view document) {
    const std::vector<char> bytes{document.begin(), document.end()};
    const auto reader = kelo::serializer::Factory::createDeserializer(mimeType);
    const bool failed = reader->start(util::ByteBufferReader{std::string_view{bytes.data(), bytes.size()}}) ||
                        reader->skipValue() || reader->finish();
    return failed ? std::ErrorStorage::takeReason() : "";
}

inline void expectDocument(MimeTypeID mimeType, std::string_view document, const nlohmann::json& expected) {
    support::Any any;
    EXPECT_EQ(read(mimeType, document, any), "");
    EXPECT_EQ(any.value, expected);
    EXPECT_EQ(skip(mimeType, document), "");
}

inline void expectRefused(MimeTypeID mimeType, std::string_view document) {
    support::Any any;
    EXPECT_NE(read(mimeType, document, any).find(" at byte "), std::string::npos) << any.value;
    EXPECT_NE(skip(mimeType, document).find(" at byte "), std::string::npos);
}

inline void expectPrefixesRefused(MimeTypeID mimeType, std::string_view document) {
    for (std::size_t size = 0; size < document.size(); ++size) {
        SCOPED_TRACE(size);
        expectRefused(mimeType, document.substr(0, size));
    }
}

// The same document in several forms, in hexadecimal. For encodings in which no document is a prefix of another one.
struct Forms {
    const char* expected;  // as JSON
    const char* list;
};
inline void expectForms(MimeTypeID mimeType, std::initializer_list<Forms> documents) {
    for (const auto& [expected, list] : documents) {
        for (const auto hex : casesOf(list)) {
            SCOPED_TRACE(hex);
            const std::string document = fromHex(hex);
            expectDocument(mimeType, document, nlohmann::json::parse(expected));
            expectPrefixesRefused(mimeType, document);
            expectRefused(mimeType, document + '\0');
        }
    }
}

// Well-formed maps whose keys are not strings: allowed only in what is skipped.
inline void expectOnlySkipped(MimeTypeID mimeType, std::string_view list) {
    for (const auto hex : casesOf(list)) {
        SCOPED_TRACE(hex);
        support::Any any;
        EXPECT_EQ(skip(mimeType, fromHex(hex)), "");
        EXPECT_NE(read(mimeType, fromHex(hex), any), "");
    }
}

}  // namespace any_document
