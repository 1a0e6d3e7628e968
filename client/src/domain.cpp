// The runtime is created when the first service is needed, and every service is tracked and resolved once. A resolver is called
// on the runtime's thread. What it reports is kept under a lock, and a signal tells those who wait.
//
// How long to wait for a service that does not answer: as long as the caller wants, if the domain is patient. If not: a service
// without a socket in the domain cannot be there (except for names too long to be read back from the directory, for which a short
// wait allows); one with a socket may be a leftover of a dead owner. Once that has been reported, further waits last as long as
// the caller wants, so who follows something notices a return at once. A missing directory is looked for, not created: this is no
// service.

#include "hmx/client/domain.h"

#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <map>
#include <mutex>
#include <optional>

#include "hmx/client/dispatcher.h"
#include "hmx/client/error.h"
#include "hmx/client/suggest.h"
#include "kelo/runtime/domain_view.h"
#include "kelo/std/error_storage.h"

namespace hmx::client {
namespace {

using kelo::runtime::IKeloRuntime;
using kelo::runtime::KeloServiceTrackerInfo;
using kelo::runtime::RuntimeOptions;

constexpr std::chrono::milliseconds graceOfUnlisted{150};
constexpr std::chrono::milliseconds graceOfListed{1500};
constexpr std::chrono::milliseconds graceOfEach{700};
constexpr std::chrono::milliseconds directoryPause{20};

// As `sudo -u` takes it.
std::string userName(uid_t uid) {
    const passwd* user = ::getpwuid(uid);  // NOLINT(concurrency-mt-unsafe): the runtime's threads ask for no users
    return user == nullptr ? "#" + std::to_string(uid) : user->pw_name;
}

RuntimeOptions placeOf(const DomainOptions& options) {
    RuntimeOptions place;
    place.domain = options.domain.empty() ? kelo::runtime::domainName(kelo::runtime::usualDomain) : options.domain;
    if (!options.runtimeDirectory.empty()) place.directory = options.runtimeDirectory + "/" + place.domain;
    return place;
}

// What the runtime's thread tells the dispatcher's. Thread: any.
struct News {
    mutable std::mutex mutex;
    Signal::Raiser arrived;
};

// One service's tracker and resolver. Thread: the runtime's; the values are read under the lock.
class Acquaintance final : public IKeloRuntime::IKeloServiceTracker, public IKeloRuntime::IKeloServiceResolver {
public:
    explicit Acquaintance(News& news) : news_{news} {}

    void added(const KeloServiceTrackerInfo& info) override {
        tell([&] { info_ = info, alive_ = true; });
    }
    void modified(const KeloServiceTrackerInfo& info) override {
        tell([&] { info_ = info; });
    }
    void removed() override {
        tell([&] { alive_ = false; });
    }
    void resolved(std::uint64_t /*handle*/, kelo::IKeloApi* api) override {
        tell([&] { api_ = api; });
    }
    void gone() override {}

    bool aliveLocked() const noexcept { return alive_; }
    kelo::IKeloApi* apiLocked() const noexcept { return api_; }
    const KeloServiceTrackerInfo& infoLocked() const noexcept { return info_; }

private:
    template <class F>
    void tell(F&& change) {
        {
            const std::lock_guard lock{news_.mutex};
            change();
        }
        news_.arrived.raise();
    }

    News& news_;
    bool alive_ = false;
    kelo::IKeloApi* api_ = nullptr;  // the first one stays good
    KeloServiceTrackerInfo info_;
};

// Thread: the dispatcher's.
class RuntimeDomain final : public Domain {
public:
    RuntimeDomain(Dispatcher& dispatcher, const DomainOptions& options)
        : dispatcher_{dispatcher}, options_{placeOf(options)}, isPatient_{options.patient}, probe_{options.probe} {
        options_.applicationName = options.applicationName.empty() ? program_invocation_short_name : options.applicationName;
    }

    Task<kelo::IKeloApi*> attach(std::string path, Deadline deadline) override {
        const bool first = known_.find(path) == known_.end();
        std::vector<std::string> listed;
        if (first) {
            if (isPatient_) co_await waitForDirectory(deadline);
            listed = listedServices();
            refuseForeign(path);
        }
        const bool hasPlace = std::find(listed.begin(), listed.end(), path) != listed.end();
        Acquaintance& service = acquaintance(path);
        const Deadline patience = first && !isPatient_ ? deadline.atMost(hasPlace ? graceOfListed : graceOfUnlisted) : deadline;
        const auto begun = std::chrono::steady_clock::now();
        for (;;) {
            {
                const std::lock_guard lock{news_.mutex};
                if (service.apiLocked() != nullptr && service.aliveLocked()) co_return service.apiLocked();
            }
            if (patience.passed()) break;
            co_await arrival_.raised(patience);
        }
        refuseForeign(path);
        throw absent(path, hasPlace, listed, std::chrono::steady_clock::now() - begun);
    }

    Task<std::vector<ServiceState>> list(Deadline deadline) override {
        const std::vector<std::string> paths = listedServices();
        std::vector<Acquaintance*> services;
        services.reserve(paths.size());
        for (const std::string& path : paths) services.push_back(&acquaintance(path));
        std::vector<ServiceState> states;
        const auto strangers = kelo::runtime::findStrangers(options_, paths);
        for (std::size_t i = 0; i < paths.size(); ++i) {
            ServiceState& state = states.emplace_back();
            state.path = paths[i];
            if (!strangers[i]) continue;
            state.life = Life::refused;
            state.uid = strangers[i]->uid;
            state.rule = strangers[i]->rule;
        }
        const Deadline patience = deadline.atMost(graceOfEach);
        while (!allAlive(services, states) && !patience.passed()) co_await arrival_.raised(patience);
        for (std::size_t i = 0; i < paths.size(); ++i) {
            ServiceState& state = states[i];
            std::unique_lock lock{news_.mutex};
            if (!services[i]->aliveLocked()) {
                lock.unlock();
                if (state.life != Life::refused) state.life = lifeOf(state.path);
                continue;
            }
            state.life = Life::alive;
            const KeloServiceTrackerInfo& info = services[i]->infoLocked();
            state.application = info.applicationName;
            state.pid = info.pid;
            state.uid = info.uid;
            state.mimeTypes = info.mimeTypes;
        }
        co_return states;
    }

    bool isAlive(std::string_view path) const override {
        const auto found = known_.find(path);
        const std::lock_guard lock{news_.mutex};
        return found != known_.end() && found->second->aliveLocked();
    }

    std::string where() const override {
        return "domain '" + options_.domain + "' (" + kelo::runtime::domainDirectory(options_) + ")";
    }

private:
    Task<> waitForDirectory(Deadline deadline) const {
        const std::string directory = kelo::runtime::domainDirectory(options_);
        while (::access(directory.c_str(), F_OK) != 0 && errno == ENOENT && !deadline.passed()) {
            co_await dispatcher_.pause(std::min(directoryPause, deadline.left()));
        }
    }

    // Whether nothing is left to wait for.
    bool allAlive(const std::vector<Acquaintance*>& services, const std::vector<ServiceState>& states) {
        const std::lock_guard lock{news_.mutex};
        for (std::size_t i = 0; i < services.size(); ++i) {
            if (states[i].life != Life::refused && !services[i]->aliveLocked()) return false;
        }
        return true;
    }

    // Of a service that has not said hello. A process that takes connections and closes them has too many already; one that
    // leaves them alone does nothing.
    Life lifeOf(std::string_view path) const {
        switch (kelo::runtime::probeSocket(options_, path, probe_)) {
            case kelo::runtime::SocketState::silent:
                return Life::hung;
            case kelo::runtime::SocketState::closed:
                return Life::full;
            case kelo::runtime::SocketState::dead:
                break;
        }
        return Life::stale;
    }

    void refuseForeign(const std::string& path) const {
        if (const auto stranger = kelo::runtime::findStrangers(options_, {&path, 1}).front()) {
            throw Error{Error::Kind::foreign,
                        path + " in " + where() + " is run by " + userName(stranger->uid) + ", and you are " +
                            userName(::geteuid()) + (stranger->rule.empty() ? "" : "; policy: " + stranger->rule),
                        {.service = path, .names = {userName(stranger->uid)}}};
        }
    }

    std::vector<std::string> listedServices() const {
        bool failed = false;
        std::vector<std::string> services = kelo::runtime::listServices(options_, failed);
        if (!failed) return services;
        const std::string reason = std::ErrorStorage::takeReason();
        const bool notThere = reason.ends_with(std::strerror(ENOENT)) || reason.ends_with(std::strerror(ENOTDIR));
        throw Error{notThere ? Error::Kind::noDomain : Error::Kind::closedDomain,
                    reason.empty() ? "cannot read " + where() : reason,
                    {.names = notThere ? std::vector<std::string>{} : ownerOfDirectory()}};
    }

    // The user of a directory that may not be used, if that is another one.
    std::vector<std::string> ownerOfDirectory() const {
        std::string directory = kelo::runtime::domainDirectory(options_);
        struct stat status {};
        while (directory.size() > 1 && ::stat(directory.c_str(), &status) != 0) directory.erase(directory.rfind('/'));
        if (directory.size() > 1 && status.st_uid != ::geteuid() && status.st_uid != 0) return {userName(status.st_uid)};
        return {};
    }

    Acquaintance& acquaintance(std::string_view path) {
        if (!runtime_) {
            runtime_ = kelo::runtime::createRuntime(options_);
            if (!runtime_->start(0)) {
                const std::string reason = std::ErrorStorage::takeReason();
                throw Error{Error::Kind::notEntered, reason.empty() ? "cannot enter " + where() : reason};
            }
        }
        const auto found = known_.find(path);
        if (found != known_.end()) return *found->second;
        Acquaintance& made = *known_.emplace(path, std::make_unique<Acquaintance>(news_)).first->second;
        (void)runtime_->trackService(path, made, 0);
        KeloServiceTrackerInfo info;
        info.servicePath = path;
        (void)runtime_->openResolver(info, made);
        return made;
    }

    // `waited`: how long the service had to say hello. A healthy one on a busy machine may need longer than a short deadline
    // allows, so only the full grace tells that a process is stuck.
    Error absent(const std::string& path, bool hasPlace, const std::vector<std::string>& listed,
                 std::chrono::nanoseconds waited) const {
        const Error::Details about{.service = path};
        if (hasPlace) {
            switch (lifeOf(path)) {
                case Life::full:
                    return Error{Error::Kind::serviceFull, path + " in " + where() + " accepts no more clients", about};
                case Life::hung:
                    if (waited < graceOfListed) {
                        return Error{Error::Kind::late, path + " in " + where() + " has not answered yet", about};
                    }
                    return Error{Error::Kind::serviceHung,
                                 path + " in " + where() + " does not answer, but its process exists",
                                 {.service = path, .hint = "the process may be stopped or stuck; restart it"}};
                default:
                    return Error{Error::Kind::serviceDead, path + " in " + where() + " has ended and left its socket", about};
            }
        }
        std::string hint = path == "/hmx" ? "is hmxtolubridge running, with its upstream services?" : didYouMean(path, listed);
        if (hint.empty()) hint = listed.empty() ? "no service is running there" : "there are: " + joined(listed);
        return Error{Error::Kind::noService,
                     "no service " + path + " in " + where(),
                     {.service = path, .hint = hint, .names = nearMatches(path, listed)}};
    }

    Dispatcher& dispatcher_;
    RuntimeOptions options_;
    bool isPatient_;
    std::chrono::milliseconds probe_;
    Signal arrival_{dispatcher_};
    News news_{{}, arrival_.raiser()};
    std::map<std::string, std::unique_ptr<Acquaintance>, std::less<>> known_;
    std::unique_ptr<IKeloRuntime> runtime_;  // ends before those that it tells
};

}  // namespace

std::string_view nameOf(Life life) noexcept {
    constexpr std::array<std::string_view, 5> names{"alive", "stale", "hung", "full", "refused"};
    return names.at(static_cast<std::size_t>(life));
}

std::string domainDirectory(const DomainOptions& options) {
    return kelo::runtime::domainDirectory(placeOf(options));
}

std::unique_ptr<Domain> makeDomain(Dispatcher& dispatcher, const DomainOptions& options) {
    return std::make_unique<RuntimeDomain>(dispatcher, options);
}

}  // namespace hmx::client
