// This process on the network: the engine's domain, the topics, and typed writers and readers.
#pragma once

#include <dds/dds.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "hmx/client/dispatcher.h"
#include "hmxrelay.h"

namespace hmxrelay {

// Where and how the network is used. Thread: any (a value).
struct Network {
    std::uint32_t domain = 0;
    std::string interface { "lo" };  // a name or a numeric address
    std::vector<std::string> peers{};
    std::string partition{"hmx"};
    std::chrono::milliseconds lease{1000};
    // The directory with this machine's identity and what is permitted; "": whoever reaches the network takes part.
    std::string security{};
};

// What the engine refused. Thread: any (a value).
class NetworkError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// One of the engine's objects, which is deleted. A resource. Thread: one at a time.
class Entity {
public:
    Entity() = default;
    // Errors: NetworkError, if the engine did not make one: `what` it was to be.
    Entity(dds_entity_t made, std::string_view what);
    Entity(Entity&& other) noexcept : entity_{std::exchange(other.entity_, 0)} {}
    Entity& operator=(Entity&& other) noexcept {
        std::swap(entity_, other.entity_);
        return *this;
    }
    ~Entity() {
        if (entity_ > 0) (void)dds_delete(entity_);
    }
    dds_entity_t get() const noexcept { return entity_; }

private:
    dds_entity_t entity_ = 0;
};

// How the samples of a topic are kept and delivered: the newest of each instance, also to who comes later, or each one to who is
// there.
enum class Keeping : std::uint8_t { newest, all };

// Thread: any (a constant).
struct Topic {
    const char* name;
    const dds_topic_descriptor_t* type;
    Keeping keeping;
};
template <class Sample>
inline constexpr Topic topicOf{};
template <>
inline constexpr Topic topicOf<hmxrelay_Origin>{"hmx_origin", &hmxrelay_Origin_desc, Keeping::newest};
template <>
inline constexpr Topic topicOf<hmxrelay_State>{"hmx_state", &hmxrelay_State_desc, Keeping::newest};
template <>
inline constexpr Topic topicOf<hmxrelay_Element>{"hmx_element", &hmxrelay_Element_desc, Keeping::newest};
template <>
inline constexpr Topic topicOf<hmxrelay_Interest>{"hmx_interest", &hmxrelay_Interest_desc, Keeping::newest};
template <>
inline constexpr Topic topicOf<hmxrelay_Request>{"hmx_request", &hmxrelay_Request_desc, Keeping::all};
template <>
inline constexpr Topic topicOf<hmxrelay_Reply>{"hmx_reply", &hmxrelay_Reply_desc, Keeping::all};

// A resource. Thread: its owner's.
class Participant {
public:
    // Errors: NetworkError.
    explicit Participant(const Network& network);

    // One for each partition: "" for the one that all share, else a name within it.
    Entity publisher(const std::string& within) const;
    Entity subscriber(const std::string& within) const;

    dds_entity_t topic(const Topic& topic) const;
    const Network& network() const noexcept { return network_; }

private:
    std::string partition(const std::string& within) const;

    Network network_;
    Entity domain_;
    Entity participant_;
    mutable std::map<std::string, Entity> topics_;
};

using Qos = std::unique_ptr<dds_qos_t, decltype(&dds_delete_qos)>;
[[nodiscard]] Qos writerQos(Keeping keeping, const Network& network);
[[nodiscard]] Qos readerQos(Keeping keeping);

// Thread: its owner's.
template <class Sample>
class Writer {
public:
    // `publisher` outlives it.
    Writer(const Participant& participant, const Entity& publisher)
        : writer_{dds_create_writer(publisher.get(), participant.topic(topicOf<Sample>),
                                    writerQos(topicOf<Sample>.keeping, participant.network()).get(), nullptr),
                  topicOf<Sample>.name} {}

    // False if it could not be sent now: the readers are behind with what was sent before.
    bool write(const Sample& sample) { return dds_write(writer_.get(), &sample) == DDS_RETCODE_OK; }
    dds_entity_t get() const noexcept { return writer_.get(); }
    // The instance is gone.
    void dispose(const Sample& sample) { (void)dds_dispose(writer_.get(), &sample), leave(sample); }
    // The instance is no longer this writer's.
    void leave(const Sample& sample) { (void)dds_unregister_instance(writer_.get(), &sample); }
    bool hasReaders() const {
        dds_publication_matched_status_t status{};
        return dds_get_publication_matched_status(writer_.get(), &status) == DDS_RETCODE_OK && status.current_count > 0;
    }

private:
    Entity writer_;
};

// Who has written a sample: a participant of the network. Thread: any (a value).
using Author = std::array<std::uint8_t, 16>;
// Nothing if it is not there any more.
[[nodiscard]] std::optional<Author> authorOf(dds_entity_t reader, dds_instance_handle_t publication);

// Thread: its owner's. The engine's threads raise the signal, and answer it if they may.
template <class Sample>
class Reader {
public:
    // `subscriber` outlives it.
    Reader(const Participant& participant, const Entity& subscriber, hmx::client::Signal::Raiser arrived)
        : arrival_{std::make_unique<Arrival>(std::move(arrived))}, reader_{make(participant, subscriber), topicOf<Sample>.name} {}

    // From now on, what its one writer sends is answered on the engine's thread, which must not make or delete what belongs to
    // the engine. As long as there are other writers, it is not, because who they are can be asked only on another thread.
    void answerAtOnce() noexcept { arrival_->isAnswered = true; }

    // Calls f(sample, info) for everything that has arrived; without valid data, only the key of the sample is set.
    template <class F>
    void takeAll(F f) {
        constexpr std::size_t batch = 32;
        while (arrival_->isNew.exchange(false)) {
            std::array<void*, batch> samples{};
            std::array<dds_sample_info_t, batch> infos{};
            const dds_return_t count = dds_take(reader_.get(), samples.data(), infos.data(), batch, batch);
            if (count <= 0) return;
            if (static_cast<std::size_t>(count) == batch) arrival_->isNew = true;
            const Loan loan{reader_.get(), samples.data(), count};
            for (std::size_t i = 0; i < static_cast<std::size_t>(count); ++i) {
                f(*static_cast<const Sample*>(samples[i]), infos[i]);
            }
        }
    }
    // Of the participant with this publication; remembered, because it can no longer be asked for when it is gone.
    std::optional<Author> author(dds_instance_handle_t publication) {
        const auto found = authors_.find(publication);
        if (found != authors_.end()) return found->second;
        if (authors_.size() >= mostAuthors) authors_.clear();
        std::optional<Author> author = authorOf(reader_.get(), publication);
        if (author) authors_.emplace(publication, *author);
        return author;
    }
    // Samples that were sent and did not arrive.
    std::uint32_t lost() const {
        dds_sample_lost_status_t status{};
        return dds_get_sample_lost_status(reader_.get(), &status) == DDS_RETCODE_OK ? status.total_count : 0;
    }

private:
    static constexpr std::size_t mostAuthors = 256;

    struct Arrival {
        explicit Arrival(hmx::client::Signal::Raiser itsSignal) : signal{std::move(itsSignal)} {}
        void tell() {
            isNew = true;
            if (isAnswered && writers == 1) {
                signal.raiseOrAnswer();
            } else {
                signal.raise();
            }
        }

        hmx::client::Signal::Raiser signal;
        std::atomic<bool> isNew = false;
        std::atomic<bool> isAnswered = false;
        std::atomic<std::uint32_t> writers = 0;
    };
    struct Loan {
        dds_entity_t reader;
        void** samples;
        dds_return_t count;
        ~Loan() { (void)dds_return_loan(reader, samples, count); }
    };

    dds_entity_t make(const Participant& participant, const Entity& subscriber) {
        const std::unique_ptr<dds_listener_t, decltype(&dds_delete_listener)> listener{dds_create_listener(arrival_.get()),
                                                                                       &dds_delete_listener};
        dds_lset_data_available(listener.get(), [](dds_entity_t, void* arrival) { static_cast<Arrival*>(arrival)->tell(); });
        dds_lset_subscription_matched(listener.get(), [](dds_entity_t, dds_subscription_matched_status_t status, void* arrival) {
            static_cast<Arrival*>(arrival)->writers = status.current_count;
        });
        return dds_create_reader(subscriber.get(), participant.topic(topicOf<Sample>), readerQos(topicOf<Sample>.keeping).get(),
                                 listener.get());
    }

    std::unique_ptr<Arrival> arrival_;
    std::map<dds_instance_handle_t, Author> authors_;
    Entity reader_;  // ends first
};

// Text and bytes that a sample refers to while it is written: the engine changes neither.
[[nodiscard]] inline char* lent(const std::string& text) noexcept {
    return const_cast<char*>(text.c_str());  // NOLINT(cppcoreguidelines-pro-type-const-cast)
}
template <class Octets>
[[nodiscard]] std::string_view octetsOf(const Octets& octets) noexcept {
    return {reinterpret_cast<const char*>(octets._buffer), octets._length};
}
template <class Octets>
void lend(Octets& octets, std::string_view bytes) noexcept {
    octets._buffer = reinterpret_cast<std::uint8_t*>(const_cast<char*>(bytes.data()));  // NOLINT
    octets._length = static_cast<std::uint32_t>(bytes.size());
    octets._maximum = octets._length;
    octets._release = false;
}
[[nodiscard]] inline std::string_view textOf(const char* text) noexcept {
    return text == nullptr ? std::string_view{} : std::string_view{text};
}

}  // namespace hmxrelay
