// The runtime hands requests to the services on its own threads. The services hand them to the worker, which owns everything
// else: the world, the open requests, what is published. Shutting down goes the other way: first nothing is published any more,
// then the runtime ends, then the timers, and the worker drains last.
#include "server.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <future>

#include "kelo/func_call_event.h"
#include "tracing/channel.h"

namespace hmxsim {

namespace {

const tracing::Channel serverChannel{"HMXSIM"};

}  // namespace

Server::Server(ServerOptions options)
    : options_{std::move(options)},
      log_{std::chrono::steady_clock::now()},
      runtime_{kelo::runtime::createRuntime(options_.runtime)},
      simulator_{std::move(options_.world), Surroundings{worker_, timers_, *this, log_}, options_.seed},
      timers_{worker_},
      worker_{"hmxsim"} {
    const auto add = [&](std::string_view path, Service& service) {
        Publication& publication = publications_[used_++];
        publication.server = this;
        publication.path = path;
        publication.service = &service;
        publication.composed.registerService("/", &service);
    };
    for (const ManagerId id : options_.managers) add(servicePathOf(id), simulator_.service(id));
    add(controlPath, simulator_.controlService());
}

Server::~Server() {
    runOnWorker([this] {
        isEnding_ = true;
        for (Publication& publication : publications_) unpublish(publication);
    });
    runtime_.reset();
    timers_.stop();
}

std::string Server::start() {
    if (!options_.recordFile.empty() && log_.recordTo(options_.recordFile)) {
        return options_.recordFile + ": " + std::strerror(errno);
    }
    runOnWorker([this] {
        if (options_.replay) prepareReplay();
        for (Publication& publication : publications_) {
            if (!publication.isAway) publish(publication);
            if (publication.handle != 0) ++awaited_;
        }
    });
    if (!runtime_->start(0)) return std::ErrorStorage::takeReason();
    kelo::post(worker_, [this] {
        simulator_.control().startPlan(std::move(options_.scenario));
        if (replay_ && !isPaused_) replay_->run(true);
    });
    return {};
}

// A manager that the recording does not have is not published, and one that was away at the start is not yet.
void Server::prepareReplay() {
    const auto publicationOf = [this](ManagerId manager) {
        return std::find_if(publications_.begin(), publications_.end(),
                            [&](const Publication& each) { return each.path == servicePathOf(manager); });
    };
    isPaused_ = options_.replay->options.isPaused;
    replay_ =
        std::make_unique<Replay>(std::move(*options_.replay), simulator_.world(), timers_,
                                 Replay::Stage{.changed = [this](ManagerId manager) { simulator_.service(manager).refresh(); },
                                               .setPublished =
                                                   [this, publicationOf](ManagerId manager, bool isPublished) {
                                                       const auto publication = publicationOf(manager);
                                                       if (publication == publications_.end()) return;
                                                       isPublished ? publish(*publication) : unpublish(*publication);
                                                   },
                                               .changes =
                                                   [this] {
                                                       std::uint64_t changes = 0;
                                                       for (const ManagerId manager : allManagers)
                                                           changes += simulator_.service(manager).changes();
                                                       return changes;
                                                   }});
    simulator_.control().show(*replay_);
    for (const ManagerId manager : allManagers) {
        const auto publication = publicationOf(manager);
        if (publication != publications_.end()) publication->isAway = !replay_->isThere(manager);
    }
}

void Server::publish(Publication& publication) {
    if (isEnding_ || publication.service == nullptr || publication.handle != 0) return;
    publication.handle = runtime_->registerService(publication.path, publication.composed, &publication);
}

// Another process may have the path; then the runtime waits for it to end.
void Server::published(Publication& publication) {
    if (std::exchange(publication.wasPublished, true)) return;
    if (++published_ == awaited_ && options_.onServing) options_.onServing();
}

void Server::unpublish(Publication& publication) {
    if (publication.handle == 0) return;
    runtime_->unregisterService(std::exchange(publication.handle, 0));
    publication.service->closed();
}

// Not at once: the service is in the middle of an answer.
void Server::close(std::string_view service, std::chrono::milliseconds reopenAfter) {
    kelo::post(worker_, [this, service, reopenAfter] {
        for (Publication& publication : publications_) {
            if (publication.service == nullptr || publication.service->name() != service) continue;
            unpublish(publication);
            timers_.at(timers_.now() + reopenAfter, [this, &publication] { publish(publication); });
        }
    });
}

void Server::crash() {
    tracing::logC(serverChannel, 4, "crashing, as a fault demands");
    ::_exit(1);
}

void Server::runOnWorker(const std::function<void()>& task) {
    std::promise<void> finished;
    kelo::post(worker_, [&] {
        task();
        finished.set_value();
    });
    finished.get_future().wait();
}

}  // namespace hmxsim
