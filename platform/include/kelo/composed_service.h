// Resource handlers by root path: what is published under one service path.
#pragma once

#include <atomic>
#include <mutex>
#include <string>
#include <string_view>

namespace kelo {

class IResourceHandler;

// Thread: any. Handlers are not owned and outlive the service.
class SimpleComposedKeloService {
public:
    SimpleComposedKeloService() = default;
    SimpleComposedKeloService(const SimpleComposedKeloService&) = delete;
    SimpleComposedKeloService& operator=(const SimpleComposedKeloService&) = delete;
    ~SimpleComposedKeloService();

    // 0, or a non-zero result with the reason in the error store: the root path must be "/" and one part, and new. The root path
    // "/" takes what no other takes.
    int registerService(std::string_view rootPath, IResourceHandler* handler);
    // The handler whose root path is the path's first part; null when there is none.
    IResourceHandler* find(std::string_view path) const;

private:
    // Handlers come and never go, so the list grows at its front only, and whoever looks for one needs no lock.
    struct Entry {
        const std::string rootPath;
        IResourceHandler* const handler;
        const Entry* const next;  // owned
    };

    IResourceHandler* findRoot(std::string_view rootPath) const noexcept;

    std::mutex registering_;
    std::atomic<const Entry*> first_ = nullptr;  // owned
};

}  // namespace kelo
