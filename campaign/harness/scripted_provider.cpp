#include "harness/scripted_provider.h"

#include <poll.h>

#include <cstdio>
#include <utility>

namespace campaign {
namespace {

constexpr int lookPause = 20;

bool isReadable(int fd) {
    pollfd ready{fd, POLLIN, 0};
    return ::poll(&ready, 1, lookPause) > 0;
}

}  // namespace

ScriptedProvider::ScriptedProvider(const std::string& path, Script script, Bytes hello)
    : script_{std::move(script)}, hello_{std::move(hello)} {
    listener_ = listenAt(path + ".new");
    if (listener_ < 0 || ::rename((path + ".new").c_str(), path.c_str()) != 0) throw Failure{"cannot listen at " + path};
    thread_ = std::thread{[this] { run(); }};
}

ScriptedProvider::~ScriptedProvider() {
    isOver_ = true;
    thread_.join();
    ::close(listener_);
}

void ScriptedProvider::run() {
    while (!isOver_) {
        if (!isReadable(listener_)) continue;
        const testing_support::RawPeer peer{::accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC)};
        if (peer.isOpen()) serve(peer.fd());
    }
}

void ScriptedProvider::serve(int fd) {
    const Send send = [fd](const Bytes& bytes) { ::send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL); };
    FrameReader reader;
    while (!isOver_) {
        if (!isReadable(fd)) continue;
        if (!reader.receive(fd)) return;
        while (const auto frame = reader.take()) {
            if (frame->type == hello) {
                send(hello_);
            } else {
                script_(*frame, send);
            }
        }
    }
}

}  // namespace campaign
