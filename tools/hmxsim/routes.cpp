#include "routes.h"

namespace hmxsim {

bool readStars(const kelo::Request& request, std::string_view pattern, Call& call) {
    const kelo::Path path{request.path()};
    int star = 0;
    for (std::string* part : {&call.first, &call.second}) {
        const int index = kelo::Path::indexIntoPathFromPattern(pattern, star++);
        if (index < 0) return true;
        if (!path.part(index, *part)) return false;
    }
    return true;
}

kelo::Response badPath(const kelo::Request& request) {
    return refusal(400, "badly encoded path: " + request.path());
}

kelo::Response noSuchOperation(const kelo::Request& request) {
    return notFound("no such operation: " + request.command() + ' ' + request.path());
}

}  // namespace hmxsim
