// Resource handlers by root path: what is published under one service path.
#pragma once

#include <mutex>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace kelo {

class IResourceHandler;

// Thread: any. Handlers are not owned and outlive the service.
class SimpleComposedKeloService {
public:
    // 0, or a non-zero result with the reason in the error store: the root path must be "/" and one part, and new. The root path
    // "/" takes what no other takes.
    int registerService(std::string_view rootPath, IResourceHandler* handler);
    // The handler whose root path is the path's first part; null when there is none.
    IResourceHandler* find(std::string_view path) const;

private:
    IResourceHandler* findLocked(std::string_view rootPath) const noexcept;

    mutable std::mutex mutex_;
    std::vector<std::pair<std::string, IResourceHandler*>> handlers_;  // few, so that a look at each is quickest
};

}  // namespace kelo
