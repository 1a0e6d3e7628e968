// The files are read at the start and found by their names, so that no path of a request ever reaches the file system.

#include "page.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <stdexcept>

#include "gateway_limits.h"
#include "util/text.h"

namespace hmxgateway {
namespace {

struct Extension {
    std::string_view end;
    std::string_view mediaType;
};
constexpr std::array extensions{
    Extension{".html", "text/html; charset=utf-8"},
    Extension{".js", "text/javascript; charset=utf-8"},
    Extension{".css", "text/css; charset=utf-8"},
    Extension{".json", "application/json"},
    Extension{".svg", "image/svg+xml"},
    Extension{".png", "image/png"},
    Extension{".ico", "image/x-icon"},
    Extension{".woff2", "font/woff2"},
    Extension{".webmanifest", "application/manifest+json"},
    Extension{".txt", "text/plain; charset=utf-8"},
};

std::string_view mediaTypeOf(std::string_view name) {
    const auto* found =
        std::find_if(extensions.begin(), extensions.end(), [=](const Extension& each) { return name.ends_with(each.end); });
    return found == extensions.end() ? "application/octet-stream" : found->mediaType;
}

[[noreturn]] void failToRead(const std::string& what) {
    throw std::runtime_error{"cannot read the page: " + what + ": " + std::strerror(errno)};
}

std::string contentOf(int file, const std::string& name) {
    std::string content;
    std::array<char, 65536> piece{};
    ssize_t got = 0;
    while ((got = ::read(file, piece.data(), piece.size())) > 0) {
        content.append(piece.data(), static_cast<std::size_t>(got));
        if (content.size() > limits.pageBytes) throw std::runtime_error{"the page is too large: " + name};
    }
    if (got < 0) failToRead(name);
    return content;
}

}  // namespace

Page::Page(const std::string& directory) {
    const Descriptor root{::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)};
    if (!root) failToRead(directory);
    read(root.get(), "");
    if (find("") == nullptr) throw std::runtime_error{"there is no index.html in " + directory};
}

void Page::read(int directory, const std::string& prefix) {
    const int copy = ::fcntl(directory, F_DUPFD_CLOEXEC, 0);
    const std::unique_ptr<DIR, int (*)(DIR*)> entries{::fdopendir(copy), ::closedir};
    if (!entries) failToRead(prefix);
    while (const dirent* entry = ::readdir(entries.get())) {
        const std::string name{entry->d_name};
        if (name.starts_with('.')) continue;
        const Descriptor file{::openat(directory, name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC)};
        struct stat status {};
        if (!file || ::fstat(file.get(), &status) != 0) {
            if (errno == ELOOP) continue;
            failToRead(prefix + name);
        }
        if (S_ISDIR(status.st_mode)) {
            read(file.get(), prefix + name + "/");
            continue;
        }
        if (!S_ISREG(status.st_mode)) continue;
        PageFile made{contentOf(file.get(), prefix + name), mediaTypeOf(name), {}, prefix == "assets/"};
        made.tag = tagOf(made.content);
        bytes_ += made.content.size();
        files_.emplace(prefix + name, std::move(made));
        if (bytes_ > limits.pageBytes || files_.size() > limits.pageFiles) {
            throw std::runtime_error{"the page has too many or too large files: " + prefix + name};
        }
    }
}

const PageFile* Page::find(const std::string& path) const {
    const auto found = files_.find(path.empty() ? std::string_view{"index.html"} : std::string_view{path});
    return found == files_.end() ? nullptr : &found->second;
}

std::string usualPage(const std::string& program) {
    const std::filesystem::path folder = std::filesystem::path{program}.parent_path();
    // build/release/bin, and PREFIX/bin.
    for (const auto& candidate : {folder.parent_path().parent_path().parent_path() / "inspector/dist",
                                  folder.parent_path() / "share/hmxtolubridge/inspector"}) {
        std::error_code ignored;
        if (std::filesystem::is_regular_file(candidate / "index.html", ignored)) return candidate.string();
    }
    return {};
}

std::string tagOf(std::string_view content) {
    char text[24];
    std::snprintf(text, sizeof text, "\"%016zx\"", std::hash<std::string_view>{}(content));
    return text;
}

bool namesTag(std::string_view ifNoneMatch, std::string_view tag) {
    while (!ifNoneMatch.empty()) {
        std::string_view entry = util::takeEntry(ifNoneMatch);
        while (entry.starts_with(' ')) entry.remove_prefix(1);
        while (entry.ends_with(' ')) entry.remove_suffix(1);
        if (entry.starts_with("W/")) entry.remove_prefix(2);
        if (entry == "*" || entry == tag) return true;
    }
    return false;
}

}  // namespace hmxgateway
