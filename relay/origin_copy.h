// One origin as this machine sees it: what it is known to have, and the services that say so here.
#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "change_sender.h"
#include "entrance.h"
#include "hmx/client/document.h"
#include "kelo/composed_service.h"
#include "kelo/runtime/kelo_runtime.h"
#include "names.h"
#include "participant.h"
#include "region_demand.h"
#include "shelves.h"

namespace hmxrelay {

// What the copies of a process share; outlives them.
struct Surroundings {
    hmx::client::Dispatcher& dispatcher;
    const Participant& participant;
    kelo::runtime::IKeloRuntime& runtime;
    bool isReadOnly = false;
};

// A resource. Thread: the dispatcher's.
class OriginCopy {
public:
    using Clock = std::chrono::steady_clock;

    // `suffix`: of the services' paths, "@cluster" or "".
    OriginCopy(Surroundings& surroundings, std::string name, const std::string& suffix);
    ~OriginCopy();
    OriginCopy(const OriginCopy&) = delete;
    OriginCopy& operator=(const OriginCopy&) = delete;

    // An export has given a sign of life.
    void heard(const hmxrelay_Origin& origin, const Author& author);
    // It has ended, or is out of reach; `author`: who says so, as far as is known.
    void gone(const Bytes16& life, const std::optional<Author>& author);
    // Does what is due.
    void tick(Clock::time_point now);

    bool isAlive() const noexcept { return attachment_ != nullptr; }

private:
    // An export under this name.
    struct Export {
        Author author{};
        std::int64_t started = 0;
        Clock::time_point lastHeard;
        std::chrono::milliseconds lease{1000};
        std::uint32_t parts = 0;
        bool isReadOnly = false;
        std::string host;
        std::string program;
    };
    struct Entry {
        std::uint64_t revision = 0;
        std::uint64_t position = 0;
        std::size_t bytes = 0;
        std::shared_ptr<void> element;  // null if it could not be read
    };
    struct Part {
        bool isKnown = false;  // its state has arrived
        Condition condition = Condition::lost;
        std::uint16_t status = 0;
        std::string reason;
        std::uint64_t revision = 0;  // of the newest sample; what it says:
        std::uint32_t count = 0;
        std::uint64_t digest = 0;
        std::uint64_t sum = 0;  // over the entries
        std::map<ElementKey, Entry> entries;
        bool isChanged = false;  // since it was last looked at
        std::optional<Clock::time_point> incompleteSince;
    };
    // What was handed on of a part.
    struct Shown {
        Bytes16 life{};
        Condition condition = Condition::lost;
        std::uint64_t revision = 0;
        std::uint64_t digest = 0;
        bool isLost = false;  // with the origin
    };
    using Parts = std::map<PartName, Part>;
    // The readers of one export, and what they have read.
    struct Attachment {
        Attachment(const Participant& participant, const std::string& name, const Bytes16& itsLife, const Author& itsAuthor,
                   const hmx::client::Signal::Raiser& arrived);

        Bytes16 life;
        Author author;
        std::uint32_t announced = 0;  // how many parts there are
        Entity publisher;
        Entity subscriber;
        Reader<hmxrelay_Element> elements;
        Reader<hmxrelay_State> states;
        Parts parts;
        bool isComplete = false;  // every part's state has arrived once
        Clock::time_point begun = Clock::now();
        Clock::time_point lastSample = Clock::now();
    };
    struct Service {
        Service(hmx::client::Dispatcher& dispatcher, Entrance::Admit admit) : entrance{dispatcher, std::move(admit)} {
            (void)composed.registerService("/", &entrance);
        }
        Entrance entrance;
        kelo::SimpleComposedKeloService composed;
        std::uint64_t handle = 0;
    };

    void choose();
    void attach(const Bytes16& life);
    void detach(const std::string& why);
    void repair(Clock::time_point now);

    void takeAll();
    void take(const hmxrelay_Element& sample, const dds_sample_info_t& info);
    void take(const hmxrelay_State& sample, const dds_sample_info_t& info);
    // Whether the export says something with it; counts what others say.
    template <class Sample>
    bool isOurs(const char* origin, const dds_sample_info_t& info, Reader<Sample>& reader);
    void eraseEntry(Part& part, std::map<ElementKey, Entry>::iterator entry);
    void removePart(const PartName& name);
    void show(const PartName& name, Part& part);
    static bool isWhole(const Part& part) { return part.entries.size() == part.count && part.sum == part.digest; }
    static std::vector<std::shared_ptr<void>> inOrder(const Part& part);

    Entrance::Place admit(Visitor visitor);
    using Answers = UpstreamAnswers& (Shelves::*)() noexcept;
    Entrance::Place admitUpstream(Answers answers, Visitor visitor);
    // Lets the visitor have what is left of an origin that is lost, if it wants that; the shelves to look on, or null.
    Shelves* offerStale(Visitor& visitor);
    Shelves& staleShelves();
    std::chrono::milliseconds age() const;
    std::string lossText() const;
    hmx::client::Json status() const;

    Surroundings& surroundings_;
    const std::string name_;
    hmx::client::Signal arrived_;
    ChangeSender changes_;
    Shelves shelves_;
    RegionDemand regionDemand_;

    std::map<Bytes16, Export> exports_;  // that are alive
    std::unique_ptr<Attachment> attachment_;
    std::map<PartName, Shown> shown_;
    Parts lastParts_;  // of the export that was lost
    std::unique_ptr<Shelves> stale_;
    Clock::time_point lastHeard_;
    std::string host_;
    std::string program_;
    bool originIsReadOnly_ = false;
    bool wasSeen_ = false;
    std::size_t elements_ = 0;
    std::size_t bytes_ = 0;
    std::uint64_t samples_ = 0;
    std::uint64_t lost_ = 0;  // of attachments that are over
    std::uint64_t foreign_ = 0;
    std::uint64_t malformed_ = 0;
    std::uint64_t repairs_ = 0;
    std::uint64_t losses_ = 0;
    std::chrono::milliseconds repairPause_{1000};
    Clock::time_point lastRepair_;

    std::vector<std::unique_ptr<Service>> services_;  // end first
};

}  // namespace hmxrelay
