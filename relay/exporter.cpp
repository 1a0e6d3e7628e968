// Before anything is written, the network is listened to: if another export of this name is alive, this one refuses to begin. A
// dead one is waited for until its lease has run out. What two exports of one name write is never mixed even if they could not
// see each other when they began, because each writes to a partition of its own.
//
// A part's answer is compared with what was written last, element by element. Those that are gone are disposed, new and changed
// ones are written. Each of these says how many there are after the transition and what the sum over all of them is. So a reader
// knows when it has seen the whole of the transition, and need not wait for the part's state: that is written at once only if no
// element says the same, else a moment later, for many transitions together.
//
// If readers are so far behind that a sample cannot be sent, the answer is kept, and what is missing of it is written a little
// later; a newer answer takes its place. So what waits is bounded by the size of the lists.
#include "exporter.h"

#include <algorithm>
#include <chrono>
#include <string_view>

#include "hmx/client/elements.h"
#include "hmx/client/resources.h"
#include "kelo/path.h"
#include "kelo/std/uuid.h"
#include "list_text.h"
#include "order.h"

namespace hmxrelay {
namespace {

using hmx::client::Heard;
using hmx::client::Json;
using hmx::client::Outcome;
using hmx::client::Query;
using std::chrono::milliseconds;

const std::string hmxPath{hmx::client::hmxService};

// How long others have to be found before this one begins.
constexpr milliseconds discovery{400};
// How long past its lease another export may still seem to live.
constexpr milliseconds leeway{500};
constexpr milliseconds retryPause{20};
constexpr std::uint64_t beatsBetweenTidying = 4;
constexpr std::size_t mostParts = 4096;
constexpr std::size_t mostInterests = 1024;

Bytes16 idIn(const hmxrelay_Uuid& id) {
    Bytes16 bytes{};
    std::copy(std::begin(id), std::end(id), bytes.begin());
    return bytes;
}

void setKey(hmxrelay_Element& sample, const ElementKey& key) {
    std::copy(key.id.begin(), key.id.end(), std::begin(sample.id));
    sample.occurrence = key.occurrence;
}

std::int64_t wallClock() {
    return std::chrono::nanoseconds{std::chrono::system_clock::now().time_since_epoch()}.count();
}

std::uint64_t hashOf(std::string_view text) {
    return std::hash<std::string_view>{}(text);
}

std::string within(const std::string& name, const Bytes16& life) {
    return name + "/" + std::UUID{life}.toString();
}

}  // namespace

Exporter::Entries::Entries(std::vector<std::pair<ElementKey, Entry>> entries) : sorted_{std::move(entries)} {
    std::sort(sorted_.begin(), sorted_.end(), [](const auto& a, const auto& b) { return a.first < b.first; });
}

Exporter::Entry* Exporter::Entries::find(const ElementKey& key) noexcept {
    const auto place =
        std::lower_bound(sorted_.begin(), sorted_.end(), key, [](const auto& a, const ElementKey& b) { return a.first < b; });
    return place == sorted_.end() || place->first != key ? nullptr : &place->second;
}

Exporter::Exporter(hmx::client::Client& client, const Participant& participant, ExportOptions options,
                   std::function<void(const std::string&)> refused, std::function<void()> begun)
    : client_{client},
      participant_{participant},
      options_{std::move(options)},
      refused_{std::move(refused)},
      begun_{std::move(begun)},
      life_{randomId()},
      started_{wallClock()},
      originArrived_{client.dispatcher()},
      interestArrived_{client.dispatcher()},
      unwritten_{client.dispatcher()},
      commonPublisher_{participant.publisher("")},
      commonSubscriber_{participant.subscriber("")},
      publisher_{participant.publisher(within(options_.name, life_))},
      subscriber_{participant.subscriber(within(options_.name, life_))},
      origins_{participant, commonSubscriber_, originArrived_.raiser()},
      retrieves_{client, [this](const Heard& heard) { this->heard(heard); }} {
    originArrived_.onRaised([this] { watchNamesakes(); });
    interestArrived_.onRaised([this] { watchInterest(); });
    life1_ = client_.start(live(), [](const Outcome<void>&) {});
}

Exporter::~Exporter() {
    if (!origin_) return;
    hmxrelay_Origin sample{};
    sample.name = lent(options_.name);
    std::copy(life_.begin(), life_.end(), std::begin(sample.life));
    origin_->dispose(sample);
}

hmx::client::Task<> Exporter::live() {
    co_await client_.dispatcher().pause(discovery);
    const hmx::client::Deadline patience{participant_.network().lease + leeway};
    while (!namesakes_.empty() && !patience.passed()) co_await client_.dispatcher().pause(retryPause);
    if (!namesakes_.empty()) {
        refuse(namesakes_.begin()->second);
        co_return;
    }
    begin();
    settled_ = hmx::client::Deadline{discovery};
    begun_();
    co_await beat();
}

template <class Sample>
Sample Exporter::sampleOf(const Part& part) const {
    Sample sample{};
    sample.origin = lent(options_.name);
    sample.resource = lent(part.name.resource);
    sample.part = lent(part.name.part);
    return sample;
}

void Exporter::begin() {
    origin_.emplace(participant_, commonPublisher_);
    states_.emplace(participant_, publisher_);
    elements_.emplace(participant_, publisher_);
    const Part nothing;
    hmxrelay_Element sample = sampleOf<hmxrelay_Element>(nothing);
    sample.encoding = lent(nothing.name.part);
    exact_.emplace(participant_, topicOf<hmxrelay_Element>, &sample);
    interest_.emplace(participant_, subscriber_, interestArrived_.raiser());
    desk_.emplace(client_, participant_, publisher_, subscriber_, hmxPath, options_.isReadOnly);
    for (const char* resource : {"displays", "displayables", "layerconfigurations"}) {
        follow({resource, ""}, hmxPath, {"retrieve", std::string{"/"} + resource});
    }
    follow({std::string{displayManager}, "/layerConfig"}, "/" + std::string{displayManager}, {"retrieve", "/layerConfig"});
    writeOrigin();
    life2_ = client_.start(retry(), [](const Outcome<void>&) {});
}

hmx::client::Task<> Exporter::beat() {
    for (;;) {
        co_await client_.dispatcher().pause(participant_.network().lease);
        writeOrigin();
        if (beats_ % beatsBetweenTidying == 0) giveBackMemory();
    }
}

hmx::client::Task<> Exporter::retry() {
    for (;;) {
        co_await unwritten_.raised();
        co_await client_.dispatcher().pause(retryPause);
        isRetryDue_ = false;
        for (const auto& [name, part] : parts_) {
            if (const std::optional<kelo::Payload> answer = std::exchange(part->unwritten, {})) (void)write(*part, *answer);
            if (part->isStateUnwritten) writeState(*part);
        }
    }
}

void Exporter::refuse(const std::string& host) {
    refused_("the origin '" + options_.name + "' is exported already, by " + host);
}

// Another export of this name that appears after this one has begun is told apart by those who import; here it is only reported,
// unless it is older and was merely found late.
void Exporter::watchNamesakes() {
    origins_.takeAll([this](const hmxrelay_Origin& origin, const dds_sample_info_t& info) {
        const Bytes16 life = idIn(origin.life);
        if (textOf(origin.name) != options_.name || life == life_) return;
        if (info.instance_state != DDS_ALIVE_INSTANCE_STATE) {
            namesakes_.erase(life);
        } else if (info.valid_data && namesakes_.size() < 16 &&
                   namesakes_.emplace(life, std::string{textOf(origin.host)}).second && origin_) {
            if (origin.started < started_ && settled_ && !settled_->passed()) return refuse(namesakes_[life]);
            tracing::logC(channel, 4,
                          ("another export of '" + options_.name + "' has appeared, on " + namesakes_[life] +
                           "; importers follow the one that began first")
                              .c_str());
        }
    });
}

void Exporter::watchInterest() {
    std::size_t onDemand = 0;
    for (const auto& [name, part] : parts_) onDemand += part->isOnDemand ? 1U : 0U;
    interest_->takeAll([&](const hmxrelay_Interest& interest, const dds_sample_info_t& info) {
        const PartName name{std::string{textOf(interest.resource)}, std::string{textOf(interest.part)}};
        std::UUID id;
        if (name.resource != regions || !std::UUID::parse(name.part, id) || id.toString() != name.part) return;
        const bool isWanted = info.instance_state == DDS_ALIVE_INSTANCE_STATE;
        if (!isWanted) {
            leave(name);
        } else if (info.valid_data && !parts_.contains(name) && onDemand < mostInterests) {
            ++onDemand;
            follow(name, hmxPath, {"retrieve", "/" + name.resource + "/" + name.part}, true);
        }
    });
}

Exporter::Part& Exporter::follow(PartName name, std::string service, Query query, bool isOnDemand) {
    std::unique_ptr<Part>& part = parts_[name];
    if (part) return *part;
    part = std::make_unique<Part>();
    part->name = std::move(name);
    part->isOnDemand = isOnDemand;
    part->revision = lastRevision_;
    part->retrieve = retrieves_.follow(std::move(service), std::move(query));
    byRetrieve_[part->retrieve] = part.get();
    if (!isOnDemand) writeState(*part);  // others wait until something is known
    return *part;
}

void Exporter::leave(const PartName& name) {
    const auto found = parts_.find(name);
    if (found == parts_.end()) return;
    const Part& part = *found->second;
    retrieves_.leave(part.retrieve);
    byRetrieve_.erase(part.retrieve);
    for (const auto& [key, entry] : part.entries) disposeElement(part, key);
    hmxrelay_State sample = sampleOf<hmxrelay_State>(part);
    states_->dispose(sample);
    lastRevision_ = std::max(lastRevision_, part.revision);
    parts_.erase(found);
}

void Exporter::heard(const Heard& heard) {
    const auto found = byRetrieve_.find(heard.which);
    if (found == byRetrieve_.end()) return;
    Part& part = *found->second;
    switch (heard.kind) {
        case Heard::Kind::answer:
            (void)write(part, heard.response.payload());
            if (part.name.resource == "displays") followDisplays(heard.response.payload());
            return;
        case Heard::Kind::ended:  // asked again soon; what it said last still holds
            return;
        case Heard::Kind::missing:
            return setCondition(part, Condition::missing, 404, heard.error->reason());
        case Heard::Kind::lost:
        case Heard::Kind::failed: {
            const std::uint16_t status = heard.error->status() == 0 ? 503 : heard.error->status();
            return setCondition(part, Condition::lost, status,
                                heard.error->reason().empty() ? heard.error->what() : heard.error->reason());
        }
    }
}

// The popups and the touch regions are asked for by display.
void Exporter::followDisplays(const kelo::Payload& displays) {
    std::vector<std::string> names;
    for (const Json& display : hmx::client::elementsOf(hmx::client::decode(displays))) {
        std::string name = hmx::client::text(display, "name");
        if (!name.empty() && std::find(names.begin(), names.end(), name) == names.end()) names.push_back(std::move(name));
    }
    if (names == displays_) return;
    const auto pathOf = [](const std::string& name) { return kelo::Path::replacePattern("/*", {name}); };
    for (const std::string& name : std::exchange(displays_, names)) {
        if (std::find(names.begin(), names.end(), name) != names.end()) continue;
        leave({"popups", name});
        leave({std::string{inputManager}, pathOf(name)});
    }
    for (const std::string& name : names) {
        if (parts_.size() + 2 > mostParts) break;
        follow({"popups", name}, hmxPath, {"retrieve", "/popups", Json{{"display", name}}});
        follow({std::string{inputManager}, pathOf(name)}, "/" + std::string{inputManager}, {"retrieve", pathOf(name)});
    }
    writeOrigin();
}

bool Exporter::write(Part& part, const kelo::Payload& answer) {
    std::optional<std::vector<ElementText>> elements;
    if (part.name.resource == inputManager || part.name.resource == displayManager) {
        elements.emplace().push_back({{}, answer.text()});
    } else if (answer.mimeType().id() == kelo::mimetypes::MimeTypeID::json) {
        elements = elementTexts(answer.text());
    }
    if (!elements) {
        setCondition(part, Condition::lost, 500, "unreadable answer");
        return true;
    }
    std::vector<std::optional<std::uint64_t>> before;
    before.reserve(elements->size());
    for (const ElementText& element : *elements) {
        const Entry* const found = part.entries.find(element.key);
        before.push_back(found == nullptr ? std::nullopt : std::optional{found->position});
    }
    const std::vector<std::uint64_t> positions = positionsFor(before);
    const std::uint64_t revision = part.revision + 1;
    std::vector<std::pair<ElementKey, Entry>> entries;
    entries.reserve(elements->size());
    std::vector<const ElementText*> changed;
    std::uint64_t digest = 0;
    for (std::size_t i = 0; i < elements->size(); ++i) {
        const auto& [key, text] = (*elements)[i];
        const Entry* const found = part.entries.find(key);
        Entry entry{hashOf(text), positions[i], revision};
        if (found != nullptr && found->hash == entry.hash && found->position == entry.position) {
            entry = *found;
        } else {
            changed.push_back(&(*elements)[i]);
        }
        digest += digestOf(key, entry.revision);
        entries.emplace_back(key, entry);
    }
    bool isToldByState = part.condition != Condition::live || part.isUnfinished;
    const Entries past = std::exchange(part.entries, Entries{std::move(entries)});
    for (const auto& [key, entry] : past) {
        if (part.entries.find(key) != nullptr) continue;
        disposeElement(part, key);
        isToldByState = isToldByState || changed.empty();
    }
    if (changed.empty() && !isToldByState) return true;
    part.revision = revision;
    part.digest = digest;
    bool isWritten = true;
    for (const ElementText* element : changed) {
        Entry& entry = *part.entries.find(element->key);
        if (isWritten && !writeElement(part, element->key, entry, answer, element->text)) isWritten = false;
        // What could not be written must not look as if it were.
        if (!isWritten) entry.hash = ~entry.hash;
    }
    part.isUnfinished = !isWritten;
    if (!isWritten) {
        part.unwritten = answer;
        retrySoon();
        return false;
    }
    part.unwritten.reset();
    part.condition = Condition::live;
    part.status = 0;
    part.reason.clear();
    if (isToldByState) {
        writeState(part);
    } else {
        part.isStateUnwritten = true;
        retrySoon();
    }
    return true;
}

void Exporter::retrySoon() {
    if (!std::exchange(isRetryDue_, true)) unwritten_.raiseHere();
}

void Exporter::setCondition(Part& part, Condition condition, std::uint16_t status, const std::string& reason) {
    part.unwritten.reset();
    if (part.condition == condition && part.status == status && part.reason == reason && part.revision != 0) return;
    part.condition = condition;
    part.status = status;
    part.reason = reason;
    ++part.revision;
    writeState(part);
}

void Exporter::writeState(Part& part) {
    hmxrelay_State sample = sampleOf<hmxrelay_State>(part);
    sample.condition = static_cast<std::uint8_t>(part.condition);
    sample.status = part.status;
    sample.reason = lent(part.reason);
    sample.revision = part.revision;
    sample.count = static_cast<std::uint32_t>(part.entries.size());
    sample.digest = part.digest;
    part.isStateUnwritten = !states_->write(sample);
    if (part.isStateUnwritten) retrySoon();
}

bool Exporter::writeElement(const Part& part, const ElementKey& key, const Entry& entry, const kelo::Payload& answer,
                            std::string_view text) {
    hmxrelay_Element sample = sampleOf<hmxrelay_Element>(part);
    setKey(sample, key);
    sample.revision = entry.revision;
    sample.position = entry.position;
    sample.digest = part.digest;
    sample.count = static_cast<std::uint32_t>(part.entries.size());
    const std::string encoding{answer.mimeType().text()};
    sample.encoding = lent(encoding);
    lend(sample.document, text);
    return exact_->write(elements_->get(), &sample) == DDS_RETCODE_OK;
}

void Exporter::disposeElement(const Part& part, const ElementKey& key) {
    hmxrelay_Element sample = sampleOf<hmxrelay_Element>(part);
    setKey(sample, key);
    elements_->dispose(sample);
}

void Exporter::writeOrigin() {
    hmxrelay_Origin sample{};
    const std::string host = hostName();
    sample.name = lent(options_.name);
    std::copy(life_.begin(), life_.end(), std::begin(sample.life));
    sample.version = formatVersion;
    sample.started = started_;
    sample.beat = ++beats_;
    sample.lease = static_cast<std::uint32_t>(participant_.network().lease.count());
    for (const auto& [name, part] : parts_) sample.parts += part->isOnDemand ? 0U : 1U;
    sample.readOnly = options_.isReadOnly;
    sample.program = lent(options_.program);
    sample.host = lent(host);
    (void)origin_->write(sample);  // the next one says the same
}

}  // namespace hmxrelay
