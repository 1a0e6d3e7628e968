#include "kelo/composed_service.h"

#include "kelo/errors.h"

namespace kelo {
namespace {

enum Result : int { registered = 0, badRootPath = 1, rootPathTaken = 2, noHandler = 3 };

int fail(Result result, std::string_view rootPath, std::string_view why) {
    std::ErrorOutput{errors::Error, errors::badRequest, "root path '" + std::string{rootPath} + "' " + std::string{why}};
    return result;
}

}  // namespace

int SimpleComposedKeloService::registerService(std::string_view rootPath, IResourceHandler* handler) {
    if (handler == nullptr) return fail(noHandler, rootPath, "has no handler");
    if (rootPath.empty() || rootPath.front() != '/' || rootPath.find('/', 1) != std::string_view::npos) {
        return fail(badRootPath, rootPath, "is not \"/\" and one part");
    }
    const std::lock_guard lock{mutex_};
    if (findLocked(rootPath) != nullptr) return fail(rootPathTaken, rootPath, "is registered already");
    handlers_.emplace_back(rootPath, handler);
    return registered;
}

IResourceHandler* SimpleComposedKeloService::find(std::string_view path) const {
    if (path.empty() || path.front() != '/') return nullptr;
    const std::string_view root = path.substr(0, path.find('/', 1));
    const std::lock_guard lock{mutex_};
    IResourceHandler* const handler = findLocked(root);
    return handler != nullptr ? handler : findLocked("/");
}

IResourceHandler* SimpleComposedKeloService::findLocked(std::string_view rootPath) const noexcept {
    for (const auto& [path, handler] : handlers_) {
        if (path == rootPath) return handler;
    }
    return nullptr;
}

}  // namespace kelo
