#include "parameters.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>

#include "assignments.h"

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
    assign(parameters, assignments, parametersOf(resource));
    if (context.arguments.validate) checkParameters(parameters, parametersOf(resource), context.action());
    return parameters;
}

Json requestBody(const Context& context, std::size_t firstWord, Members members) {
    Json body;
    const std::string& file = context.arguments.file;
    if (!file.empty()) body = parseJson(readFile(file), file == "-" ? "standard input" : file);
    const std::vector<Assignment> assignments = asAssignments(wordsFrom(context, firstWord));
    if (!assignments.empty()) assign(body, assignments, members);
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
    if (got > 0) throw usageError(path + ": larger than any body can be");
    return content;
}

}  // namespace hmxctl
