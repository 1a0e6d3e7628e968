// The inspector's page: the files of one directory, read once.
#pragma once

#include <cstddef>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "http_server.h"

namespace hmxgateway {

// A file of the page. Thread: any (a value).
struct PageFile {
    std::string content;
    std::string_view mediaType;
    std::string tag;         // as an ETag
    bool isLasting = false;  // its name changes with its content
};

// Thread: the gateway's.
class Page {
public:
    // No page.
    Page() = default;
    // The files below the directory, with no link followed out of it or within. Errors: std::runtime_error.
    explicit Page(const std::string& directory);

    // Null when there is none. `path`: "assets/index.js"; the page itself is "".
    [[nodiscard]] const PageFile* find(const std::string& path) const;
    std::size_t size() const noexcept { return files_.size(); }

private:
    void read(int directory, const std::string& prefix);

    std::map<std::string, PageFile, std::less<>> files_;
    std::size_t bytes_ = 0;
};

// Where the page lies if nobody says: beside the program as it is built, or installed. "" when it is in neither place.
[[nodiscard]] std::string usualPage(const std::string& program);

// An ETag for this content. Thread: any.
[[nodiscard]] std::string tagOf(std::string_view content);
// Whether an If-None-Match header names the tag. Thread: any.
[[nodiscard]] bool namesTag(std::string_view ifNoneMatch, std::string_view tag);

}  // namespace hmxgateway
