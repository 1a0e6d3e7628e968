// One resource of a replica: its elements in list order, and the retrieves that follow them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "kelo/optional.h"
#include "kelo/response.h"
#include "kelo/response_handler.h"
#include "kelo/std/uuid.h"

namespace hmx::replica {

// An open retrieve. Thread: the replica's, as for everything here.
class Follower {
public:
    // `part`: of the resource, from which it is answered; nothing: any.
    explicit Follower(std::optional<std::string> part) : part_{std::move(part)} {}
    Follower(const Follower&) = delete;
    Follower& operator=(const Follower&) = delete;
    virtual ~Follower() = default;

    bool looksAt(const std::string& part) const { return !part_ || *part_ == part; }
    // Answers with what is there now; true if that has ended the request.
    virtual bool renew() = 0;

private:
    std::optional<std::string> part_;
};

// The open retrieves of one resource, which are told in the order in which they came.
class Followers {
public:
    // Answers for the first time, and follows unless that was the end. Returns the handle for `cancel`.
    void* add(std::shared_ptr<Follower> follower);
    void renew(const std::string& part);
    // Without an event; a handle of a request that is over is ignored.
    void cancel(void* handle);

private:
    void renew(std::uintptr_t number);

    std::map<std::uintptr_t, std::shared_ptr<Follower>> open_;
    std::uintptr_t last_ = 0;
};

// What a retrieve finds: a value, or the error that it gets instead.
template <class Result>
struct Found {
    Found(Result itsValue, bool itsEnd = false) : value{std::move(itsValue)}, isEnd{itsEnd} {}  // NOLINT: is one
    Found(kelo::Response itsRefusal) : refusal{std::move(itsRefusal)} {}                        // NOLINT: or the other

    kelo::optional<Result> value;
    kelo::Response refusal;
    bool isEnd = false;  // nothing else will ever be found
};

template <class Result, class Look>
class Retrieve final : public Follower {
public:
    Retrieve(std::optional<std::string> part, std::unique_ptr<kelo::IResponseHandler<Result>> handler, Look look)
        : Follower{std::move(part)}, handler_{std::move(handler)}, look_{std::move(look)} {}

    bool renew() override {
        const Found<Result> found = look_();
        if (!found.value) {
            handler_->onError(found.refusal);
            return true;
        }
        if (handler_->onNext(*found.value)) return true;
        if (!handler_->isOneShot() && !found.isEnd) return false;
        handler_->onCompleted();
        return true;
    }

private:
    std::unique_ptr<kelo::IResponseHandler<Result>> handler_;
    Look look_;
};

// A resource consists of parts, each with a life of its own: the popups of one display are a part, likewise one region
// configuration; the other resources are one part, "".
template <class Element>
class Resource {
public:
    using Elements = std::vector<std::shared_ptr<Element>>;

    Resource() = default;
    Resource(const Resource&) = delete;
    Resource& operator=(const Resource&) = delete;

    // The part is alive, with these elements, which must not be null. Who follows it gets its new state.
    void set(const std::string& part, Elements elements) {
        for (const auto& element : elements) seen_.insert_or_assign(element->id, element);
        if (seen_.size() > mostSeen + elements.size()) seen_.clear();
        Part& place = parts_[part];
        place.elements = std::move(elements);
        place.loss.reset();
        followers_.renew(part);
    }
    // The part is lost: who follows it, or asks for it until it is set again, gets this error.
    void lose(const std::string& part, kelo::Response why) {
        parts_[part].loss = std::move(why);
        followers_.renew(part);
    }
    // There is no such part (any more).
    void remove(const std::string& part) {
        if (parts_.erase(part) != 0) followers_.renew(part);
    }
    // What is answered as long as nothing is known of any part.
    void lack(kelo::Response why) { lack_ = std::move(why); }

    Followers& followers() noexcept { return followers_; }

    // The elements of a part; null, with the error in `refusal`, if it is lost or nothing is known. An unknown part among others
    // has neither.
    const Elements* list(const std::string& part, std::optional<kelo::Response>& refusal) const {
        const auto place = parts_.find(part);
        if (place == parts_.end()) {
            if (parts_.empty()) refusal = lack_;
            return nullptr;
        }
        refusal = place->second.loss;
        return refusal ? nullptr : &place->second.elements;
    }

    // The element of any part; null, with the error in `refusal`, if it is lost. Of several with that id the last one is meant.
    std::shared_ptr<Element> find(const std::UUID& id, std::optional<kelo::Response>& refusal) const {
        bool isLost = false;
        bool isAlive = false;
        for (auto place = parts_.rbegin(); place != parts_.rend(); ++place) {
            const Part& part = place->second;
            for (auto element = part.elements.rbegin(); element != part.elements.rend(); ++element) {
                if ((*element)->id != id) continue;
                refusal = part.loss;
                return refusal ? nullptr : *element;
            }
            (part.loss ? isLost : isAlive) = true;
        }
        if (isLost && !isAlive) refusal = parts_.begin()->second.loss;
        if (parts_.empty()) refusal = lack_;
        return nullptr;
    }

    // An element that is gone, as it was; null if there was none with that id. The original knows such an id, too.
    std::shared_ptr<Element> seen(const std::UUID& id) const {
        const auto found = seen_.find(id);
        return found == seen_.end() ? nullptr : found->second;
    }
    // Calls visit(element) for each element that is or was there, until it returns true.
    template <class Visit>
    void forEachSeen(Visit visit) const {
        for (const auto& [id, element] : seen_) {
            if (visit(*element)) return;
        }
    }

private:
    static constexpr std::size_t mostSeen = 16'384;  // then all that are gone are forgotten

    struct Part {
        Elements elements;
        std::optional<kelo::Response> loss;
    };

    std::map<std::string, Part> parts_;
    std::unordered_map<std::UUID, std::shared_ptr<Element>> seen_;
    kelo::Response lack_ = kelo::Response::createErrorResponse(503, "nothing is known of this resource yet, request not sent");
    Followers followers_;
};

}  // namespace hmx::replica
