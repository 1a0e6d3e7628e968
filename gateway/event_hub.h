// What is watched, once for all who watch it, and each viewer's place in it.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "hmx/client/document.h"

namespace hmxgateway {

class EventHub;
class Topic;
class Viewer;

// Something upstream that is followed for a topic, until it is destroyed.
class Source {
public:
    virtual ~Source() = default;
};

// A thing to watch: what the viewer called it, which is also what topics are shared by, and how it is followed.
struct Watch {
    std::string name;
    std::function<std::unique_ptr<Source>(Topic&)> follow;
};

// Counts the bytes of a text for as long as somebody holds it. Thread: the gateway's.
class EventText {
public:
    EventText(std::string text, std::size_t& live) : text_{std::move(text)}, live_{live} { live_ += text_.size(); }
    ~EventText() { live_ -= text_.size(); }
    EventText(const EventText&) = delete;
    EventText& operator=(const EventText&) = delete;
    std::string_view text() const noexcept { return text_; }

private:
    std::string text_;
    std::size_t& live_;
};
using SharedText = std::shared_ptr<const EventText>;
using WeakText = std::weak_ptr<const EventText>;

enum class EventKind : std::uint8_t { snapshot, changed, removed, lost, back };

// One event of a topic. Thread: the gateway's.
struct Event {
    EventKind kind = EventKind::snapshot;
    std::uint64_t number = 0;
    std::string element;  // the id that it is about, "" for the topic as a whole
    std::string data;     // JSON; "" of a snapshot, which is made when it is read
    WeakText texts[2]{};  // plain and wrapped, while somebody reads them
};

// The state of one watched thing and its recent past. Thread: the gateway's.
class Topic {
public:
    Topic(EventHub& hub, std::string name) : hub_{hub}, name_{std::move(name)} {}

    // What the source says. After `lost`, the next snapshot says that it is back.
    void snapshot(const std::vector<hmx::client::Json>& elements);
    void changed(const hmx::client::Json& element);
    void removed(const std::string& id);
    void lost(std::string_view service, std::string_view reason);

    bool isKnown() const noexcept { return elements_.has_value(); }
    bool isLost() const noexcept { return lost_ != nullptr; }

private:
    friend EventHub;
    friend Viewer;
    using SharedEvent = std::shared_ptr<Event>;
    struct Element {
        std::string id;
        std::string json;
    };

    void tell(EventKind kind, std::string element, std::string data);
    bool isCompleteSince(std::uint64_t number) const noexcept { return number >= forgotten_; }
    SharedText textOf(Event& event, bool wrapped) const;
    // With another id than the event's own: how far the reader has come.
    SharedText textOf(const Event& event, std::uint64_t number, bool wrapped) const;
    SharedText snapshotText(std::uint64_t number, bool wrapped);

    EventHub& hub_;
    std::string name_;
    std::unique_ptr<Source> source_;
    std::optional<std::vector<Element>> elements_;
    SharedEvent lost_;
    std::vector<Viewer*> viewers_;
    std::deque<SharedEvent> history_;
    std::size_t historyBytes_ = 0;
    std::uint64_t forgotten_ = 0;  // every event with a greater number is in the history
    struct Snapshot {
        std::uint64_t state = 0;   // the last event that it includes
        std::uint64_t number = 0;  // the id that it carries
        WeakText text;
    };
    Snapshot snapshots_[2][2];  // the last ones made: plain and wrapped, with the id 0 and with another
    std::optional<std::chrono::steady_clock::time_point> unwatchedSince_;
};

// One open stream. Thread: the gateway's.
class Viewer {
public:
    ~Viewer();
    Viewer(const Viewer&) = delete;
    Viewer& operator=(const Viewer&) = delete;

    // Copies what comes next into `out`; 0 when there is nothing.
    std::size_t read(char* out, std::size_t room);
    bool hasMore() const noexcept;
    // To be disconnected: what it leaves unread is too much.
    bool isCut() const noexcept { return cut_; }
    // Sends a comment if there is nothing else to be sent.
    void comment();

private:
    friend EventHub;
    friend Topic;
    struct Place {
        Topic* topic = nullptr;
        bool needsSnapshot = true;
        bool knowsLoss = false;
    };
    struct Pending {
        Topic* topic;
        std::shared_ptr<Event> event;
    };

    Viewer(EventHub& hub, std::function<void()> wake) : hub_{hub}, wake_{std::move(wake)} {}
    void put(Topic& topic, const std::shared_ptr<Event>& event);
    void restart(Place& place);
    void wakeUp();
    bool fetchNext();
    bool fetchSnapshot();
    static bool isDue(const Place& place) noexcept;
    Place& placeIn(const Topic& topic);

    EventHub& hub_;
    std::function<void()> wake_;
    bool wrapped_ = false;
    bool cut_ = false;
    bool isIdle_ = false;  // it has read all that there was
    std::vector<Place> places_;
    std::vector<Pending> pending_;   // few, and of most viewers none: a deque would take a kilobyte for that
    std::vector<SharedText> texts_;  // being sent
    std::size_t sent_ = 0;           // of the first of them
    std::chrono::steady_clock::time_point lastRead_;
};

// Thread: the gateway's.
class EventHub {
public:
    using Clock = std::chrono::steady_clock;

    // `generation` tells this process's event ids from those of others.
    explicit EventHub(std::string generation) : generation_{std::move(generation)} {}
    ~EventHub();

    // A viewer of one thing, or, with `wrapped`, of several whose names come with their events. `wake`: called when there is
    // something to be read after there was nothing. Null when that would be too many topics.
    std::unique_ptr<Viewer> join(const std::vector<Watch>& watches, bool wrapped, std::string_view lastEventId,
                                 std::function<void()> wake);

    // Ends topics that nobody has watched for a while. When to call it next; nothing: not before a viewer leaves.
    std::optional<Clock::time_point> expire(Clock::time_point now);
    // To be called when that may have become earlier.
    std::function<void()> onUnwatched;

    void commentAll();
    // At the end of each turn of the loop: texts were kept so far for those who read them in the same turn.
    void forgetTexts() noexcept { recentTexts_.clear(); }
    std::size_t viewers() const noexcept { return viewers_.size(); }
    std::size_t topics() const noexcept { return topics_.size(); }
    std::uint64_t cutViewers() const noexcept { return cutViewers_; }
    std::uint64_t events() const noexcept { return number_ - 1; }

private:
    friend Topic;
    friend Viewer;

    Topic* topicFor(const Watch& watch);
    void leave(Viewer& viewer);
    void cutSlowest();
    SharedText makeText(std::string text);
    std::string idOf(std::uint64_t number) const { return generation_ + "-" + std::to_string(number); }
    // The number in an id of this generation; 0 for any other id, which stands for having seen nothing.
    std::uint64_t numberIn(std::string_view id) const noexcept;

    std::string generation_;
    std::uint64_t number_ = 1;   // of the last event of all topics; 0 is no event's
    std::size_t liveBytes_ = 0;  // outlives the texts that count on it
    std::vector<SharedText> recentTexts_;
    std::map<std::string, std::unique_ptr<Topic>, std::less<>> topics_;
    std::vector<Viewer*> viewers_;
    std::uint64_t cutViewers_ = 0;
};

// "2026-11-22T09:40:00.123Z". Thread: any.
[[nodiscard]] std::string timestamp(std::chrono::system_clock::time_point at);

}  // namespace hmxgateway
