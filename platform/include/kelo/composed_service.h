// Resource handlers by root path: what is published under one service path.
#pragma once

#include <map>
#include <mutex>
#include <string>
#include <string_view>

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
    mutable std::mutex mutex_;
    std::map<std::string, IResourceHandler*, std::less<>> handlers_;
};

}  // namespace kelo
