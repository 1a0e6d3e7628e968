// Topics and viewers.
//
// Each thing that is watched is followed once, by a topic, however many viewers it has. All events of all topics are numbered in
// one sequence, so one id says how far a viewer has come in everything that it watches. A text is made once and shared.
//
// A viewer has a place in each of its topics. It is either due a snapshot there, which is made of the topic's state when the
// viewer reads it, or it follows, and the events that it has not read wait for it: of each element only the newest, in the order
// of their numbers. So what is kept for a slow viewer is bounded by what there is, and beyond a limit it is due a snapshot again.
// The snapshots come before the events. As long as something with a lower number remains to be read, a snapshot carries the id 0,
// which is no event's: who comes back with it begins anew, and misses nothing.
//
// A topic keeps its last events. A viewer that comes back with an id goes on after it if all events since then are still there.
// A topic whose last viewer has gone is kept for a while, so that a reader who lost the connection finds it.
//
// A source that is lost leaves the topic's state as it was: viewers are told of the loss, and of the return, before the snapshot
// that follows it.

#include "event_hub.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <ctime>

#include "gateway_limits.h"
#include "hmx/client/document.h"
#include "json_text.h"

namespace hmxgateway {
namespace {

using hmx::client::compact;
using Json = hmx::client::Json;

// As the client sees it.
constexpr std::string_view nameOf(EventKind kind) noexcept {
    constexpr std::array<std::string_view, 5> names{"snapshot", "changed", "removed", "lost", "back"};
    return names[static_cast<std::size_t>(kind)];
}

std::string lines(EventKind kind, const std::string& id, std::string_view watch, std::string_view data) {
    std::string text;
    text.reserve(data.size() + watch.size() + 96);
    text.append("id: ").append(id).append("\nevent: ").append(nameOf(kind)).append("\ndata: ");
    if (!watch.empty()) text.append("{\"watch\":").append(watch).append(",\"data\":");
    text.append(data);
    if (!watch.empty()) text += '}';
    return text.append("\n\n");
}

}  // namespace

std::string timestamp(std::chrono::system_clock::time_point at) {
    const std::time_t seconds = std::chrono::system_clock::to_time_t(at);
    const auto milliseconds = std::chrono::duration_cast<std::chrono::milliseconds>(at.time_since_epoch()).count() % 1000;
    std::tm utc{};
    ::gmtime_r(&seconds, &utc);
    char text[40];
    const std::size_t length = std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", &utc);
    std::snprintf(text + length, sizeof text - length, ".%03dZ", static_cast<int>(milliseconds));
    return text;
}

// --- Topic -------------------------------------------------------------------------------------------------------------------

void Topic::snapshot(const std::vector<Json>& elements) {
    elements_.emplace();
    elements_->reserve(elements.size());
    for (const Json& element : elements) elements_->push_back({hmx::client::text(element, "id"), compact(element)});
    if (lost_) {
        lost_.reset();
        tell(EventKind::back, {}, "{}");
    }
    tell(EventKind::snapshot, {}, {});
}

void Topic::changed(const Json& element) {
    std::string id = hmx::client::text(element, "id");
    std::string json = compact(element);
    std::string data = "{\"element\":" + json + "}";
    if (!elements_) elements_.emplace();
    const auto found = std::find_if(elements_->begin(), elements_->end(), [&](const Element& each) { return each.id == id; });
    if (found == elements_->end()) {
        elements_->push_back({id, std::move(json)});
    } else {
        found->json = std::move(json);
    }
    tell(EventKind::changed, std::move(id), std::move(data));
}

void Topic::removed(const std::string& id) {
    if (!elements_) return;
    const auto found = std::find_if(elements_->begin(), elements_->end(), [&](const Element& each) { return each.id == id; });
    if (found == elements_->end()) return;
    elements_->erase(found);
    tell(EventKind::removed, id, json::object({{"id", json::text(id)}}));
}

void Topic::lost(std::string_view service, std::string_view reason) {
    if (lost_) return;
    tell(EventKind::lost, {},
         json::object({{"service", json::text(service)},
                       {"reason", json::text(reason)},
                       {"since", json::text(timestamp(std::chrono::system_clock::now()))}}));
    lost_ = history_.back();
}

void Topic::tell(EventKind kind, std::string element, std::string data) {
    auto event = std::make_shared<Event>(Event{kind, ++hub_.number_, std::move(element), std::move(data)});
    historyBytes_ += event->data.size();
    history_.push_back(event);
    while (history_.size() > 1 && (history_.size() > limits.historyEvents || historyBytes_ > limits.historyBytes)) {
        historyBytes_ -= history_.front()->data.size();
        forgotten_ = history_.front()->number;
        history_.pop_front();
    }
    for (Viewer* viewer : viewers_) viewer->put(*this, event);
    hub_.cutSlowest();
}

SharedText Topic::textOf(const Event& event, std::uint64_t number, bool wrapped) const {
    return hub_.makeText(lines(event.kind, hub_.idOf(number), wrapped ? json::text(name_) : "", event.data));
}

SharedText Topic::textOf(Event& event, bool wrapped) const {
    WeakText& kept = event.texts[wrapped ? 1 : 0];
    SharedText text = kept.lock();
    if (!text) kept = text = textOf(event, event.number, wrapped);
    return text;
}

SharedText Topic::snapshotText(std::uint64_t number, bool wrapped) {
    Snapshot& kept = snapshots_[wrapped ? 1 : 0][number == 0 ? 0 : 1];
    const std::uint64_t state = history_.empty() ? forgotten_ : history_.back()->number;
    // A viewer of nothing else may have an older id of the same state.
    const bool fits = kept.state == state && (kept.number == number || (!wrapped && number != 0));
    if (SharedText text = fits ? kept.text.lock() : nullptr) return text;
    std::string data = "{\"elements\":[";
    for (const Element& element : *elements_) {
        if (data.back() != '[') data += ',';
        data += element.json;
    }
    data += "]}";
    SharedText text = hub_.makeText(lines(EventKind::snapshot, hub_.idOf(number), wrapped ? json::text(name_) : "", data));
    kept = {state, number, text};
    return text;
}

// --- Viewer ------------------------------------------------------------------------------------------------------------------

Viewer::~Viewer() {
    hub_.leave(*this);
}

Viewer::Place& Viewer::placeIn(const Topic& topic) {
    return *std::find_if(places_.begin(), places_.end(), [&](const Place& place) { return place.topic == &topic; });
}

void Viewer::restart(Place& place) {
    std::erase_if(pending_, [&](const Pending& each) { return each.topic == place.topic; });
    place.needsSnapshot = true;
}

void Viewer::put(Topic& topic, const std::shared_ptr<Event>& event) {
    Place& place = placeIn(topic);
    if (!place.needsSnapshot) {
        if (event->kind == EventKind::snapshot) {
            restart(place);
        } else {
            if (!event->element.empty()) {
                std::erase_if(pending_,
                              [&](const Pending& each) { return each.topic == &topic && each.event->element == event->element; });
            }
            pending_.push_back({&topic, event});
            if (pending_.size() > limits.queuedEvents) restart(place);
        }
    }
    wakeUp();
}

void Viewer::wakeUp() {
    if (isIdle_ && hasMore()) {
        isIdle_ = false;
        wake_();
    }
}

bool Viewer::hasMore() const noexcept {
    return cut_ || !texts_.empty() || !pending_.empty() || std::any_of(places_.begin(), places_.end(), isDue);
}

void Viewer::comment() {
    if (hasMore()) return;
    static const std::string text{": \n\n"};
    texts_.push_back(hub_.makeText(text));
    wakeUp();
}

bool Viewer::isDue(const Place& place) noexcept {
    return place.needsSnapshot && (place.topic->isKnown() || (place.topic->isLost() && !place.knowsLoss));
}

// The first of the snapshots that are due.
bool Viewer::fetchSnapshot() {
    const auto found = std::find_if(places_.begin(), places_.end(), isDue);
    if (found == places_.end()) return false;
    Place& place = *found;
    Topic& topic = *place.topic;
    const bool isBack = place.knowsLoss && !topic.isLost();
    place.needsSnapshot = !topic.isKnown();
    place.knowsLoss = topic.isLost();
    const bool isLast = pending_.empty() && std::none_of(places_.begin(), places_.end(), isDue);
    const std::uint64_t reached = isLast ? hub_.number_ : 0;
    if (isBack) texts_.push_back(topic.textOf(Event{EventKind::back, 0, {}, "{}"}, 0, wrapped_));
    if (topic.isKnown()) texts_.push_back(topic.snapshotText(topic.isLost() ? 0 : reached, wrapped_));
    if (topic.isLost()) texts_.push_back(topic.textOf(*topic.lost_, reached, wrapped_));
    return true;
}

bool Viewer::fetchNext() {
    if (fetchSnapshot()) return true;
    if (pending_.empty()) return false;
    const Pending next = pending_.front();
    pending_.erase(pending_.begin());
    if (next.event->kind == EventKind::lost) placeIn(*next.topic).knowsLoss = true;
    if (next.event->kind == EventKind::back) placeIn(*next.topic).knowsLoss = false;
    texts_.push_back(next.topic->textOf(*next.event, wrapped_));
    return true;
}

std::size_t Viewer::read(char* out, std::size_t room) {
    lastRead_ = EventHub::Clock::now();
    std::size_t copied = 0;
    while (copied < room && (!texts_.empty() || fetchNext())) {
        const std::string_view text = texts_.front()->text().substr(sent_);
        const std::size_t part = std::min(text.size(), room - copied);
        std::memcpy(out + copied, text.data(), part);
        copied += part;
        sent_ += part;
        if (part == text.size()) {
            texts_.erase(texts_.begin());
            sent_ = 0;
        }
    }
    isIdle_ = !hasMore();
    return copied;
}

// --- EventHub ----------------------------------------------------------------------------------------------------------------

EventHub::~EventHub() {
    topics_.clear();
}

SharedText EventHub::makeText(std::string text) {
    return recentTexts_.emplace_back(std::make_shared<const EventText>(std::move(text), liveBytes_));
}

std::uint64_t EventHub::numberIn(std::string_view id) const noexcept {
    if (!id.starts_with(generation_) || id.size() < generation_.size() + 2 || id[generation_.size()] != '-') return 0;
    id.remove_prefix(generation_.size() + 1);
    std::uint64_t number = 0;
    const auto end = std::from_chars(id.data(), id.data() + id.size(), number);
    return end.ec == std::errc{} && end.ptr == id.data() + id.size() && number <= number_ ? number : 0;
}

Topic* EventHub::topicFor(const Watch& watch) {
    const auto found = topics_.find(watch.name);
    if (found != topics_.end()) return found->second.get();
    if (topics_.size() >= limits.topics) {
        // One that nobody watches makes room.
        const auto idle =
            std::find_if(topics_.begin(), topics_.end(), [](const auto& each) { return each.second->viewers_.empty(); });
        if (idle == topics_.end()) return nullptr;
        topics_.erase(idle);
    }
    Topic& topic = *topics_.emplace(watch.name, std::make_unique<Topic>(*this, watch.name)).first->second;
    topic.forgotten_ = number_;
    topic.source_ = watch.follow(topic);
    return &topic;
}

std::unique_ptr<Viewer> EventHub::join(const std::vector<Watch>& watches, bool wrapped, std::string_view lastEventId,
                                       std::function<void()> wake) {
    auto viewer = std::unique_ptr<Viewer>{new Viewer{*this, std::move(wake)}};
    viewer->wrapped_ = wrapped;
    viewer->lastRead_ = Clock::now();
    viewers_.push_back(viewer.get());
    const std::uint64_t seen = numberIn(lastEventId);
    std::vector<Viewer::Pending> missed;
    for (const Watch& watch : watches) {
        Topic* topic = topicFor(watch);
        if (topic == nullptr) return nullptr;
        const auto isThere = [&](const Viewer::Place& place) { return place.topic == topic; };
        if (std::any_of(viewer->places_.begin(), viewer->places_.end(), isThere)) continue;
        topic->viewers_.push_back(viewer.get());
        topic->unwatchedSince_.reset();
        Viewer::Place& place = viewer->places_.emplace_back();
        place.topic = topic;
        if (seen == 0 || !topic->isCompleteSince(seen)) continue;
        place.needsSnapshot = false;
        place.knowsLoss = topic->lost_ && topic->lost_->number <= seen;
        for (const auto& event : topic->history_) {
            if (event->number > seen) missed.push_back({topic, event});
        }
    }
    std::sort(missed.begin(), missed.end(), [](const auto& a, const auto& b) { return a.event->number < b.event->number; });
    for (const Viewer::Pending& each : missed) viewer->put(*each.topic, each.event);
    static const std::string retry{"retry: 1000\n\n"};
    viewer->texts_.push_back(makeText(retry));
    return viewer;
}

void EventHub::leave(Viewer& viewer) {
    std::erase(viewers_, &viewer);
    bool unwatched = false;
    for (const Viewer::Place& place : viewer.places_) {
        std::erase(place.topic->viewers_, &viewer);
        if (!place.topic->viewers_.empty()) continue;
        place.topic->unwatchedSince_ = Clock::now();
        unwatched = true;
    }
    if (unwatched && onUnwatched) onUnwatched();
}

std::optional<EventHub::Clock::time_point> EventHub::expire(Clock::time_point now) {
    std::optional<Clock::time_point> next;
    for (auto each = topics_.begin(); each != topics_.end();) {
        const auto& since = each->second->unwatchedSince_;
        if (since && *since + limits.linger <= now) {
            each = topics_.erase(each);
            continue;
        }
        if (since && (!next || *since + limits.linger < *next)) next = *since + limits.linger;
        ++each;
    }
    return next;
}

void EventHub::cutSlowest() {
    if (liveBytes_ <= limits.unreadBytes) return;
    Viewer* slowest = nullptr;
    for (Viewer* viewer : viewers_) {
        const bool isReading = viewer->texts_.empty() && viewer->pending_.empty();
        if (isReading || viewer->cut_) continue;
        if (slowest == nullptr || viewer->lastRead_ < slowest->lastRead_) slowest = viewer;
    }
    if (slowest == nullptr) return;
    slowest->cut_ = true;
    slowest->texts_.clear();
    slowest->pending_.clear();
    ++cutViewers_;
    slowest->wakeUp();
}

void EventHub::commentAll() {
    for (Viewer* viewer : viewers_) viewer->comment();
}

}  // namespace hmxgateway
