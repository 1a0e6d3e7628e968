#include "kelo/composed_service.h"

#include <utility>

#include "kelo/errors.h"

namespace kelo {
namespace {

enum Result : int { registered = 0, badRootPath = 1, rootPathTaken = 2, noHandler = 3 };

int fail(Result result, std::string_view rootPath, std::string_view why) {
    std::ErrorOutput{errors::Error, errors::badRequest, "root path '" + std::string{rootPath} + "' " + std::string{why}};
    return result;
}

}  // namespace

SimpleComposedKeloService::~SimpleComposedKeloService() {
    for (const Entry* entry = first_; entry != nullptr;) delete std::exchange(entry, entry->next);
}

int SimpleComposedKeloService::registerService(std::string_view rootPath, IResourceHandler* handler) {
    if (handler == nullptr) return fail(noHandler, rootPath, "has no handler");
    if (rootPath.empty() || rootPath.front() != '/' || rootPath.find('/', 1) != std::string_view::npos) {
        return fail(badRootPath, rootPath, "is not \"/\" and one part");
    }
    const std::lock_guard lock{registering_};
    if (findRoot(rootPath) != nullptr) return fail(rootPathTaken, rootPath, "is registered already");
    first_ = new Entry{std::string{rootPath}, handler, first_};
    return registered;
}

IResourceHandler* SimpleComposedKeloService::find(std::string_view path) const {
    if (path.empty() || path.front() != '/') return nullptr;
    const std::string_view root = path.substr(0, path.find('/', 1));
    IResourceHandler* const handler = findRoot(root);
    return handler != nullptr ? handler : findRoot("/");
}

IResourceHandler* SimpleComposedKeloService::findRoot(std::string_view rootPath) const noexcept {
    for (const Entry* entry = first_; entry != nullptr; entry = entry->next) {
        if (entry->rootPath == rootPath) return entry->handler;
    }
    return nullptr;
}

}  // namespace kelo
