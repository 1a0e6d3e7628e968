#include <sys/socket.h>
#include <unistd.h>

#include <string>
#include <thread>
#include <vector>

#include "road_roles.h"
#include "road_wire.h"

namespace road {

namespace {

// One connection to one service. Thread: its own.
class Provider {
public:
    Provider(int fd, std::string_view service, Sends sends) : fd_{fd}, isPopups_{service == "/hmxpopupmanager"}, out_{sends} {
        if (service == "/hmxdisplaymanager") answer_ = traffic::displayList();
    }

    void run() {
        FrameReader reader;
        bool open = true;
        while (open && reader.receive(fd_)) {
            reader.frames([this](const Frame& frame) {
                if (frame.type() == hello) {
                    out_.add(helloAnswer());
                } else if (frame.type() == cancel) {
                    std::erase(watchers_, frame.id());
                } else if (isPopups_) {
                    answerPopup(frame);
                } else {
                    out_.add(answerFrame(next, endFlag, frame.id(), 200, answer_));
                }
            });
            open = out_.flush(fd_);
        }
        ::close(fd_);
    }

private:
    // A retrieve that is not one-shot stays open; an update is sent to all of these.
    void answerPopup(const Frame& frame) {
        const bool isUpdate = frame.body().substr(0, frame.body().find('{')).find("update") != std::string_view::npos;
        if (isUpdate) ++changes_;
        const std::string popup = R"({"name":"Incoming_Call","priorityInlayer":)" + std::to_string(changes_) +
                                  R"(,"slot":"top","isFullscreen":false,"requested":true,"active":true,"visible":)" +
                                  (changes_ % 2 == 0 ? "true}" : "false}");
        const bool isWatch = (frame.flags() & oneShotFlag) == 0 && !isUpdate;
        if (isWatch) watchers_.push_back(frame.id());
        out_.add(answerFrame(next, isWatch ? std::uint8_t{0} : endFlag, frame.id(), 200, popup));
        if (isUpdate) {
            for (const std::uint64_t watcher : watchers_) out_.add(answerFrame(next, 0, watcher, 200, popup));
        }
    }

    const int fd_;
    const bool isPopups_;
    Outbox out_;
    std::string answer_ = "{}";
    std::vector<std::uint64_t> watchers_;
    unsigned changes_ = 0;
};

void provide(int listener, std::string_view service, Sends sends) {
    for (;;) {
        const int fd = ::accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
        if (fd < 0) return;
        std::thread{[=] { Provider{fd, service, sends}.run(); }}.detach();
    }
}

}  // namespace

int playUpstream(const std::string& directory, const traffic::Options& options) {
    const Sends sends = sendsOf(options.text("sends"));
    std::vector<std::thread> threads;
    for (const char* const service : {"/hmxdisplaymanager", "/hmxinputmanager", "/hmxpopupmanager"})
        threads.emplace_back(provide, listenAt(directory, service), service, sends);
    traffic::sayReady();
    for (auto& thread : threads) thread.join();
    return 0;
}

}  // namespace road
