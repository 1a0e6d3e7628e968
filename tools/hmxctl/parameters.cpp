#include "parameters.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>

#include "assignments.h"
#include "typed_json.h"

namespace hmxctl {
namespace {

std::span<const std::string> wordsFrom(const Context& context, std::size_t first) {
    const std::span<const std::string> words{context.arguments.words};
    return words.subspan(std::min(first, words.size()));
}

}  // namespace

Json retrieveParameters(const Context& context, const Resource& resource) {
    Json parameters;
    const std::vector<Assignment> assignments = asAssignments(wordsFrom(context, 1));
    if (assignments.empty()) return parameters;
    assign(parameters, assignments, parametersOf(resource), context.arguments.validate);
    if (context.arguments.validate) {
        checkParameters(parameters, parametersOf(resource), resource.element(), context.action());
    }
    return parameters;
}

ElementParameters elementParameters(const Context& context, const Resource& resource) {
    const bool isPopup = resource.path == "/popups";
    ElementParameters found{retrieveParameters(context, resource)};
    if (context.arguments.validate) {
        for (const auto& [key, value] : found.parameters.items()) {
            if (key == "fields" || (isPopup && key == "display")) continue;
            throw usageError(context.action() + ": " + key + " has no effect on a single element",
                             "only fields=a,b; `hmxctl list " + std::string{resource.name} + "` and `watch " +
                                 std::string{resource.name} + "` take " + key);
        }
    }
    if (isPopup && member(found.parameters, "display").is_string()) {
        found.display = text(found.parameters, "display");
        found.parameters.erase("display");
    }
    if (found.parameters.empty()) found.parameters = nullptr;
    return found;
}

ElementParameters parametersFor(const Context& context, const Target& target) {
    if (target.element.empty()) return {retrieveParameters(context, *target.resource)};
    return elementParameters(context, *target.resource);
}

Json requestBody(const Context& context, std::size_t firstWord, Members members) {
    Json body;
    const std::string& file = context.arguments.file;
    if (!file.empty()) body = parseJson(readFile(file), file == "-" ? "standard input" : file);
    const std::vector<Assignment> assignments = asAssignments(wordsFrom(context, firstWord));
    if (!assignments.empty()) assign(body, assignments, members, context.arguments.validate);
    return body;
}

std::string readFile(const std::string& path) {
    constexpr std::size_t largest = 16U << 20U;  // far above what a frame takes
    const auto failed = [&] { return usageError("cannot read " + path + ": " + std::strerror(errno)); };
    const bool standardInput = path == "-";
    const int descriptor = standardInput ? STDIN_FILENO : ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (descriptor < 0) throw failed();
    std::string content;
    std::array<char, 65536> piece{};
    ssize_t got = 0;
    while ((got = ::read(descriptor, piece.data(), piece.size())) != 0) {
        if (got < 0 && errno == EINTR) continue;
        if (got < 0 || content.size() > largest) break;
        content.append(piece.data(), static_cast<std::size_t>(got));
    }
    const int error = errno;
    if (!standardInput) ::close(descriptor);
    errno = error;
    if (got < 0) throw failed();
    if (got > 0) throw usageError(path + ": larger than a request may be");
    return content;
}

}  // namespace hmxctl
