// Resource handlers by root path: everything that is published under one service path.
#pragma once

#include <atomic>
#include <mutex>
#include <string>
#include <string_view>

namespace kelo {

class IResourceHandler;

// Thread: any. Handlers are not owned and must outlive the service.
class SimpleComposedKeloService {
public:
    SimpleComposedKeloService() = default;
    SimpleComposedKeloService(const SimpleComposedKeloService&) = delete;
    SimpleComposedKeloService& operator=(const SimpleComposedKeloService&) = delete;
    ~SimpleComposedKeloService();

    // Returns 0, or non-zero with the reason in the error store: the root path must be "/" followed by one part, and not taken.
    // The root path "/" gets the requests that no other root path matches.
    int registerService(std::string_view rootPath, IResourceHandler* handler);
    // The handler whose root path is the first part of `path`; null if there is none.
    IResourceHandler* find(std::string_view path) const;

private:
    // Handlers are never removed and are added only at the front of the list, so `find` needs no lock.
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
