// One side of the relay: follows /hmx on this machine and writes what there is to the network.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "change_desk.h"
#include "exact_samples.h"
#include "hmx/client/client.h"
#include "hmx/client/retrieves.h"
#include "names.h"
#include "participant.h"

namespace hmxrelay {

// Thread: any (a value).
struct ExportOptions {
    std::string name{};
    std::string program{};
    bool isReadOnly = false;
};

// A resource. Thread: the dispatcher's.
class Exporter {
public:
    // `client` and `participant` outlive it. `refused(why)` is called when another export has the name.
    // `begun` is called when the origin is on the network.
    Exporter(hmx::client::Client& client, const Participant& participant, ExportOptions options,
             std::function<void(const std::string& why)> refused, std::function<void()> begun);
    ~Exporter();
    Exporter(const Exporter&) = delete;
    Exporter& operator=(const Exporter&) = delete;

private:
    struct Entry {
        std::uint64_t hash = 0;
        std::uint64_t position = 0;
        std::uint64_t revision = 0;
    };
    // By key. A vector, because there may be many.
    class Entries {
    public:
        explicit Entries(std::vector<std::pair<ElementKey, Entry>> entries = {});
        Entry* find(const ElementKey& key) noexcept;
        auto begin() const noexcept { return sorted_.begin(); }
        auto end() const noexcept { return sorted_.end(); }
        std::size_t size() const noexcept { return sorted_.size(); }

    private:
        std::vector<std::pair<ElementKey, Entry>> sorted_;
    };
    struct Part {
        PartName name;
        bool isOnDemand = false;
        std::size_t retrieve = 0;
        Condition condition = Condition::lost;
        std::uint16_t status = 503;
        std::string reason{"not asked yet, request not sent"};
        std::uint64_t revision = 0;
        std::uint64_t digest = 0;
        Entries entries;
        std::optional<kelo::Payload> unwritten;  // an answer that the network did not take as a whole yet
        bool isUnfinished = false;               // some of its elements are not written yet
        bool isStateUnwritten = false;           // it waits a moment, or was not taken, either
    };

    hmx::client::Task<> live();
    hmx::client::Task<> beat();
    hmx::client::Task<> retry();

    void begin();
    void watchNamesakes();
    void refuse(const std::string& host);
    void watchInterest();
    Part& follow(PartName name, std::string service, hmx::client::Query query, bool isOnDemand = false);
    void leave(const PartName& name);
    void heard(const hmx::client::Heard& heard);
    void followDisplays(const kelo::Payload& displays);

    // False if the network did not take all of it; it is tried again.
    bool write(Part& part, const kelo::Payload& answer);
    void retrySoon();
    // With the names of the part, which it refers to.
    template <class Sample>
    Sample sampleOf(const Part& part) const;
    void writeState(Part& part);
    void writeOrigin();
    bool writeElement(const Part& part, const ElementKey& key, const Entry& entry, const kelo::Payload& answer,
                      std::string_view text);
    void disposeElement(const Part& part, const ElementKey& key);
    void setCondition(Part& part, Condition condition, std::uint16_t status, const std::string& reason);

    hmx::client::Client& client_;
    const Participant& participant_;
    ExportOptions options_;
    std::function<void(const std::string&)> refused_;
    std::function<void()> begun_;
    const Bytes16 life_;
    const std::int64_t started_;
    std::uint64_t beats_ = 0;
    std::optional<hmx::client::Deadline> settled_;  // for how long older exports of the name count as found late

    hmx::client::Signal originArrived_;
    hmx::client::Signal interestArrived_;
    hmx::client::Signal unwritten_;
    Entity commonPublisher_;
    Entity commonSubscriber_;
    Entity publisher_;
    Entity subscriber_;
    Reader<hmxrelay_Origin> origins_;
    std::map<Bytes16, std::string> namesakes_;  // other exports of the name that are alive: their machines
    std::optional<Writer<hmxrelay_Origin>> origin_;
    std::optional<Writer<hmxrelay_State>> states_;
    std::optional<Writer<hmxrelay_Element>> elements_;
    std::optional<ExactSamples> exact_;  // of the elements, of which there may be many
    std::optional<Reader<hmxrelay_Interest>> interest_;
    std::optional<ChangeDesk> desk_;

    std::map<PartName, std::unique_ptr<Part>> parts_;
    std::map<std::size_t, Part*> byRetrieve_;
    std::uint64_t lastRevision_ = 0;  // of parts that are gone: one that comes back goes on from there
    std::vector<std::string> displays_;
    bool isRetryDue_ = false;
    hmx::client::Retrieves retrieves_;
    hmx::client::Operation life1_;
    hmx::client::Operation life2_;
};

}  // namespace hmxrelay
