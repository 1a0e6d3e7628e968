// `wait`: until an expression about an element's members, or about the elements of a resource, is true, or until an element is
// gone.

#include "following.h"
#include "hmx/client/elements.h"
#include "parameters.h"
#include "render.h"
#include "targets.h"
#include "verbs/verbs.h"

namespace hmxctl {
namespace {

// In place of an expression.
constexpr std::string_view removal = "removed";

void print(Context& context, const Target& target, const Json& parameters, const Update& update) {
    if (!context.arguments.formatGiven) return;
    const bool isGathered =
        target.element.empty() && target.resource->path == "/popups" && member(parameters, "display").is_null();
    if (!isGathered) return printAnswer(context, {200, update.payload});
    printDocument(context, Json{{"total", update.elements.size()}, {"totalPages", 1}, {"data", update.elements}});
}

}  // namespace

ExitCode runWait(Context& context) {
    const bool isForRemoval = context.arguments.condition == removal;
    const Target target = parseTarget(context.arguments.words.front(), "wait");
    if (target.element.empty() && isForRemoval) {
        throw usageError("wait " + target.text() + ": one element is removed, not a resource", "for all of them: 'count == 0'");
    }
    if (target.element.empty() && !isListable(*target.resource)) (void)parseElement(context.arguments.words.front(), "wait");
    const std::optional<Expression> condition = isForRemoval ? std::nullopt : conditionAbout(context, target);
    const auto [parameters, display] = parametersFor(context, target);
    Subscription subscription{context.client, {.target = target, .parameters = parameters, .display = display}};
    std::optional<std::vector<Json>> last;
    std::string lost;
    // A recording ends by itself.
    const bool endsByItself = context.recording != nullptr && !context.arguments.timeoutGiven;
    const std::optional<Deadline> patience = endsByItself ? std::nullopt : std::optional{context.deadline};
    // An element and a service that are not there from the start are a slip of the one who asks, unless told otherwise; once
    // seen, both may go and come back.
    bool patient = context.arguments.appear;
    while (const std::optional<Update> update = nextUpdate(context, subscription, patience)) {
        if (update->kind == Update::Kind::missing && isForRemoval) {
            if (context.arguments.formatGiven) printAnswer(context, {204, {}});
            return ExitCode::ok;
        }
        if (update->error) {
            const Failure failure = failureOf(*update->error);
            if (!patient && update->kind != Update::Kind::ended) throw Failure{failure};
            lost = failure.what();
            continue;
        }
        patient = true;
        lost.clear();
        last = update->elements;
        if (!isTrue(condition, target, *last)) continue;
        print(context, target, parameters, *update);
        return ExitCode::ok;
    }
    throw conditionLate(context, context.arguments.timeout, instead(condition, target, last) + (lost.empty() ? "" : "; " + lost));
}

}  // namespace hmxctl
