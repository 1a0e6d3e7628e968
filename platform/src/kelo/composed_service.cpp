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
    if (!handlers_.try_emplace(std::string{rootPath}, handler).second)
        return fail(rootPathTaken, rootPath, "is registered already");
    return registered;
}

IResourceHandler* SimpleComposedKeloService::find(std::string_view path) const {
    if (path.empty() || path.front() != '/') return nullptr;
    const std::string_view root = path.substr(0, path.find('/', 1));
    const std::lock_guard lock{mutex_};
    auto entry = handlers_.find(root);
    if (entry == handlers_.end()) entry = handlers_.find("/");
    return entry == handlers_.end() ? nullptr : entry->second;
}

}  // namespace kelo
