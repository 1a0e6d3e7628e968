// The life of a subscription. Closed: the pause runs; then everything is looked up again from the start (service, id and
// displays), because a service that came back has forgotten all of it. Open: events are taken from the inbox. If there are
// several requests (one per display), the update is assembled once all of them have answered; the end of one ends all. Requests
// are numbered consecutively, so an event of a closed request that was still under way is recognised and dropped.
//
// The popups of all displays are asked for by display. One more request follows the displays themselves: when one comes or goes,
// all is opened again, and only what then differs is news.

#include "subscription.h"

#include <algorithm>

namespace hmxctl {
namespace {

constexpr std::chrono::milliseconds shortestPause{20};
constexpr std::chrono::milliseconds longestPause{400};
constexpr std::chrono::milliseconds pollPause{1000};
// How long an attempt to find the service and the element may take before it counts as failed.
constexpr std::chrono::milliseconds attempt{2000};

bool mendsItself(ExitCode code) {
    return code == ExitCode::serviceAbsent || code == ExitCode::timeout || code == ExitCode::streamEnded;
}

}  // namespace

Subscription::Subscription(Context& context, Target target, Json parameters, std::string display)
    : context_{context},
      target_{std::move(target)},
      parameters_(std::move(parameters)),  // in braces it would become an array of one
      display_{std::move(display)},
      inbox_{std::make_shared<Inbox>()} {}

void Subscription::open(const Deadline& deadline) {
    Elements elements{context_, deadline};
    displays_.reset();
    if (target_.element.empty()) {
        queries_ = elements.listQueries(*target_.resource, parameters_);
        if (target_.resource->path == "/popups" && member(parameters_, "display").is_null()) {
            displays_ = elements.displayNames();
            queries_.push_back({"retrieve", std::string{resourceNamed("displays", "").path}, nullptr});
        }
    } else {
        const std::UUID id = elements.find(target_, display_);
        // Makes the service know the id, and says so where it does not.
        (void)elements.request("retrieve", *target_.resource, id, parameters_);
        queries_ = {{"retrieve", elementPath(*target_.resource, id), parameters_}};
    }
    service_.emplace(elements.service());
    firstSource_ += sources_.size();
    sources_.clear();
    sources_.resize(queries_.size());
    for (std::size_t i = 0; i < queries_.size(); ++i) sources_[i].stream = service_->open(queries_[i], inbox_, firstSource_ + i);
    open_ = true;
}

void Subscription::close(std::chrono::milliseconds pause) {
    for (Source& source : sources_) source.stream = {};
    open_ = false;
    reopenAt_.emplace(pause);
}

Update Subscription::failed(Failure failure) {
    pause_ = std::clamp(pause_ * 2, shortestPause, longestPause);
    close(pause_);
    Update update;
    if (failure.code() == ExitCode::notFound) {
        update.kind = Update::Kind::missing;
    } else if (mendsItself(failure.code())) {
        update.kind = Update::Kind::lost;
    } else {
        throw failure;
    }
    update.failure = std::move(failure);
    return update;
}

std::optional<Update> Subscription::take(const Event& event) {
    if (!open_ || event.source < firstSource_ || event.source >= firstSource_ + sources_.size()) return {};
    const std::size_t index = event.source - firstSource_;
    if (event.kind == Event::Kind::completed) {
        close(pollPause);
        Update update{.kind = Update::Kind::ended};
        update.failure.emplace(ExitCode::streamEnded,
                               describeQuery(queries_[index], service_->path()) + ": the service ended the request");
        return update;
    }
    const bool failedEvent = event.kind == Event::Kind::error || exitCodeOf(event.response.status()) != ExitCode::ok;
    if (failedEvent && event.response.status() == 404 && sources_.size() > 1) {
        sources_[index].elements.emplace();  // of several displays one may be unknown where popups are managed: it has none
    } else if (!failedEvent && isDisplays(index)) {
        std::vector<std::string> names;
        for (const Json& display : elementsOf(decode(event.response.payload()))) names.push_back(text(display, "name"));
        if (names != *displays_) {
            close(shortestPause);
            return {};
        }
        if (sources_[index].elements || sources_.size() > 1) return {};
        sources_[index].elements.emplace();
    } else if (failedEvent) {
        return failed(service_->failure(queries_[index], event.response));
    } else {
        sources_[index].elements = elementsOf(decode(event.response.payload()));
    }
    pause_ = std::chrono::milliseconds{0};
    Update update;
    for (std::size_t i = 0; i < sources_.size(); ++i) {
        const Source& source = sources_[i];
        if (!source.elements && isDisplays(i) && i > 0) continue;
        if (!source.elements) return {};
        update.elements.insert(update.elements.end(), source.elements->begin(), source.elements->end());
    }
    update.payload = event.response.payload();
    return update;
}

std::optional<Update> Subscription::next(const std::optional<Deadline>& deadline) {
    for (;;) {
        if (!open_) {
            if (reopenAt_ && !reopenAt_->passed()) {
                // Nothing can arrive now but the end of the output's reader.
                const Deadline until = deadline ? deadline->atMost(reopenAt_->left()) : *reopenAt_;
                (void)inbox_->take(until, context_.out.descriptor());
                if (deadline && deadline->passed()) return {};
                continue;
            }
            try {
                open(deadline ? deadline->atMost(attempt) : Deadline{attempt});
            } catch (const Failure& failure) {
                return failed(failure);
            }
        }
        const std::optional<Event> event = inbox_->take(deadline, context_.out.descriptor());
        if (!event) return {};
        if (std::optional<Update> update = take(*event)) return update;
    }
}

}  // namespace hmxctl
