// The other side of the relay: publishes on this machine what the exports of others write to the network.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <set>
#include <string>

#include "hmx/client/dispatcher.h"
#include "origin_copy.h"
#include "participant.h"

namespace hmxrelay {

// Thread: any (a value).
struct ImportOptions {
    // What follows "/hmx" in the path of the service; "ORIGIN" stands for the origin's name.
    std::string suffix{"@ORIGIN"};
    std::set<std::string> origins{};  // empty: all
};

// A resource. Thread: the dispatcher's.
class Importer {
public:
    // `surroundings` outlives it.
    Importer(Surroundings& surroundings, ImportOptions options);
    ~Importer();
    Importer(const Importer&) = delete;
    Importer& operator=(const Importer&) = delete;

private:
    hmx::client::Task<> tick();
    void takeOrigins();
    OriginCopy* copyOf(const std::string& name);

    Surroundings& surroundings_;
    ImportOptions options_;
    hmx::client::Signal arrived_;
    Entity subscriber_;
    Reader<hmxrelay_Origin> origins_;
    std::map<std::string, std::unique_ptr<OriginCopy>> copies_;
    bool hasRefused_ = false;
    hmx::client::Operation ticking_;
};

}  // namespace hmxrelay
