#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <future>
#include <map>
#include <memory>
#include <optional>
#include <utility>

#include "comm/active_object.h"
#include "kelo/commands.h"
#include "kelo/errors.h"
#include "kelo/runtime/kelo_runtime.h"
#include "kelo/serializer/factory.h"
#include "kelo/std/global_error_handler.h"
#include "runtime/context.h"
#include "runtime/directory_watch.h"
#include "runtime/domain.h"
#include "runtime/publication.h"
#include "runtime/service_watch.h"
#include "runtime/status.h"
#include "runtime/status_log.h"
#include "runtime/supervision.h"
#include "runtime/trace_control.h"
#include "tracing/channel.h"
#include "tracing/client_helper.h"
#include "tracing/levels.h"
#include "tracing/sink_module.h"
#include "util/text.h"

// The runtime is one worker, and everything about the directory belongs to it: watches, publications, the clients' sockets. Calls
// from other threads are passed to that worker. Calls that end something wait for it there, so that no callback is running any
// more when they return.
//
// Handles are numbers that are never used again. Those of trackers and registrations share one number space, because
// `trackService` and `registerService` return the same kind of handle.
//
// The policy is read at the start, and again when its files change and when somebody asks for it. A process that publishes
// watches them; if the directory does not exist, the one that it would be in, or the one above that. One that only asks looks
// whether they have changed before it connects, because watches are scarce and such processes are many. Files that are being
// replaced change one after the other, so they are read a moment after the last change.
//
// The runtime's thread waits for nobody, so any thread may wait for it. A connection that a worker reads leaves that worker on
// the worker's own thread, in its own time: ending a tracker or a resolver only states what is wanted. The calling thread then
// waits until that has happened, but only if it runs no loop itself: two workers waiting for each other would wait for ever.
// Ending the runtime always waits, because everything that its connections refer to is destroyed with it. The runtime's own
// thread never waits; what it leaves unfinished, the destructor waits for.

namespace kelo::runtime {
namespace {

const tracing::Channel channel{"KELO_RUNTIME"};

constexpr std::chrono::milliseconds directoryPause{100};
constexpr std::chrono::milliseconds policyPause{50};
constexpr std::chrono::milliseconds removalPause{20};  // a process that removes a directory tree removes the parent next

std::string join(const std::vector<std::string>& items) {
    std::string list;
    for (const auto& item : items) list += (list.empty() ? "" : ",") + item;
    return list;
}

// Runs `function` on the worker and waits for it; at once if the calling thread is the worker. Exceptions are passed to the
// caller.
template <class F>
void runOn(comm::ActiveObject& worker, F function) {
    if (worker.isCurrentThread()) {
        function();
        return;
    }
    if (net::ThreadLending::isThreadLent()) {
        std::GlobalErrorHandler::doAbort("runtime", "runOn", "an event that was said to be brief waits for the runtime");
    }
    std::promise<void> done;
    worker.loop().post([&] {
        try {
            function();
            done.set_value();
        } catch (...) {
            done.set_exception(std::current_exception());
        }
    });
    done.get_future().get();
}

class Runtime final : public IKeloRuntime {
public:
    explicit Runtime(RuntimeOptions options, bool isService = false)
        : options_{std::move(options)},
          isService_{isService},
          worker_{std::make_unique<comm::ActiveObject>("kelo.runtime")},
          context_{worker_->loop(),
                   domainDirectory(options_),
                   options_.applicationName,
                   join(options_.mimeTypes),
                   options_.limits,
                   counters_,
                   std::make_shared<net::Shares>(options_.limits),
                   policy::PolicySource{policy::policyDirectory(options_.policyDirectory)},
                   {},
                   [this] { applyPolicySoon(); }} {}

    ~Runtime() override { stop(); }

    bool start(int /*flags*/) override {
        bool started = false;
        std::string error;
        runOn(*worker_, [&] { started = begin(error); });
        if (!started) {
            tracing::logC(channel, 4, error.c_str());
            std::ErrorOutput{errors::Error, errors::readFailure, error};
        }
        return started;
    }

    void stop() override {
        if (Runtime* self = this; dumped.compare_exchange_strong(self, nullptr)) {
            tracing::sink_module::setStatusDump(nullptr, nullptr);
        }
        std::vector<Connection> connections;
        runOn(*worker_, [&] {
            if (!std::exchange(stopped_, true)) {
                for (auto& [handle, publication] : publications_) publication->end();
                publications_.clear();
                for (auto& [path, watch] : watches_) abandon(std::move(watch), "runtime stopped");
                watches_.clear();
                if (directoryWatch_) directoryWatch_->stop();
                directoryWatch_.reset();
                directoryRetry_.reset();
                context_.changed = {};
                supervision_.reset();
                if (policyWatch_) policyWatch_->stop();
                policyWatch_.reset();
                policySettled_.reset();
                context_.turns.reset();
            }
            for (const auto& [connection, watch] : closing_) connections.push_back(connection);
        });
        if (worker_->isCurrentThread()) return;
        for (const auto& connection : connections) connection->end("runtime stopped");  // at once if this thread is the reader
        for (const auto& connection : connections) connection->awaitSettled();
        runOn(*worker_, [&] { closing_.clear(); });
    }

    std::uint64_t trackService(std::string_view path, IKeloServiceTracker& tracker, int /*flags*/) override {
        const std::uint64_t handle = nextHandle_++;
        worker_->loop().post([this, handle, path = std::string{path}, &tracker]() noexcept {
            if (stopped_) return;
            auto& watch = watches_[path];
            if (!watch) watch = std::make_shared<ServiceWatch>(context_, path);
            trackerPaths_[handle] = path;
            watch->addTracker(handle, tracker);
            context_.noteChange();
        });
        return handle;
    }

    void untrackService(std::uint64_t trackerHandle) override {
        Connection moving;
        runOn(*worker_, [&] {
            const auto path = trackerPaths_.find(trackerHandle);
            if (path == trackerPaths_.end()) return;
            const auto watch = watches_.find(path->second);
            trackerPaths_.erase(path);
            if (watch == watches_.end()) return;
            moving = watch->second->connection();
            watch->second->removeTracker(trackerHandle);
            removeIfUnused(watch);
        });
        awaitSettled(moving);
    }

    void releaseService(std::uint64_t /*trackerHandle*/) override {
        // Only the connection is held of an incarnation, and that has ended by the time its loss is reported.
    }

    std::uint64_t openResolver(const KeloServiceTrackerInfo& info, IKeloServiceResolver& resolver,
                               comm::ActiveObject* reader) override {
        std::uint64_t handle = UNDEFINED_RESOLVER_HANDLE;
        runOn(*worker_, [&] {
            const auto watch = watches_.find(info.servicePath);
            if (stopped_ || watch == watches_.end()) return;
            handle = nextHandle_++;
            resolverPaths_[handle] = info.servicePath;
            watch->second->addResolver(handle, resolver, reader);
        });
        return handle;
    }

    void closeResolver(std::uint64_t resolverHandle) override {
        Connection moving;
        runOn(*worker_, [&] {
            const auto path = resolverPaths_.find(resolverHandle);
            if (path == resolverPaths_.end()) return;
            const auto watch = watches_.find(path->second);
            resolverPaths_.erase(path);
            if (watch == watches_.end()) return;
            moving = watch->second->connection();
            watch->second->removeResolver(resolverHandle);
            removeIfUnused(watch);
        });
        awaitSettled(moving);
    }

    std::uint64_t registerService(std::string_view path, SimpleComposedKeloService& service,
                                  IKeloServiceTracker* tracker) override {
        const std::uint64_t handle = nextHandle_++;
        worker_->loop().post([this, handle, path = std::string{path}, &service, tracker]() noexcept {
            if (stopped_) return;
            auto publication = std::make_shared<Publication>(
                context_, path, service, tracker,
                [this](const Request& request, IResponder& responder) { answerPlatform(request, responder); });
            publications_.emplace(handle, publication);
            if (started_) {
                watchPolicy();
                publication->begin();
            }
            context_.noteChange();
        });
        return handle;
    }

    void unregisterService(std::uint64_t trackerHandle) override {
        runOn(*worker_, [&] {
            const auto publication = publications_.find(trackerHandle);
            if (publication == publications_.end()) return;
            const auto ended = publication->second;
            publications_.erase(publication);
            ended->end();
        });
    }

    void reloadPolicy() override {
        worker_->loop().post([this]() noexcept {
            if (!stopped_ && started_ && context_.policy.reload()) applyPolicy();
        });
    }

private:
    using Connection = std::shared_ptr<net::ClientConnection>;
    // No longer tracked but possibly still read. Its API must exist for handlers that end with the connection.
    struct ClosingService {
        Connection connection;
        std::shared_ptr<ServiceWatch> watch;
    };
    using Watches = std::map<std::string, std::shared_ptr<ServiceWatch>, std::less<>>;

    bool begin(std::string& error) {
        if (started_) return true;
        if (options_.directory.empty() && !isDomainName(options_.domain)) {
            error = "'" + options_.domain + "' is not the name of a domain";
            return false;
        }
        const bool isNew = ::access(context_.directory.c_str(), F_OK) != 0;
        bool transient = false;
        (void)context_.policy.reload();
        if (!context_.turns) context_.turns.emplace(context_.loop, context_.limits);
        if (!openAndWatch(error, transient) && !transient) return false;
        started_ = true;
        if (isService_) beSupervised();
        if (!publications_.empty()) watchPolicy();
        // A service always logs its directory. The runtime of a client does so only if the directory is new, because the name may
        // be mistyped.
        constexpr int always = 2;
        constexpr int onRequest = 1;
        tracing::logCV(channel, isService_ || isNew ? always : onRequest, "runtime directory %s%s", context_.directory.c_str(),
                       isNew ? ", which is new" : "");
        if (Runtime* none = nullptr; dumped.compare_exchange_strong(none, this)) {
            tracing::sink_module::setStatusDump([](void* self) { static_cast<Runtime*>(self)->logStatus(); }, this);
        }
        worker_->loop().lendThread();
        if (!directoryWatch_) {
            retryDirectory(error, directoryPause);
            return true;
        }
        rescan();
        return true;
    }

    // Opens the directory, creating it if necessary, and watches it. `transient`: failed because of something that may change.
    bool openAndWatch(std::string& error, bool& transient) {
        errno = 0;
        net::Descriptor directory = openDomain(context_.directory, true, context_.policy, error);
        if (directory) {
            DirectoryWatch::Events events;
            events.changed = [this](std::string_view name) { fileChanged(name); };
            events.uncertain = [this] { rescan(); };
            events.gone = [this] {
                directoryWatch_.reset();
                context_.domain.reset();
                retryDirectory("the runtime directory " + context_.directory + " was removed", removalPause);
            };
            auto watch = std::make_shared<DirectoryWatch>(context_.loop, std::move(events));
            if (watch->watch(context_.directory, directory.get())) {
                context_.domain = std::move(directory);
                directoryWatch_ = std::move(watch);
                return true;
            }
            error = "cannot watch the runtime directory " + context_.directory + ": " + std::strerror(errno);
        }
        const int code = errno;
        transient = code == ENOSPC || code == EDQUOT || code == EROFS || code == EMFILE || code == ENFILE || code == ENOMEM ||
                    code == ENOENT;
        return false;
    }

    // Watches the policy's directory, or the place where it would appear, and reads what has changed.
    void watchPolicy() {
        if (!isPolicyWatched_) startPolicyWatch();
        if (context_.policy.refresh()) applyPolicySoon();
    }

    void startPolicyWatch() {
        DirectoryWatch::Events events;
        events.changed = [this](std::string_view) { readPolicySoon(); };
        events.uncertain = [this] { readPolicySoon(); };
        events.gone = [this] {
            isPolicyWatched_ = false;
            readPolicySoon();
        };
        if (!policyWatch_) policyWatch_ = std::make_shared<DirectoryWatch>(context_.loop, std::move(events));
        std::string directory = context_.policy.directory();
        for (const bool isItself : {true, false, false}) {
            const net::Descriptor opened{::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)};
            using Of = DirectoryWatch::Of;
            if (opened && policyWatch_->watch(directory, opened.get(), isItself ? Of::contents : Of::names)) {
                isPolicyWatched_ = isItself;
                return;
            }
            if (opened) tracing::logCV(channel, 4, "cannot watch %s: %s", directory.c_str(), std::strerror(errno));
            directory.resize(std::min(directory.size(), directory.rfind('/')));
        }
    }

    void readPolicySoon() {
        if (stopped_) return;
        if (!policySettled_) {
            policySettled_.emplace(context_.loop, [this] { watchPolicy(); });
        }
        policySettled_->arm(net::Clock::now() + policyPause);
    }

    void applyPolicySoon() {
        context_.loop.post([this]() noexcept {
            if (!stopped_) applyPolicy();
        });
    }

    void applyPolicy() {
        for (const auto& publication : allPublications()) publication->applyPolicy();
        for (const auto& watch : allWatches()) watch->applyPolicy();
        // A directory that was refused may be safe by this policy.
        if (!context_.domain && directoryRetry_) directoryRetry_->arm(net::Clock::now());
    }

    void retryDirectory(const std::string& why, std::chrono::milliseconds pause) {
        tracing::logCV(channel, 4, "%s; making it again", why.c_str());
        if (!directoryRetry_) directoryRetry_.emplace(context_.loop, [this] { tryDirectory(); });
        directoryRetry_->arm(net::Clock::now() + pause);
    }

    void tryDirectory() {
        std::string error;
        bool transient = false;
        if (openAndWatch(error, transient)) {
            lastDirectoryError_.clear();
            rescan();
            return;
        }
        if (std::exchange(lastDirectoryError_, error) != error) tracing::logCV(channel, 4, "%s; trying again", error.c_str());
        directoryRetry_->arm(net::Clock::now() + directoryPause);
    }

    void fileChanged(std::string_view fileName) {
        for (const auto& watch : allWatches()) {
            if (watch->fileName() == fileName) watch->checkDirectory();
        }
        for (const auto& publication : allPublications()) {
            if (fileName.starts_with(publication->fileName())) publication->checkDirectory();
        }
    }

    void rescan() {
        for (const auto& watch : allWatches()) watch->checkDirectory();
        for (const auto& publication : allPublications()) {
            if (publication->isPublished()) {
                publication->checkDirectory();
            } else {
                publication->begin();
            }
        }
    }

    // Copies, because callbacks may add and remove.
    std::vector<std::shared_ptr<ServiceWatch>> allWatches() const {
        std::vector<std::shared_ptr<ServiceWatch>> all;
        for (const auto& [path, watch] : watches_) all.push_back(watch);
        return all;
    }
    std::vector<std::shared_ptr<Publication>> allPublications() const {
        std::vector<std::shared_ptr<Publication>> all;
        for (const auto& [handle, publication] : publications_) all.push_back(publication);
        return all;
    }

    void removeIfUnused(Watches::iterator watch) {
        if (!watch->second->isUnused()) return;
        abandon(std::move(watch->second), "no longer tracked");
        watches_.erase(watch);
    }

    void abandon(std::shared_ptr<ServiceWatch>&& entry, const char* why) {
        const std::shared_ptr<ServiceWatch> watch = std::move(entry);
        std::erase_if(closing_, [](const ClosingService& each) { return each.connection->isOver(); });
        const Connection connection = watch->connection();
        if (connection) closing_.push_back({connection, watch});
        watch->abandon(why);
    }

    static void awaitSettled(const Connection& connection) {
        if (connection && net::Loop::current() == nullptr) connection->awaitSettled();
    }

    void beSupervised() {
        tracing::reloadThresholds();
        Supervision::Duties duties;
        duties.reload = [this] { reload(); };
        duties.end = [this] { endProcess(); };
        supervision_.emplace(context_.loop, std::move(duties));
        context_.changed = [this] { reportState(); };
        reportState();
    }

    // Reads again what an administrator may have changed.
    void reload() {
        tracing::reloadThresholds();
        reloadPolicy();
        tracing::logC(channel, 2, "SIGHUP: settings were read again");
    }

    // Nothing has to be saved, so nobody is waited for, neither peers nor our own workers, which may be stuck. The clients'
    // connections are ended here and not by the kernel, because then their places in the directory are free at the same time.
    [[noreturn]] void endProcess() {
        tracing::logC(channel, 2, "SIGTERM: the process ends");
        supervision_->reportEnd();
        for (const auto& [handle, publication] : publications_) publication->end();
        tracing::client_helper::getClient().flush(true);
        tracing::sink_module::close();
        std::_Exit(0);
    }

    // For the supervisor: the services that are published, and those that are missing.
    void reportState() {
        std::string published, unpublished, awaited, lost;
        const auto add = [](std::string& list, const std::string& path) { list += (list.empty() ? "" : ", ") + path; };
        for (const auto& [handle, publication] : publications_) {
            add(publication->isPublished() ? published : unpublished, publication->servicePath());
        }
        for (const auto& [path, watch] : watches_) {
            if (!watch->isAlive()) add(watch->info().incarnation == 0 ? awaited : lost, path);
        }
        std::string state;
        for (const auto& [title, list] : {std::pair<const char*, const std::string&>{"serving ", published},
                                          {"waiting to publish ", unpublished},
                                          {"waiting for ", awaited},
                                          {"lost ", lost}}) {
            if (!list.empty()) state += (state.empty() ? "" : "; ") + (title + list);
        }
        supervision_->report(std::move(state), !published.empty() && unpublished.empty());
    }

    void answerPlatform(const Request& request, IResponder& responder) {
        const int command = commands::toId(request.command());
        if (request.path() == tracePath && command == commands::retrieve) return answerTraceLevels(request, responder);
        if (request.path() == tracePath && command == commands::update) return changeTraceLevels(request, responder);
        if (request.path() != "/$platform/status" || command != commands::retrieve) {
            responder.error(Response::createErrorResponse(
                404, "the platform answers 'retrieve' of '/$platform/status', 'retrieve' and 'update' of '/$platform/trace'"));
            return;
        }
        Status status;
        status.application = context_.applicationName;
        status.directory = context_.directory;
        status.limits = context_.limits;
        const auto& faults = context_.policy.faults();
        status.policy = {context_.policy.directory(), context_.policy.current(), faults.empty() ? "" : faults.front().toString()};
        if (context_.policy.current()->isInForce) status.users = context_.turns->users();
        for (const auto& [path, watch] : watches_) {
            status.tracked.push_back(
                {path, watch->isAlive() ? watch->info() : KeloServiceTrackerInfo{}, watch->isAlive(), watch->usage()});
        }
        for (const auto& [handle, publication] : publications_) {
            status.published.push_back({publication->servicePath(), publication->isPublished(), publication->usage()});
        }
        answerStatus(status, counters_, request, responder);
    }

    // Thread: any.
    void logStatus() {
        worker_->loop().post([this] {
            StatusLog log;
            answerPlatform(Request{"retrieve", "/$platform/status"}, log);
        });
    }

    // The runtime whose status is logged: the first one of the process that was started.
    static inline std::atomic<Runtime*> dumped{nullptr};

    const RuntimeOptions options_;
    const bool isService_;  // the process's own runtime, not one that a client created for itself
    Counters counters_;
    std::atomic<std::uint64_t> nextHandle_{1};
    std::unique_ptr<comm::ActiveObject> worker_;
    Context context_;

    // Only for the worker's thread:
    bool started_ = false;
    bool stopped_ = false;
    std::optional<Supervision> supervision_;
    std::shared_ptr<DirectoryWatch> directoryWatch_;
    std::optional<net::Timer> directoryRetry_;
    std::string lastDirectoryError_;
    std::shared_ptr<DirectoryWatch> policyWatch_;
    bool isPolicyWatched_ = false;  // itself, not the place where it would be
    std::optional<net::Timer> policySettled_;
    Watches watches_;
    std::vector<ClosingService> closing_;
    std::map<std::uint64_t, std::string> trackerPaths_;
    std::map<std::uint64_t, std::string> resolverPaths_;
    std::map<std::uint64_t, std::shared_ptr<Publication>> publications_;
};

std::unique_ptr<IKeloRuntime>& processRuntime() {
    static std::unique_ptr<IKeloRuntime> runtime;
    return runtime;
}

}  // namespace

std::unique_ptr<IKeloRuntime> createRuntime(RuntimeOptions options) {
    return std::make_unique<Runtime>(std::move(options));
}

void KeloRuntime::setup(std::string_view domain, std::string_view applicationName) {
    RuntimeOptions options;
    options.domain = domainName(domain);
    options.applicationName = applicationName;
    processRuntime() = std::make_unique<Runtime>(std::move(options), /*isService=*/true);
}

IKeloRuntime* KeloRuntime::getInstance() {
    if (!processRuntime()) std::GlobalErrorHandler::doAbort("runtime", "getInstance", "KeloRuntime::setup has not been called");
    return processRuntime().get();
}

std::string_view getMimeType(std::string_view acceptHeader) noexcept {
    while (!acceptHeader.empty()) {
        const auto id = mimetypes::typename2id(util::takeEntry(acceptHeader));
        if (mimetypes::isStructured(id)) return mimetypes::id2typename(id);
    }
    return mimetypes::applicationJson;
}

std::string_view getMimeType(const KeloServiceTrackerInfo& info) noexcept {
    for (const auto& name : info.mimeTypes) {
        const auto id = mimetypes::typename2id(name);
        if (mimetypes::isStructured(id)) return mimetypes::id2typename(id);
    }
    return mimetypes::applicationJson;
}

std::vector<std::string> listServices(const RuntimeOptions& options, bool& failed) {
    std::vector<std::string> services;
    std::string error;
    const std::string path = domainDirectory(options);
    net::Descriptor directory = openDomain(path, false, policyFor(options), error);
    failed = !directory;
    if (failed) {
        std::ErrorOutput{errors::Error, errors::readFailure, error};
        return services;
    }
    const int fd = ::dup(directory.get());
    DIR* const entries = fd < 0 ? nullptr : ::fdopendir(fd);
    failed = entries == nullptr;
    if (failed) return services;
    while (const dirent* entry = ::readdir(entries)) {  // the stream is not shared
        auto service = servicePathOf(entry->d_name);
        if (!service.empty()) services.push_back(std::move(service));
    }
    ::closedir(entries);
    std::sort(services.begin(), services.end());
    return services;
}

}  // namespace kelo::runtime
