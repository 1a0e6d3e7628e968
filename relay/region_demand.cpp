#include "region_demand.h"

#include <utility>
#include <vector>

#include "hmx/replica/replica.h"
#include "kelo/path.h"

namespace hmxrelay {
namespace {

using kelo::Response;

// How long a region configuration is followed after the last one who asked for it has gone.
constexpr std::chrono::seconds linger{10};
constexpr std::chrono::seconds longestPark{5};
constexpr std::size_t mostWanted = 1024;

}  // namespace

// Counts as a user of its region configuration until the request is over.
class RegionDemand::Use final : public kelo::IResponder {
public:
    Use(std::unique_ptr<kelo::IResponder> responder, std::shared_ptr<Book> book, void* handle, std::string id)
        : responder_{std::move(responder)}, book_{std::move(book)}, handle_{handle}, id_{std::move(id)} {}
    Use(const Use&) = delete;
    Use& operator=(const Use&) = delete;
    ~Use() override {
        book_->open.erase(handle_);
        Wanted& wanted = book_->wanted[id_];
        if (--wanted.users == 0) wanted.until = Clock::now() + linger;
    }

    bool next(const Response& response) override { return responder_->next(response); }
    void error(const Response& response) override { responder_->error(response); }
    void completed() override { responder_->completed(); }
    kelo::Account* account() const noexcept override { return responder_->account(); }

private:
    std::unique_ptr<kelo::IResponder> responder_;
    std::shared_ptr<Book> book_;
    void* handle_;
    std::string id_;
};

RegionDemand::RegionDemand(std::function<kelo::IResourceHandler&()> served, std::function<bool(const std::string&)> isKnown)
    : served_{std::move(served)}, isKnown_{std::move(isKnown)}, book_{std::make_shared<Book>()} {}

RegionDemand::~RegionDemand() {
    auto open = std::move(book_->open);
    book_->open.clear();
    open.clear();  // those who still wait; their ends find an empty book
}

void RegionDemand::connect(const Participant& participant, const Entity& publisher) {
    interest_.emplace(participant, publisher);
    for (const auto& [id, wanted] : book_->wanted) write(id);
}

void RegionDemand::disconnect(const Response& why) {
    interest_.reset();
    std::vector<Visitor> waiting;
    for (auto& [handle, open] : book_->open) {
        if (open.waiting) waiting.push_back(std::move(*std::exchange(open.waiting, {})));
    }
    for (const Visitor& visitor : waiting) visitor.responder->error(why);
}

void RegionDemand::write(const std::string& id) {
    if (!interest_) return;
    hmxrelay_Interest sample{};
    const std::string resource{regions};
    sample.resource = lent(resource);
    sample.part = lent(id);
    (void)interest_->write(sample);
}

void RegionDemand::known(const std::string& id) {
    std::vector<void*> concerned;
    for (const auto& [handle, open] : book_->open) {
        if (open.waiting && open.id == id) concerned.push_back(handle);
    }
    for (void* const handle : concerned) {
        const auto found = book_->open.find(handle);
        if (found == book_->open.end() || !found->second.waiting) continue;
        Visitor visitor = std::move(*std::exchange(found->second.waiting, {}));
        pass(handle, std::move(visitor));
    }
}

void RegionDemand::pass(void* handle, Visitor visitor) {
    void* const inner = served_().actionRequest(visitor.request, std::move(visitor.responder), visitor.tag);
    if (const auto found = book_->open.find(handle); found != book_->open.end()) found->second.served = inner;
}

void* RegionDemand::actionRequest(const kelo::Request& request, std::unique_ptr<kelo::IResponder> responder,
                                  const std::string& tag) {
    std::UUID uuid;
    if (!kelo::Path{request.path()}.part(1, uuid)) return served_().actionRequest(request, std::move(responder), tag);
    const std::string id = uuid.toString();
    if (book_->wanted.size() >= mostWanted && !book_->wanted.contains(id)) {
        responder->error(Response::createErrorResponse(503, "too many region configurations are followed, request not sent"));
        return nullptr;
    }
    void* const handle = hmx::replica::newHandle();
    if (++book_->wanted[id].users == 1) write(id);
    Open& open = book_->open[handle];
    open.id = id;
    open.since = Clock::now();
    Visitor visitor{request, std::make_unique<Use>(std::move(responder), book_, handle, id), tag};
    if (isKnown_(id)) {
        pass(handle, std::move(visitor));
    } else {
        open.waiting.emplace(std::move(visitor));
    }
    return handle;
}

void RegionDemand::cancelRequest(void* handle) {
    const auto found = book_->open.find(handle);
    if (found == book_->open.end()) return;
    if (found->second.waiting) {
        const Visitor visitor = std::move(*std::exchange(found->second.waiting, {}));
    } else if (found->second.served != nullptr) {
        served_().cancelRequest(found->second.served);
    }
}

void RegionDemand::tick(Clock::time_point now) {
    std::vector<Visitor> late;
    for (auto& [handle, open] : book_->open) {
        if (open.waiting && now - open.since > longestPark) late.push_back(std::move(*std::exchange(open.waiting, {})));
    }
    for (const Visitor& visitor : late) {
        visitor.responder->error(Response::createErrorResponse(504, "the origin has not said yet what there is"));
    }
    late.clear();
    for (auto wanted = book_->wanted.begin(); wanted != book_->wanted.end();) {
        if (wanted->second.users != 0 || now < wanted->second.until) {
            ++wanted;
            continue;
        }
        if (interest_) {
            hmxrelay_Interest sample{};
            const std::string resource{regions};
            sample.resource = lent(resource);
            sample.part = lent(wanted->first);
            interest_->leave(sample);
        }
        wanted = book_->wanted.erase(wanted);
    }
}

}  // namespace hmxrelay
