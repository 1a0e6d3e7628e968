// The engine is configured by a document of its own, which is made here from the flags, and from nothing else: what the
// environment says about it is not read. On the loopback, which has no multicast, and where peers are named, participants look
// for each other at the first few ports of each peer; elsewhere by multicast, which no router passes on.
//
// The writers' lease tells when one is lost. A participant is forgotten later, so that it need not announce itself as often: that
// would be half of the idle traffic.
//
// A writer that is deleted does not wait for acknowledgements. By default the engine blocks for up to a second, and who is lost
// acknowledges nothing, so those who watch its origin, and all other origins, would wait with it.
#include "participant.h"

#include <arpa/inet.h>

#include <cstring>

namespace hmxrelay {
namespace {

// The largest sample: a frame's worth of document, and its names.
constexpr const char* largestSample = "1300 kB";
// What each of the engine's receiving threads takes in one piece.
constexpr const char* receiveBuffer = "256 kB";
// How many participants on one machine find each other without multicast.
constexpr int portsTried = 6;
// How long a writer waits for readers that are behind.
constexpr std::chrono::milliseconds longestWait{20};
// Of what is kept one by one.
constexpr int mostKept = 4096;
constexpr int mostInstances = 40'000;

std::string escaped(std::string_view text) {
    std::string out;
    for (const char c : text) {
        switch (c) {
            case '&':
                out += "&amp;";
                break;
            case '<':
                out += "&lt;";
                break;
            case '"':
                out += "&quot;";
                break;
            default:
                out += c;
        }
    }
    return out;
}

bool isAddress(const std::string& text) {
    std::array<std::uint8_t, 16> address{};
    return ::inet_pton(AF_INET, text.c_str(), address.data()) == 1 || ::inet_pton(AF_INET6, text.c_str(), address.data()) == 1;
}

std::string textOf(std::chrono::milliseconds duration) {
    return std::to_string(duration.count()) + " ms";
}

std::string configuration(const Network& network) {
    const bool isLocal = network.interface == "lo" || network.interface == "127.0.0.1";
    const bool isMulticast = !isLocal && network.peers.empty();
    std::string text = "<CycloneDDS><Domain id=\"any\"><General><Interfaces><NetworkInterface ";
    text += (isAddress(network.interface) ? "address=\"" : "name=\"") + escaped(network.interface) + "\"";
    text += std::string{" multicast=\""} + (isMulticast ? "true" : "false") + "\"/></Interfaces>";
    text += std::string{"<AllowMulticast>"} + (isMulticast ? "true" : "false") + "</AllowMulticast>";
    text += "<MulticastTimeToLive>1</MulticastTimeToLive></General><Discovery>";
    text += "<LeaseDuration>" + textOf(network.lease * 2) + "</LeaseDuration><SPDPInterval>" + textOf(network.lease * 3 / 2) +
            "</SPDPInterval>";
    if (!isMulticast) {
        text += "<ParticipantIndex>auto</ParticipantIndex><MaxAutoParticipantIndex>" + std::to_string(portsTried - 1) +
                "</MaxAutoParticipantIndex><Peers>";
        if (isLocal) text += "<Peer address=\"127.0.0.1\"/>";
        for (const std::string& peer : network.peers) text += "<Peer address=\"" + escaped(peer) + "\"/>";
        text += "</Peers>";
    }
    text += "</Discovery><Internal><WriterLingerDuration>0 s</WriterLingerDuration><MaxSampleSize>" + std::string{largestSample} +
            "</MaxSampleSize></Internal><Sizing><ReceiveBufferSize>" + receiveBuffer +
            "</ReceiveBufferSize><ReceiveBufferChunkSize>64 kB</ReceiveBufferChunkSize></Sizing>";
    text += "<Tracing><Category>fatal,error</Category><OutputFile>stderr</OutputFile></Tracing></Domain></CycloneDDS>";
    return text;
}

Qos newQos() {
    return {dds_create_qos(), &dds_delete_qos};
}

void secure(dds_qos_t* qos, const std::string& directory) {
    const auto file = [&](const char* name) { return "file:" + directory + "/" + name; };
    const auto plugin = [&](const std::string& kind, const char* library, const char* start) {
        const std::string prefix = "dds.sec." + kind + ".library.";
        dds_qset_prop(qos, (prefix + "path").c_str(), library);
        dds_qset_prop(qos, (prefix + "init").c_str(), ("init_" + std::string{start}).c_str());
        dds_qset_prop(qos, (prefix + "finalize").c_str(), ("finalize_" + std::string{start}).c_str());
    };
    plugin("auth", "dds_security_auth", "authentication");
    plugin("access", "dds_security_ac", "access_control");
    plugin("crypto", "dds_security_crypto", "crypto");
    dds_qset_prop(qos, "dds.sec.auth.identity_ca", file("identity_ca.pem").c_str());
    dds_qset_prop(qos, "dds.sec.auth.private_key", file("key.pem").c_str());
    dds_qset_prop(qos, "dds.sec.auth.identity_certificate", file("certificate.pem").c_str());
    dds_qset_prop(qos, "dds.sec.access.permissions_ca", file("permissions_ca.pem").c_str());
    dds_qset_prop(qos, "dds.sec.access.governance", file("governance.p7s").c_str());
    dds_qset_prop(qos, "dds.sec.access.permissions", file("permissions.p7s").c_str());
}

Qos entityQos(Keeping keeping) {
    Qos qos = newQos();
    const bool isNewest = keeping == Keeping::newest;
    dds_qset_reliability(qos.get(), DDS_RELIABILITY_RELIABLE, DDS_MSECS(longestWait.count()));
    dds_qset_durability(qos.get(), isNewest ? DDS_DURABILITY_TRANSIENT_LOCAL : DDS_DURABILITY_VOLATILE);
    dds_qset_destination_order(qos.get(), DDS_DESTINATIONORDER_BY_RECEPTION_TIMESTAMP);
    return qos;
}

}  // namespace

Entity::Entity(dds_entity_t made, std::string_view what) : entity_{made} {
    if (made < 0) throw NetworkError{std::string{what} + ": " + dds_strretcode(made)};
}

Participant::Participant(const Network& network)
    : network_{network},
      domain_{dds_create_domain(network.domain, configuration(network).c_str()), "the network cannot be used"} {
    const Qos qos = newQos();
    if (!network.security.empty()) secure(qos.get(), network.security);
    participant_ = Entity{dds_create_participant(network.domain, qos.get(), nullptr), "cannot take part in the network"};
}

std::string Participant::partition(const std::string& within) const {
    return within.empty() ? network_.partition : network_.partition + "/" + within;
}

Entity Participant::publisher(const std::string& within) const {
    const Qos qos = newQos();
    dds_qset_partition1(qos.get(), partition(within).c_str());
    return Entity{dds_create_publisher(participant_.get(), qos.get(), nullptr), "publisher"};
}

Entity Participant::subscriber(const std::string& within) const {
    const Qos qos = newQos();
    dds_qset_partition1(qos.get(), partition(within).c_str());
    return Entity{dds_create_subscriber(participant_.get(), qos.get(), nullptr), "subscriber"};
}

dds_entity_t Participant::topic(const Topic& topic) const {
    Entity& made = topics_[topic.name];
    if (made.get() == 0)
        made = Entity{dds_create_topic(participant_.get(), topic.type, topic.name, nullptr, nullptr), topic.name};
    return made.get();
}

Qos writerQos(Keeping keeping, const Network& network) {
    Qos qos = entityQos(keeping);
    dds_qset_liveliness(qos.get(), DDS_LIVELINESS_AUTOMATIC, DDS_MSECS(network.lease.count()));
    if (keeping == Keeping::newest) {
        dds_qset_history(qos.get(), DDS_HISTORY_KEEP_LAST, 1);
    } else {
        dds_qset_history(qos.get(), DDS_HISTORY_KEEP_ALL, 0);
        dds_qset_resource_limits(qos.get(), mostKept, DDS_LENGTH_UNLIMITED, DDS_LENGTH_UNLIMITED);
    }
    dds_qset_writer_data_lifecycle(qos.get(), false);
    return qos;
}

// A reader keeps a few samples of an instance, so that one by somebody else does not take the place of the true one.
Qos readerQos(Keeping keeping) {
    Qos qos = entityQos(keeping);
    if (keeping == Keeping::newest) {
        dds_qset_history(qos.get(), DDS_HISTORY_KEEP_LAST, 4);
        dds_qset_resource_limits(qos.get(), DDS_LENGTH_UNLIMITED, mostInstances, DDS_LENGTH_UNLIMITED);
    } else {
        dds_qset_history(qos.get(), DDS_HISTORY_KEEP_ALL, 0);
        dds_qset_resource_limits(qos.get(), mostKept, DDS_LENGTH_UNLIMITED, DDS_LENGTH_UNLIMITED);
    }
    return qos;
}

std::optional<Author> authorOf(dds_entity_t reader, dds_instance_handle_t publication) {
    const std::unique_ptr<dds_builtintopic_endpoint_t, decltype(&dds_builtintopic_free_endpoint)> endpoint{
        dds_get_matched_publication_data(reader, publication), &dds_builtintopic_free_endpoint};
    if (!endpoint) return std::nullopt;
    Author author{};
    static_assert(sizeof endpoint->participant_key.v == sizeof author);
    std::memcpy(author.data(), endpoint->participant_key.v, author.size());
    return author;
}

}  // namespace hmxrelay
