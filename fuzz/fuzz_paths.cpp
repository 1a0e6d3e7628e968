// Any bytes as a path and a pattern, separated by the first newline: what is encoded must decode to the same, and what matches
// must have parts.
#include <string>
#include <string_view>

#include "kelo/path.h"
#include "runtime/domain.h"
#include "walk.h"

namespace {

// The number of a path's parts, counted in a different way than in the code.
int partsOf(std::string_view path) {
    int slashes = 0;
    for (const char c : path) slashes += c == '/' ? 1 : 0;
    return slashes;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view all{reinterpret_cast<const char*>(data), size};
    const std::size_t end = all.find('\n');
    const std::string_view path = all.substr(0, end);
    const std::string_view pattern = end == std::string_view::npos ? std::string_view{} : all.substr(end + 1);

    std::string part;
    std::UUID id;
    const kelo::Path asPath{path};
    for (int i = -1; i < 8; ++i) {
        const bool isThere = asPath.part(i, part);
        fuzz::require(!isThere || !asPath.rawPart(i).empty(), "a part that is decoded is there");
        if (asPath.part(i, id)) fuzz::require(isThere, "a part that is an id is a part");
    }
    if (kelo::Path::matches(path, pattern)) {
        fuzz::require(partsOf(path) == partsOf(pattern) || pattern.find('/') != 0, "what matches has as many parts");
        for (int star = 0;; ++star) {
            const int index = kelo::Path::indexIntoPathFromPattern(pattern, star);
            if (index < 0) break;
            fuzz::require(!asPath.rawPart(index).empty(), "what matches a star is a part");
        }
    }
    if (!path.empty()) {
        const std::string replaced = kelo::Path::replacePattern("/elements/*/of", {path});
        fuzz::require(kelo::Path::matches(replaced, "/elements/*/of"), "a pattern that is filled in matches itself");
        fuzz::require(kelo::Path{replaced}.part(1, part) && part == path, "an encoded part decodes to what it was");
    }
    const std::string file = kelo::runtime::socketName("/run/kelo/local", path);
    fuzz::require(file.find('/') == std::string::npos, "a socket's name stays in its directory");
    fuzz::require(!path.starts_with('/') || file.front() != '.', "a service's socket is to be seen");
    if (file.front() != '#') fuzz::require(kelo::runtime::servicePathOf(file) == path, "a socket's name tells its service path");
    return 0;
}
