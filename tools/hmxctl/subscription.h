// A resource or an element that is followed: its present elements whenever they change, through losses and returns.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "context.h"
#include "elements.h"
#include "inbox.h"

namespace hmxctl {

// Thread: any (a value).
struct Update {
    enum class Kind : std::uint8_t {
        value,    // `elements` is all there is now
        missing,  // the element is not there (any more)
        lost,     // no connection to the source
        ended     // the service ended the request, without an error
    };
    Kind kind = Kind::value;
    std::vector<Json> elements{};
    kelo::Payload payload{};           // the one that this update came with
    std::optional<Failure> failure{};  // why, for all but `value`
};

// Opens the requests, and opens them again when they fail: at once the first time, then more and more rarely, a few times a
// second at least. A service that ends a request after its answer is asked again once a second. Thread: main.
class Subscription {
public:
    // `parameters`: an object or null. `display`: of a popup, or "".
    Subscription(Context& context, Target target, Json parameters, std::string display = {});

    // The next thing to happen; nothing at the deadline (none: waits for ever). Errors: Failure for what will not mend itself: a
    // request that is refused, an answer that cannot be read.
    std::optional<Update> next(const std::optional<Deadline>& deadline);

private:
    struct Source {
        Stream stream;
        std::optional<std::vector<Json>> elements;
    };

    void open(const Deadline& deadline);
    void close(std::chrono::milliseconds pause);
    Update failed(Failure failure);
    std::optional<Update> take(const Event& event);
    bool isDisplays(std::size_t index) const noexcept { return displays_ && index + 1 == sources_.size(); }

    Context& context_;
    Target target_;
    Json parameters_;
    std::string display_;
    std::shared_ptr<Inbox> inbox_;
    std::vector<Query> queries_;
    std::optional<Service> service_;
    std::vector<Source> sources_;
    std::optional<std::vector<std::string>> displays_;  // whose popups are followed; the last source says when they change
    std::size_t firstSource_ = 0;                       // events of requests before this one are those of closed streams
    bool open_ = false;
    std::chrono::milliseconds pause_{0};
    std::optional<Deadline> reopenAt_;
};

}  // namespace hmxctl
