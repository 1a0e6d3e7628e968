// A resource's objects by id, and the requests that follow their changes.
//
// Listeners are response handlers. Each gets the objects when it is added and again at every change of what it listens to. It
// leaves when onNext returns true, when its request is cancelled, or when the data is destroyed, which sends no event. A handler
// may call back into the data from inside an event. A listener that is cancelled or finished during a notification gets no
// further event, but is destroyed only when the outermost notification is over, so that no handler is destroyed while it runs and
// no iteration is disturbed. A listener that is added during a notification has already got the objects as they are and takes
// part from the next one on. A handler that throws is dropped; the others are notified before the exception is passed on.
#pragma once

#include <cstddef>
#include <cstdint>
#include <exception>
#include <map>
#include <memory>
#include <unordered_map>
#include <utility>
#include <vector>

#include "core/response_handlers.h"
#include "kelo/errors.h"
#include "kelo/record.h"
#include "kelo/response_handler.h"
#include "kelo/std/error_storage.h"
#include "kelo/std/uuid.h"
#include "kelo/tolu/transform.h"
#include "kelo/toluglobals.h"

namespace kelo {

template <class Key, class Value>
class MapResourceData;

// A resource: owns its listeners and shares its objects, which nobody modifies after they have been added. `Key{}` must not be an
// element's id: it stands for the collection. Thread: the owner's worker.
template <class Key, class T>
class MapResourceData<Key, std::shared_ptr<T>> {
public:
    using Objects = std::map<Key, std::shared_ptr<T>>;

    MapResourceData() = default;
    MapResourceData(const MapResourceData&) = delete;
    MapResourceData& operator=(const MapResourceData&) = delete;
    ~MapResourceData() {
        index_.clear();  // a handler that calls cancel from its destructor then finds nothing
        const auto doomed = std::move(listeners_);
    }

    // Null if there is none.
    [[nodiscard]] std::shared_ptr<T> find(const Key& id) const {
        const auto found = objects_.find(id);
        return found == objects_.end() ? nullptr : found->second;
    }
    [[nodiscard]] const Objects& objects() const noexcept { return objects_; }

    // Adds or replaces the object, which must not be null; notifies the element's listeners, then the collection's.
    void put(const Key& id, std::shared_ptr<T> object) {
        objects_.insert_or_assign(id, std::move(object));
        notifyChange(id);
    }
    // The same for a removal; the element's listeners get the error for an unknown id and leave. If there is no such object,
    // returns false and does nothing.
    bool erase(const Key& id) {
        if (objects_.erase(id) == 0) return false;
        notifyChange(id);
        return true;
    }

    // Gives the element to the handler, now and at every change; an unknown id ends the request with an error. `requestKey`
    // identifies the request for `cancel`; a request with a null key cannot be cancelled. An earlier request with the same key is
    // dropped without an event.
    void addListener(void* requestKey, const Key& id, std::unique_ptr<IResponseHandler<std::shared_ptr<T>>>&& handler) {
        add(requestKey, id, responsehandlers::mapped<Objects>(std::move(handler), [id](const Objects& objects) {
                kelo::optional<std::shared_ptr<T>> result;
                const auto found = objects.find(id);
                if (found != objects.end()) {
                    result = found->second;
                } else {
                    std::ErrorOutput{errors::Error, errors::unknownElement, "UNKNOWN"};
                }
                return result;
            }));
    }
    // Gives all objects to the handler, now and at every change of any of them; at a change, the changed element's own listeners
    // come first.
    void addCollectionListener(void* requestKey, std::unique_ptr<IResponseHandler<Objects>>&& handler) {
        add(requestKey, Key{}, std::move(handler));
    }
    // Drops the request's handler without an event. An unknown key is ignored.
    void cancel(void* requestKey) {
        const auto found = index_.find(requestKey);
        if (found == index_.end()) return;
        const Pass pass{*this};
        finish(found->second);
    }

    [[nodiscard]] std::size_t listenerCount() const noexcept { return listeners_.size() - finished_.size(); }
    // Whether the collection's listeners are being notified.
    [[nodiscard]] bool isNotifyingCollection() const noexcept { return notifyingCollection_; }

private:
    struct Listener {
        void* requestKey;
        std::uint64_t number;  // counts the registrations, so that an iteration can tell which were added after it began
        std::unique_ptr<IResponseHandler<Objects>> handler;
        bool isFinished = false;
    };
    using Listeners = std::multimap<Key, Listener>;
    using Place = typename Listeners::iterator;

    // While one of these exists, no listener is destroyed.
    struct Pass {
        explicit Pass(MapResourceData& data) : data_{data} { ++data_.passes_; }
        Pass(const Pass&) = delete;
        Pass& operator=(const Pass&) = delete;
        ~Pass() {
            if (--data_.passes_ == 0) data_.removeFinished();
        }

    private:
        MapResourceData& data_;
    };

    void add(void* requestKey, const Key& id, std::unique_ptr<IResponseHandler<Objects>> handler) {
        cancel(requestKey);
        const Pass pass{*this};
        // Room for every listener among the finished ones is reserved in advance, so that it can leave even without memory.
        if (finished_.capacity() <= listeners_.size()) finished_.reserve(2 * listeners_.size() + 1);
        const Place place = listeners_.emplace(id, Listener{requestKey, nextNumber_++, std::move(handler)});
        try {
            if (requestKey != nullptr) index_.emplace(requestKey, place);
        } catch (...) {
            listeners_.erase(place);
            throw;
        }
        std::exception_ptr fault;
        deliver(place, fault);
        if (fault) std::rethrow_exception(fault);
    }

    void notifyChange(const Key& id) {
        std::exception_ptr fault;
        notifyListeners(id, fault);
        const bool before = std::exchange(notifyingCollection_, true);
        notifyListeners(Key{}, fault);
        notifyingCollection_ = before;
        if (fault) std::rethrow_exception(fault);
    }

    void notifyListeners(const Key& id, std::exception_ptr& fault) {
        const Pass pass{*this};
        const std::uint64_t newcomers = nextNumber_;
        const auto [first, last] = listeners_.equal_range(id);
        for (Place place = first; place != last && place->second.number < newcomers; ++place) {
            if (!place->second.isFinished) deliver(place, fault);
        }
    }

    // Keeps the first exception in `fault`.
    void deliver(Place place, std::exception_ptr& fault) {
        try {
            if (place->second.handler->onNext(objects_)) finish(place);
        } catch (...) {
            finish(place);
            if (!fault) fault = std::current_exception();
        }
    }

    void finish(Place place) {
        Listener& listener = place->second;
        if (std::exchange(listener.isFinished, true)) return;
        if (listener.requestKey != nullptr) index_.erase(listener.requestKey);
        finished_.push_back(place);
    }

    void removeFinished() {
        while (!finished_.empty()) {
            const Place place = finished_.back();
            finished_.pop_back();
            const auto doomed = listeners_.extract(place);  // destroyed when the containers are consistent, as it may call back
        }
    }

    Objects objects_;
    Listeners listeners_;
    std::unordered_map<void*, Place> index_;  // by request key; without those that are finished
    std::vector<Place> finished_;
    std::uint64_t nextNumber_ = 0;
    unsigned passes_ = 0;
    bool notifyingCollection_ = false;
};

namespace tolu {

// The cache of one resource's elements. Requests get elements in the form that their parameters ask for, and only if they differ
// from what they got last. Thread: the owner's worker.
template <class T>
class ToluResourceData : public MapResourceData<std::UUID, std::shared_ptr<T>> {
    using Base = MapResourceData<std::UUID, std::shared_ptr<T>>;

public:
    // `equal`: whether two versions of an element are the same for a request.
    explicit ToluResourceData(typename responsehandlers::ComparingPredicate<T>::Comparison equal = record::equal<T>)
        : equal_{equal} {}

    using Base::addListener;
    // The same as the base's, for a handler of the element itself.
    void addListener(void* requestKey, const std::UUID& id, const kelo::optional<toluglobals::ToluParams>& params,
                     std::unique_ptr<IResponseHandler<T>>&& handler) {
        using responsehandlers::ComparingPredicate;
        auto changes = std::make_unique<responsehandlers::FilteringResponseHandler<T, ComparingPredicate<T>>>(
            std::move(handler), ComparingPredicate<T>{equal_});
        Base::addListener(
            requestKey, id,
            responsehandlers::mapped<std::shared_ptr<T>, T>(std::move(changes), [params](const std::shared_ptr<T>& object) {
                return kelo::optional<T>{*transformElement(object, params)};
            }));
    }

private:
    typename responsehandlers::ComparingPredicate<T>::Comparison equal_;
};

}  // namespace tolu
}  // namespace kelo
