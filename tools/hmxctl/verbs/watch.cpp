// `watch`: a resource or an element as it changes.
//
// Events: `snapshot` is the state when the watch begins and after every return of the source. `changed` is an element that is
// new or different, `removed` one that is gone. `source-down` and `source-up` alternate; the latter comes before the snapshot
// of the return. An upstream service that is away from the start is down first; if the service itself is, that is a failure,
// unless the command line says how long to wait for it. What stays the same between two states is not an event.

#include <algorithm>

#include "columns.h"
#include "following.h"
#include "hmx/client/changes.h"
#include "hmx/client/elements.h"
#include "parameters.h"
#include "render.h"
#include "targets.h"
#include "text.h"
#include "verbs/verbs.h"

namespace hmxctl {
namespace {

// Shows events in one of the output forms. Thread: main.
class Presenter {
public:
    Presenter(Context& context, const Target& target, std::vector<std::string> fields)
        : context_{context}, out_{context.out}, target_{target}, fields_{std::move(fields)} {}

    void snapshot(const std::vector<Json>& elements) {
        elements_ = elements;
        if (isTable()) return redraw("");
        if (asLines()) {
            line("snapshot", std::to_string(elements.size()) + (elements.size() == 1 ? " element" : " elements"), Style::cyan);
            for (const Json& element : elements) out_.line("  " + summary(element, {}));
            return out_.flush();
        }
        Json event = begin("snapshot");
        event["elements"] = elements;
        finish(event);
    }

    // True when an event was shown for each; `all` is the state that they lead to.
    void changed(const ElementChange& change, const std::vector<Json>& all) {
        elements_ = all;
        const bool removed = change.kind == ElementChange::Kind::removed;
        const char* name = removed ? "removed" : "changed";
        if (isTable()) return redraw("");
        if (asLines()) return line(name, summary(change.element, change.members), removed ? Style::red : Style::yellow);
        Json event = begin(name);
        event["id"] = member(change.element, "id");
        event["name"] = member(change.element, "name");
        if (!removed) event["element"] = change.element;
        finish(event);
    }

    void down(const Failure& reason) {
        if (isTable()) return redraw(reason.what());
        if (asLines()) return line("source-down", reason.what(), Style::red);
        Json event = begin("source-down");
        event["reason"] = reason.what();
        finish(event);
    }

    void up() {
        if (isTable()) return;  // the snapshot after it draws
        if (asLines()) return line("source-up", "", Style::green);
        finish(begin("source-up"));
    }

    void raw(const kelo::Payload& payload) {
        out_.write(payload.text());
        out_.flush();
    }

private:
    // In the background somebody else draws.
    bool isTable() {
        if (context_.arguments.format == Format::table && out_.isForeground()) return true;
        drawn_ = 0;
        return false;
    }
    bool asLines() const { return context_.arguments.format == Format::table; }

    Json begin(const char* name) const {
        Json event{{"event", name}, {"resource", target_.resource->name}};
        if (!target_.element.empty()) event["target"] = target_.element;
        return event;
    }

    void finish(const Json& event) {
        out_.line(compact(event));
        out_.flush();
    }

    void line(const std::string& event, const std::string& text, Style style) {
        std::string out = styled(context_.clockTime(), Style::dim, out_.colour()) + " " + styled(event, style, out_.colour());
        if (!text.empty()) out += " " + printable(text);
        out_.line(out);
        out_.flush();
    }

    // The element's name and the given members, all but the identity if none are given.
    std::string summary(const Json& element, const std::vector<std::string>& members) const {
        std::string text = nameOfElement(*target_.resource, element);
        if (text.empty()) text = hmxctl::text(element, "id");
        for (const auto& [key, value] : element.items()) {
            const bool identity = key == "id" || key == "uri" || key == "name";
            const bool wanted = members.empty() ? !identity : std::find(members.begin(), members.end(), key) != members.end();
            if (wanted) text += " " + key + "=" + shortText(value);
        }
        for (const std::string& key : members) {
            if (!element.contains(key)) text += " " + key + "=-";
        }
        return printable(text);
    }

    // Draws over what was drawn before. Lines are cut to the terminal, so that each takes one row and the way back up is known.
    void redraw(const std::string& fault) {
        const TerminalSize size = out_.size();
        const bool colour = out_.colour();
        std::vector<std::string> lines;
        lines.push_back(styled(target_.text(), Style::bold, colour) + "  " + context_.clockTime());
        if (!fault.empty()) lines.push_back(styled("source down: " + printable(fault), Style::red, colour));
        for (std::string& row : elementLines(*target_.resource, elements_, fields_, colour)) lines.push_back(std::move(row));
        if (lines.size() >= size.rows && size.rows > 2) {
            const std::size_t hidden = lines.size() - (size.rows - 2);
            lines.resize(size.rows - 2);
            lines.push_back("... " + std::to_string(hidden) + " more");
        }
        if (drawn_ > 0) out_.write("\x1b[" + std::to_string(drawn_) + "A\r\x1b[J");
        for (const std::string& each : lines) out_.line(cutToWidth(each, size.columns));
        drawn_ = lines.size();
        out_.flush();
    }

    Context& context_;
    Output& out_;
    const Target& target_;
    std::vector<std::string> fields_;
    std::vector<Json> elements_;
    std::size_t drawn_ = 0;
};

// Turns updates into events and counts them. Thread: main.
class Watch {
public:
    Watch(const Arguments& arguments, Presenter& presenter) : arguments_{arguments}, presenter_{presenter} {
        if (arguments_.once) left_ = 1;
        if (arguments_.count) left_ = *arguments_.count;
        waitForSource();
    }

    // Until when the source may stay away; nothing: for ever.
    const std::optional<Deadline>& patience() const noexcept { return patience_; }
    // What the source is away for.
    Failure absence() const {
        return absence_ ? *absence_ : Failure{ExitCode::timeout, "no answer in time", "--timeout lets it wait longer"};
    }

    // True when enough was shown.
    bool handle(const Update& update) {
        switch (update.kind) {
            case Update::Kind::snapshot:
            case Update::Kind::changed:
                return value(update);
            case Update::Kind::ended:
            case Update::Kind::failed:
                // Asked again soon; what it then says differs or does not.
                if (!arguments_.reconnect) throw failureOf(*update.error);
                return false;
            case Update::Kind::missing:
                return missing(update);
            case Update::Kind::lost:
                return lost(update);
        }
        return false;
    }

private:
    // False while more events are wanted.
    bool counted() { return left_ && --*left_ == 0; }

    void waitForSource() {
        if (arguments_.timeoutGiven) patience_.emplace(arguments_.timeout);
    }

    bool value(const Update& update) {
        patience_.reset();
        seen_ = true;
        if (arguments_.format == Format::raw) {
            presenter_.raw(update.payload);
            return counted();
        }
        if (update.isBack) {
            presenter_.up();
            if (counted()) return true;
        }
        if (update.isBack || update.kind == Update::Kind::snapshot) {
            presenter_.snapshot(update.elements);
            return counted();
        }
        for (const ElementChange& change : update.changes) {
            presenter_.changed(change, update.elements);
            if (counted()) return true;
        }
        return false;
    }

    bool missing(const Update& update) {
        // Never seen: a slip of whoever asks.
        if (!seen_ || !arguments_.reconnect) throw failureOf(*update.error);
        if (update.isRepeated || arguments_.format == Format::raw) return false;
        return value(update);
    }

    bool lost(const Update& update) {
        const Failure failure = failureOf(*update.error);
        const bool isServiceAbsent = failure.code() == ExitCode::serviceAbsent && failure.status() == 0;
        if (!arguments_.reconnect || (!seen_ && isServiceAbsent && !arguments_.timeoutGiven)) throw Failure{failure};
        absence_ = failure;
        if (update.isRepeated) return false;
        if (seen_) waitForSource();
        if (arguments_.format == Format::raw) return false;
        presenter_.down(failure);
        return counted();
    }

    const Arguments& arguments_;
    Presenter& presenter_;
    std::optional<std::uint64_t> left_;
    std::optional<Deadline> patience_;
    std::optional<Failure> absence_;
    bool seen_ = false;
};

}  // namespace

ExitCode runWatch(Context& context) {
    const Target target = parseTarget(context.arguments.words.front(), "watch");
    if (target.element.empty() && !isListable(*target.resource)) (void)parseElement(context.arguments.words.front(), "watch");
    const auto [parameters, display] = parametersFor(context, target);
    const std::optional<Expression> condition = conditionAbout(context, target);
    std::vector<std::string> fields;
    for (const Json& field : member(parameters, "fields")) {
        if (field.is_string()) fields.push_back(field.get<std::string>());
    }
    Presenter presenter{context, target, fields};
    Watch watch{context.arguments, presenter};
    Subscription subscription{context.client, {.target = target, .parameters = parameters, .display = display}};
    std::optional<Deadline> end;
    if (context.arguments.duration) end.emplace(*context.arguments.duration);
    std::optional<std::vector<Json>> last;
    for (;;) {
        const std::optional<Deadline>& patience = watch.patience();
        const std::optional<Deadline> until = end && patience ? end->atMost(patience->left()) : end ? end : patience;
        const std::optional<Update> update = nextUpdate(context, subscription, until);
        if (update && watch.handle(*update)) return ExitCode::ok;
        if (condition && update && !update->error) {
            last = update->elements;
            if (isTrue(condition, target, *last)) return ExitCode::ok;
        }
        const bool isOver = !update && context.isOver();
        if (isOver || (end && end->passed())) {
            if (condition)
                throw conditionLate(context, context.arguments.duration.value_or(std::chrono::milliseconds{0}),
                                    instead(condition, target, last));
            if (isOver) context.note("the recording ends here");
            return ExitCode::ok;
        }
        if (!update && watch.patience() && watch.patience()->passed()) throw watch.absence();
    }
}

}  // namespace hmxctl
