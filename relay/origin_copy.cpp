// Whatever is known of an export comes from readers that were made for it, in a partition that only it writes to. When it is
// lost, or what was read cannot be whole, the readers go, and new ones ask for everything anew. So nothing has to be undone: what
// is not said again is not there any more.
//
// Elements and states arrive on their own ways. Both say what their part is like, and the newer one counts. A part is handed on
// only when the elements that are here are those that it speaks of; until then, what was handed on before stands. So nobody sees
// half of a transition, or one that is over already. If the missing ones do not come, all is asked for anew.
//
// An instance without writers stays as it was: that the export is lost, its origin's instance says.
//
// Samples count only if their writer belongs to the participant that announced the export. What others write is counted and left.
//
// Until all parts are there, samples come in masses, and the engine's receiving thread only says so. From then on it takes them
// itself and hands on what has changed, if the dispatcher is free.
#include "origin_copy.h"

#include <algorithm>
#include <array>
#include <cstdio>

#include "kelo/commands.h"
#include "kelo/path.h"

namespace hmxrelay {
namespace {

using hmx::client::Json;
using kelo::Response;
using std::chrono::milliseconds;

// After how many leases without a beat an export counts as lost, though the engine still hears of its machine.
constexpr int beatsMissed = 3;
// How long the rest of a transition may take.
constexpr milliseconds patience{700};
constexpr milliseconds longestRepairPause{30'000};
constexpr std::size_t mostExports = 8;
constexpr std::size_t mostElements = 40'000;
constexpr std::size_t mostBytes = std::size_t{64} << 20U;
constexpr std::size_t mostParts = 6'000;

constexpr std::string_view staleHeader{"$stale"};
constexpr std::string_view ageHeader{"$age"};

Bytes16 bytesOf(const hmxrelay_Uuid& id) {
    Bytes16 bytes{};
    std::copy(std::begin(id), std::end(id), bytes.begin());
    return bytes;
}

std::string textOfLife(const Bytes16& life) {
    return std::UUID{life}.toString();
}

Response unavailable(const std::string& why) {
    return Response::createErrorResponse(503, why);
}

// Says with its only answer how old that is.
class StaleResponder final : public kelo::IResponder {
public:
    StaleResponder(std::unique_ptr<kelo::IResponder> responder, milliseconds age) : responder_{std::move(responder)}, age_{age} {}

    bool next(const Response& response) override {
        Response aged{response};
        aged.headers().set(ageHeader, std::to_string(age_.count()));
        if (!responder_->next(aged)) responder_->completed();
        return true;
    }
    void error(const Response& response) override { responder_->error(response); }
    void completed() override { responder_->completed(); }
    kelo::Account* account() const noexcept override { return responder_->account(); }

private:
    std::unique_ptr<kelo::IResponder> responder_;
    milliseconds age_;
};

// Old states are not changed.
class NoChanges final : public kelo::IResourceHandler {
public:
    void* actionRequest(const kelo::Request&, std::unique_ptr<kelo::IResponder> responder, const std::string&) override {
        responder->error(unavailable("the origin is lost, request not sent"));
        return nullptr;
    }
    void cancelRequest(void*) override {}
};

bool isRetrieve(const kelo::Request& request) {
    return kelo::commands::toId(request.command()) == kelo::commands::retrieve;
}

}  // namespace

OriginCopy::Attachment::Attachment(const Participant& participant, const std::string& name, const Bytes16& itsLife,
                                   const Author& itsAuthor, const hmx::client::Signal::Raiser& arrived)
    : life{itsLife},
      author{itsAuthor},
      publisher{participant.publisher(name + "/" + textOfLife(itsLife))},
      subscriber{participant.subscriber(name + "/" + textOfLife(itsLife))},
      elements{participant, subscriber, arrived},
      states{participant, subscriber, arrived} {}

OriginCopy::OriginCopy(Surroundings& surroundings, std::string name, const std::string& suffix)
    : surroundings_{surroundings},
      name_{std::move(name)},
      arrived_{surroundings.dispatcher},
      changes_{surroundings.dispatcher, surroundings.isReadOnly},
      shelves_{changes_},
      regionDemand_{[this]() -> kelo::IResourceHandler& { return *shelves_.hmx().find("/" + std::string{regions}); },
                    [this](const std::string& id) {
                        return attachment_ != nullptr && attachment_->parts.contains({std::string{regions}, id});
                    }},
      lastHeard_{Clock::now()} {
    arrived_.onRaised([this] { takeAll(); });
    const auto publish = [&](const std::string& path, Entrance::Admit admit) {
        services_.push_back(std::make_unique<Service>(surroundings_.dispatcher, std::move(admit)));
        Service& service = *services_.back();
        service.handle = surroundings_.runtime.registerService(path + suffix, service.composed, nullptr);
    };
    publish("/hmx", [this](Visitor visitor) { return admit(std::move(visitor)); });
    publish("/" + std::string{inputManager},
            [this](Visitor visitor) { return admitUpstream(&Shelves::inputManagerAnswers, std::move(visitor)); });
    publish("/" + std::string{displayManager},
            [this](Visitor visitor) { return admitUpstream(&Shelves::displayManagerAnswers, std::move(visitor)); });
}

OriginCopy::~OriginCopy() {
    for (const auto& service : services_) surroundings_.runtime.unregisterService(service->handle);
}

void OriginCopy::heard(const hmxrelay_Origin& origin, const Author& author) {
    const Bytes16 life = bytesOf(origin.life);
    const auto found = exports_.find(life);
    if (found == exports_.end() && exports_.size() >= mostExports) return;
    Export& known = exports_[life];
    if (found == exports_.end()) {
        known.author = author;
        if (exports_.size() > 1) {
            tracing::logC(channel, 4,
                          ("'" + name_ + "' is exported " + std::to_string(exports_.size()) +
                           " times; the one that began first is followed")
                              .c_str());
        }
    } else if (known.author != author) {
        ++foreign_;
        return;
    }
    known.started = origin.started;
    known.lastHeard = Clock::now();
    known.lease = milliseconds{std::clamp<std::uint32_t>(origin.lease, 50, 60'000)};
    known.parts = origin.parts;
    known.isReadOnly = origin.readOnly;
    known.host = textOf(origin.host);
    known.program = textOf(origin.program);
    choose();
    if (attachment_ != nullptr && attachment_->life == life) {
        lastHeard_ = known.lastHeard;
        originIsReadOnly_ = known.isReadOnly;
        attachment_->announced = known.parts;
        arrived_.raiseHere();  // there may be as many parts now as it says
    }
}

void OriginCopy::gone(const Bytes16& life, const std::optional<Author>& author) {
    const auto found = exports_.find(life);
    if (found == exports_.end()) return;
    if (author && *author != found->second.author) {
        ++foreign_;
        return;
    }
    exports_.erase(found);
    choose();
}

// Every importer takes the same one of several.
void OriginCopy::choose() {
    const Bytes16* chosen = nullptr;
    for (const auto& [life, each] : exports_) {
        if (chosen == nullptr || each.started < exports_.at(*chosen).started) chosen = &life;
    }
    if (attachment_ != nullptr && chosen != nullptr && attachment_->life == *chosen) return;
    if (attachment_ != nullptr) detach("origin '" + name_ + "' is lost: ");
    if (chosen != nullptr) attach(*chosen);
}

void OriginCopy::attach(const Bytes16& life) {
    const Export& chosen = exports_.at(life);
    host_ = chosen.host;
    program_ = chosen.program;
    originIsReadOnly_ = chosen.isReadOnly;
    lastHeard_ = chosen.lastHeard;
    wasSeen_ = true;
    attachment_ = std::make_unique<Attachment>(surroundings_.participant, name_, life, chosen.author, arrived_.raiser());
    attachment_->announced = chosen.parts;
    changes_.connect(surroundings_.participant, attachment_->publisher, attachment_->subscriber, chosen.author);
    regionDemand_.connect(surroundings_.participant, attachment_->publisher);
    tracing::logC(channel, 2, ("origin '" + name_ + "' on " + host_ + " is there, life " + textOfLife(life)).c_str());
}

void OriginCopy::detach(const std::string& why) {
    takeAll();  // what has arrived counts
    ++losses_;
    changes_.disconnect(why + lossText());
    regionDemand_.disconnect(unavailable(why + lossText()));
    lost_ += attachment_->elements.lost() + attachment_->states.lost();
    if (attachment_->isComplete) lastParts_ = std::move(attachment_->parts);
    attachment_.reset();
    stale_.reset();
    elements_ = 0;
    bytes_ = 0;
    const Response loss = unavailable(why + lossText());
    for (auto& [name, shown] : shown_) {
        shown.isLost = true;
        shelves_.find(name.resource)->lose(name.part, loss);
    }
    tracing::logC(channel, 3, ("origin '" + name_ + "' is lost").c_str());
}

void OriginCopy::repair(Clock::time_point now) {
    if (now - lastRepair_ < repairPause_) return;
    lastRepair_ = now;
    repairPause_ = std::min(repairPause_ * 2, longestRepairPause);
    ++repairs_;
    tracing::logC(channel, 3, ("what is here of origin '" + name_ + "' is not whole; it is asked anew").c_str());
    const Bytes16 life = attachment_->life;
    changes_.disconnect("the connection to origin '" + name_ + "' was made anew");
    regionDemand_.disconnect(unavailable("the connection to origin '" + name_ + "' was made anew"));
    lost_ += attachment_->elements.lost() + attachment_->states.lost();
    attachment_.reset();
    elements_ = 0;
    bytes_ = 0;
    attach(life);
}

void OriginCopy::tick(Clock::time_point now) {
    std::vector<Bytes16> silent;
    for (const auto& [life, each] : exports_) {
        if (now - each.lastHeard > beatsMissed * each.lease) silent.push_back(life);
    }
    for (const Bytes16& life : silent) gone(life, {});
    regionDemand_.tick(now);
    if (attachment_ == nullptr) return;
    const bool isQuiet = now - attachment_->lastSample > patience && now - attachment_->begun > 2 * patience;
    const auto isIncomplete = [&](const auto& each) {
        return each.second.incompleteSince && now - *each.second.incompleteSince > patience;
    };
    if (!isQuiet) return;
    if (!attachment_->isComplete || std::any_of(attachment_->parts.begin(), attachment_->parts.end(), isIncomplete)) {
        repair(now);
    } else {
        repairPause_ = milliseconds{1000};
    }
}

void OriginCopy::takeAll() {
    if (attachment_ == nullptr) return;
    attachment_->elements.takeAll([this](const hmxrelay_Element& sample, const dds_sample_info_t& info) { take(sample, info); });
    attachment_->states.takeAll([this](const hmxrelay_State& sample, const dds_sample_info_t& info) { take(sample, info); });
    std::uint32_t known = 0;
    bool isWhole = true;
    for (auto& [name, part] : attachment_->parts) {
        if (part.isChanged) show(name, part);
        isWhole = isWhole && !part.incompleteSince;
        known += part.isKnown && name.resource != regions ? 1U : 0U;
    }
    if (known < attachment_->announced) return;
    if (isWhole) {
        attachment_->elements.answerAtOnce();
        attachment_->states.answerAtOnce();
    }
    if (attachment_->isComplete) return;
    attachment_->isComplete = true;
    giveBackMemory();
    lastParts_.clear();
    stale_.reset();
    // What this export does not have was a former one's.
    for (auto shown = shown_.begin(); shown != shown_.end();) {
        if (attachment_->parts.contains(shown->first)) {
            ++shown;
            continue;
        }
        shelves_.find(shown->first.resource)->remove(shown->first.part);
        shown = shown_.erase(shown);
    }
}

template <class Sample>
bool OriginCopy::isOurs(const char* origin, const dds_sample_info_t& info, Reader<Sample>& reader) {
    if (info.instance_state == DDS_NOT_ALIVE_NO_WRITERS_INSTANCE_STATE) return false;
    const std::optional<Author> author = reader.author(info.publication_handle);
    if (!author || *author != attachment_->author) {
        ++foreign_;
        return false;
    }
    attachment_->lastSample = lastHeard_ = Clock::now();
    ++samples_;
    if (textOf(origin) == name_) return true;
    ++malformed_;
    return false;
}

void OriginCopy::take(const hmxrelay_Element& sample, const dds_sample_info_t& info) {
    if (!isOurs(sample.origin, info, attachment_->elements)) return;
    const PartName name{std::string{textOf(sample.resource)}, std::string{textOf(sample.part)}};
    Shelf* const shelf = shelves_.find(name.resource);
    if (shelf == nullptr || (attachment_->parts.size() >= mostParts && !attachment_->parts.contains(name))) {
        ++malformed_;
        return;
    }
    const ElementKey key{bytesOf(sample.id), sample.occurrence};
    Part& part = attachment_->parts[name];
    part.isChanged = true;
    const auto found = part.entries.find(key);
    if (info.instance_state == DDS_NOT_ALIVE_DISPOSED_INSTANCE_STATE) {
        if (found != part.entries.end()) eraseEntry(part, found);
        return;
    }
    if (!info.valid_data) return;
    const std::string_view document = octetsOf(sample.document);
    if (found != part.entries.end()) {
        if (found->second.revision > sample.revision) return;
        eraseEntry(part, found);
    }
    if (elements_ >= mostElements || bytes_ + document.size() > mostBytes) {
        ++malformed_;
        return;
    }
    Entry entry{sample.revision, sample.position, document.size(), nullptr};
    try {
        entry.element = shelf->read(kelo::Payload::copyOf(document, kelo::MimeType{textOf(sample.encoding)}));
    } catch (const hmx::client::Error&) {
        ++malformed_;
    }
    if (sample.revision > part.revision) {
        part.condition = Condition::live;
        part.revision = sample.revision;
        part.count = sample.count;
        part.digest = sample.digest;
    }
    ++elements_;
    bytes_ += entry.bytes;
    part.sum += digestOf(key, entry.revision);
    part.entries.emplace(key, std::move(entry));
}

void OriginCopy::eraseEntry(Part& part, std::map<ElementKey, Entry>::iterator entry) {
    part.sum -= digestOf(entry->first, entry->second.revision);
    bytes_ -= entry->second.bytes;
    --elements_;
    part.entries.erase(entry);
}

void OriginCopy::take(const hmxrelay_State& sample, const dds_sample_info_t& info) {
    if (!isOurs(sample.origin, info, attachment_->states)) return;
    const PartName name{std::string{textOf(sample.resource)}, std::string{textOf(sample.part)}};
    const bool isCondition = sample.condition >= static_cast<std::uint8_t>(Condition::live) &&
                             sample.condition <= static_cast<std::uint8_t>(Condition::missing);
    if (info.instance_state == DDS_NOT_ALIVE_DISPOSED_INSTANCE_STATE) return removePart(name);
    if (!info.valid_data) return;
    if (!isCondition || shelves_.find(name.resource) == nullptr ||
        (attachment_->parts.size() >= mostParts && !attachment_->parts.contains(name))) {
        ++malformed_;
        return;
    }
    Part& part = attachment_->parts[name];
    part.isKnown = true;
    part.isChanged = true;
    if (part.revision > sample.revision) return;
    part.condition = static_cast<Condition>(sample.condition);
    part.status = sample.status;
    part.reason = textOf(sample.reason);
    part.revision = sample.revision;
    part.count = sample.count;
    part.digest = sample.digest;
}

void OriginCopy::removePart(const PartName& name) {
    const auto found = attachment_->parts.find(name);
    if (found == attachment_->parts.end()) return;
    while (!found->second.entries.empty()) eraseEntry(found->second, found->second.entries.begin());
    attachment_->parts.erase(found);
    if (shown_.erase(name) != 0) shelves_.find(name.resource)->remove(name.part);
}

std::vector<std::shared_ptr<void>> OriginCopy::inOrder(const Part& part) {
    std::vector<const Entry*> entries;
    entries.reserve(part.entries.size());
    for (const auto& [key, entry] : part.entries) {
        if (entry.element != nullptr) entries.push_back(&entry);
    }
    std::sort(entries.begin(), entries.end(), [](const Entry* a, const Entry* b) { return a->position < b->position; });
    std::vector<std::shared_ptr<void>> elements;
    elements.reserve(entries.size());
    for (const Entry* entry : entries) elements.push_back(entry->element);
    return elements;
}

void OriginCopy::show(const PartName& name, Part& part) {
    part.isChanged = false;
    if (!part.isKnown) return;
    Shelf& shelf = *shelves_.find(name.resource);
    const auto before = shown_.find(name);
    const Bytes16& life = attachment_->life;
    const bool isOld = before != shown_.end() && before->second.life == life && before->second.revision > part.revision;
    if (part.condition != Condition::live && !isOld) {
        part.incompleteSince.reset();
        const bool isSame = before != shown_.end() && !before->second.isLost && before->second.life == life &&
                            before->second.condition != Condition::live && before->second.revision == part.revision;
        if (isSame) return;
        shown_[name] = {life, part.condition, part.revision, part.digest, false};
        shelf.lose(name.part, Response::createErrorResponse(part.status == 0 ? 503 : part.status, part.reason));
        if (name.resource == regions) regionDemand_.known(name.part);
        return;
    }
    if (isOld || !isWhole(part)) {
        if (!part.incompleteSince) part.incompleteSince = Clock::now();
        if (before != shown_.end()) return;
        shown_[name] = {life, Condition::lost, 0, 0, true};
        shelf.lose(name.part, unavailable("the state of origin '" + name_ + "' is being fetched"));
        return;
    }
    part.incompleteSince.reset();
    const bool isSame = before != shown_.end() && !before->second.isLost && before->second.life == life &&
                        before->second.condition == Condition::live && before->second.digest == part.digest &&
                        before->second.revision == part.revision;
    if (isSame) return;
    shown_[name] = {life, Condition::live, part.revision, part.digest, false};
    shelf.set(name.part, inOrder(part));
    if (name.resource == regions) regionDemand_.known(name.part);
}

std::chrono::milliseconds OriginCopy::age() const {
    return std::chrono::duration_cast<milliseconds>(Clock::now() - lastHeard_);
}

std::string OriginCopy::lossText() const {
    if (!wasSeen_) return "not heard of yet";
    std::array<char, 48> text{};
    std::snprintf(text.data(), text.size(), "last heard of %.1f s ago", static_cast<double>(age().count()) / 1000);
    return text.data();
}

Entrance::Place OriginCopy::admit(Visitor visitor) {
    const std::string& path = visitor.request.path();
    if (path == "/relay" && isRetrieve(visitor.request)) {
        const Response response{200, hmx::client::encode(status(), "application/json")};
        if (!visitor.responder->next(response)) visitor.responder->completed();
        return {};
    }
    kelo::IResourceHandler* handler = shelves_.hmx().find(path);
    if (handler == nullptr) {
        visitor.responder->error(
            Response::createErrorResponse(404, "/hmx of origin '" + name_ + "' has no resource for the path '" + path + "'"));
        return {};
    }
    if (isRetrieve(visitor.request)) {
        if (attachment_ == nullptr) {
            Shelves* const stale = offerStale(visitor);
            if (stale == nullptr) return {};
            handler = stale->hmx().find(path);
        } else if (!attachment_->isComplete) {
            visitor.responder->error(unavailable("the state of origin '" + name_ + "' is being fetched"));
            return {};
        } else if (kelo::Path{path}.rawPart(0) == regions) {
            handler = &regionDemand_;
        }
    } else if (originIsReadOnly_) {
        visitor.responder->error(Response::createErrorResponse(403, "origin '" + name_ + "' takes no changes, request not sent"));
        return {};
    }
    return {handler, handler->actionRequest(visitor.request, std::move(visitor.responder), visitor.tag)};
}

Entrance::Place OriginCopy::admitUpstream(Answers answers, Visitor visitor) {
    Shelves* const shelves = attachment_ == nullptr ? offerStale(visitor) : &shelves_;
    if (shelves == nullptr) return {};
    UpstreamAnswers& handler = (shelves->*answers)();
    return {&handler, handler.actionRequest(visitor.request, std::move(visitor.responder), visitor.tag)};
}

Shelves* OriginCopy::offerStale(Visitor& visitor) {
    const std::string* const stale = visitor.request.headers().find(staleHeader);
    if (stale == nullptr || *stale != "accept" || lastParts_.empty()) {
        visitor.responder->error(unavailable("origin '" + name_ + "' is lost: " + lossText()));
        return nullptr;
    }
    visitor.request.setOneShot(true);
    visitor.responder = std::make_unique<StaleResponder>(std::move(visitor.responder), age());
    return &staleShelves();
}

// Made when somebody asks for it: what there was when the origin was lost.
Shelves& OriginCopy::staleShelves() {
    static NoChanges noChanges;
    if (stale_ != nullptr) return *stale_;
    stale_ = std::make_unique<Shelves>(noChanges);
    for (const auto& [name, part] : lastParts_) {
        Shelf& shelf = *stale_->find(name.resource);
        if (part.condition == Condition::live) {
            shelf.set(name.part, inOrder(part));
        } else {
            shelf.lose(name.part, Response::createErrorResponse(part.status, part.reason));
        }
    }
    return *stale_;
}

Json OriginCopy::status() const {
    const auto now = Clock::now();
    milliseconds lag{0};
    std::uint64_t lost = lost_;
    if (attachment_ != nullptr) {
        lost += attachment_->elements.lost() + attachment_->states.lost();
        for (const auto& [name, part] : attachment_->parts) {
            if (!part.incompleteSince) continue;
            lag = std::max(lag, std::chrono::duration_cast<milliseconds>(now - *part.incompleteSince));
        }
    }
    Json json{{"origin", name_},
              {"state", attachment_ == nullptr    ? "lost"
                        : attachment_->isComplete ? "live"
                                                  : "incomplete"},
              {"age", age().count()},
              {"lag", lag.count()},
              {"lost", lost},
              {"foreign", foreign_},
              {"malformed", malformed_},
              {"repairs", repairs_},
              {"losses", losses_},
              {"samples", samples_},
              {"elements", elements_},
              {"exports", exports_.size()},
              {"readOnly", surroundings_.isReadOnly || originIsReadOnly_},
              {"host", host_},
              {"program", program_}};
    if (attachment_ != nullptr) json["life"] = textOfLife(attachment_->life);
    return json;
}

}  // namespace hmxrelay
