#include "importer.h"

#include <algorithm>
#include <chrono>

namespace hmxrelay {
namespace {

using std::chrono::milliseconds;

constexpr milliseconds turn{250};
constexpr std::size_t mostOrigins = 32;
constexpr std::string_view placeholder{"ORIGIN"};

}  // namespace

Importer::Importer(Surroundings& surroundings, ImportOptions options)
    : surroundings_{surroundings},
      options_{std::move(options)},
      arrived_{surroundings.dispatcher},
      subscriber_{surroundings.participant.subscriber("")},
      origins_{surroundings.participant, subscriber_, arrived_.raiser()} {
    arrived_.onRaised([this] { takeOrigins(); });
    // Those that are named have a service from the start, which says that they are not there yet.
    for (const std::string& name : options_.origins) (void)copyOf(name);
    ticking_ = surroundings_.dispatcher.start(tick(), [](const hmx::client::Outcome<void>&) {});
}

Importer::~Importer() = default;

hmx::client::Task<> Importer::tick() {
    for (;;) {
        co_await surroundings_.dispatcher.pause(turn);
        for (const auto& [name, copy] : copies_) copy->tick(OriginCopy::Clock::now());
    }
}

OriginCopy* Importer::copyOf(const std::string& name) {
    if (!isOriginName(name) || (!options_.origins.empty() && !options_.origins.contains(name))) return nullptr;
    const auto found = copies_.find(name);
    if (found != copies_.end()) return found->second.get();
    if (copies_.size() >= mostOrigins) {
        const auto lost = std::find_if(copies_.begin(), copies_.end(), [](const auto& each) { return !each.second->isAlive(); });
        if (lost == copies_.end()) {
            if (!std::exchange(hasRefused_, true)) tracing::logC(channel, 4, "there are more origins than can be imported");
            return nullptr;
        }
        copies_.erase(lost);
    }
    std::string suffix = options_.suffix;
    if (const std::size_t at = suffix.find(placeholder); at != std::string::npos) suffix.replace(at, placeholder.size(), name);
    return copies_.emplace(name, std::make_unique<OriginCopy>(surroundings_, name, suffix)).first->second.get();
}

void Importer::takeOrigins() {
    origins_.takeAll([this](const hmxrelay_Origin& origin, const dds_sample_info_t& info) {
        const std::string name{textOf(origin.name)};
        const bool isAlive = info.instance_state == DDS_ALIVE_INSTANCE_STATE;
        if (!isAlive && !copies_.contains(name)) return;
        Bytes16 life{};
        std::copy(std::begin(origin.life), std::end(origin.life), life.begin());
        if (isAlive) {
            const auto author = origins_.author(info.publication_handle);
            if (!info.valid_data || !author || origin.version != formatVersion) return;
            if (OriginCopy* const copy = copyOf(name)) copy->heard(origin, *author);
        } else {
            copies_.at(name)->gone(life, origins_.author(info.publication_handle));
        }
    });
}

}  // namespace hmxrelay
