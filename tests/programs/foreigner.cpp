// Writes what nobody should believe to the topics of an origin, for tests. Usage: hmxforeigner INTERFACE ORIGIN LIFE [SECURITY]
#include <algorithm>
#include <chrono>
#include <iostream>
#include <thread>

#include "names.h"
#include "participant.h"

using namespace hmxrelay;

namespace {

template <class Octets>
void copy(const Bytes16& id, Octets& out) {
    std::copy(id.begin(), id.end(), std::begin(out));
}

// Under the name and in the partition of an export: an element that it does not have, the removal of one that it has, a state
// that empties the displays, an end.
void contradict(const Participant& participant, const Network& network, const std::string& name, const std::string& lifeText) {
    std::UUID life;
    if (!std::UUID::parse(lifeText, life)) throw std::runtime_error{"no life: " + lifeText};
    const std::string resource{"displays"};
    const std::string part;
    const std::string encoding{"application/json"};
    const Entity common = participant.publisher("");
    const Entity publisher = participant.publisher(name + "/" + lifeText);
    Writer<hmxrelay_Origin> origins{participant, common};
    Writer<hmxrelay_Element> elements{participant, publisher};
    Writer<hmxrelay_State> states{participant, publisher};
    std::this_thread::sleep_for(network.lease);

    hmxrelay_Element element{};
    element.origin = lent(name);
    element.resource = lent(resource);
    element.part = lent(part);
    element.encoding = lent(encoding);
    element.revision = 1'000'000;
    element.count = 1;
    std::UUID display;
    (void)std::UUID::parse("19243473-0126-5f4b-b1bf-4879152c72e5", display);
    for (const Bytes16& id : {Bytes16{1}, display.bytes()}) {
        copy(id, element.id);
        lend(element.document, "{\"id\":\"nothing\"");
        (void)elements.write(element);
    }
    elements.dispose(element);
    hmxrelay_State state{};
    state.origin = lent(name);
    state.resource = lent(resource);
    state.part = lent(part);
    state.reason = lent(part);
    state.condition = 1;
    state.revision = 1'000'000;
    (void)states.write(state);
    states.dispose(state);
    hmxrelay_Origin origin{};
    origin.name = lent(name);
    copy(life.bytes(), origin.life);
    origin.version = formatVersion;
    origin.program = lent(part);
    origin.host = lent(part);
    (void)origins.write(origin);
    std::this_thread::sleep_for(network.lease / 2);
    origins.dispose(origin);
    std::this_thread::sleep_for(network.lease / 2);
}

// An origin of its own whose samples are no good.
void mumble(const Participant& participant, const Network& network) {
    const std::string name{"mumbler"};
    const std::string part;
    const Bytes16 life = randomId();
    const Entity common = participant.publisher("");
    const Entity publisher = participant.publisher(name + "/" + std::UUID{life}.toString());
    Writer<hmxrelay_Origin> origins{participant, common};
    Writer<hmxrelay_Element> elements{participant, publisher};
    Writer<hmxrelay_State> states{participant, publisher};
    hmxrelay_Origin origin{};
    copy(life, origin.life);
    origin.program = lent(part);
    origin.host = lent(part);
    origin.parts = 4'000'000'000U;
    for (const std::string& each : {std::string{"../../etc"}, std::string(200, 'x'), std::string{}, name}) {
        origin.name = lent(each);
        origin.version = each == name ? formatVersion : formatVersion + 1;
        (void)origins.write(origin);
        origin.version = formatVersion;
        (void)origins.write(origin);
    }
    for (const std::string& resource : {std::string{"displays"}, std::string{"popups"}, std::string{"regionconfigurations"},
                                        std::string{inputManager}, std::string{"secrets"}, std::string{}}) {
        hmxrelay_State state{};
        hmxrelay_Element element{};
        state.origin = element.origin = lent(name);
        state.resource = element.resource = lent(resource);
        state.part = element.part = lent(part);
        state.reason = element.encoding = lent(part);
        for (std::uint32_t i = 0; i < 50; ++i) {
            element.occurrence = i;
            element.revision = ~0ULL - i;
            lend(element.document, i % 2 == 0 ? "\x00\xff[[[[{" : "{\"id\":7,\"name\":[]}");
            state.condition = static_cast<std::uint8_t>(i);
            state.count = i == 49 ? 50 : ~0U;
            (void)elements.write(element);
            (void)states.write(state);
        }
    }
    std::this_thread::sleep_for(network.lease);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 4) return 2;
    Network network;
    network.interface = argv[1];
    if (argc > 4) network.security = argv[4];
    const Participant participant{network};
    contradict(participant, network, argv[2], argv[3]);
    mumble(participant, network);
}
