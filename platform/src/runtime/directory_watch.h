// Reports changes in a directory.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "net/descriptor.h"
#include "net/loop.h"

namespace kelo::runtime {

// Thread: the runtime's loop.
class DirectoryWatch final : public net::Pollable, public std::enable_shared_from_this<DirectoryWatch> {
public:
    struct Events {
        std::function<void(std::string_view fileName)> changed;  // a file was created, removed or replaced
        std::function<void()> uncertain;                         // reports were lost: anything may have changed
        std::function<void()> gone;                              // the directory itself was removed; nothing more is reported
    };

    DirectoryWatch(net::Loop& loop, Events events) : loop_{loop}, events_{std::move(events)} {}

    enum class Of : std::uint8_t { names, contents };  // what is reported: changes of names only, or also of what files contain

    // Starts or restarts watching the directory of that name, which is open as `opened`. False with the reason in errno.
    bool watch(const std::string& directory, int opened, Of what = Of::names);
    void stop();
    void onReady(std::uint32_t events) override;

private:
    // Whether the directory's name still leads to the directory that is watched.
    bool isInPlace() const;

    net::Loop& loop_;
    Events events_;
    net::Descriptor inotify_;
    std::string directory_;
    dev_t device_ = 0;
    ino_t inode_ = 0;
    int parentWatch_ = -1;
};

}  // namespace kelo::runtime
