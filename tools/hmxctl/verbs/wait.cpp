// `wait`: until an expression about an element's members is true.

#include "expression.h"
#include "following.h"
#include "hmx/client/elements.h"
#include "render.h"
#include "targets.h"
#include "verbs/verbs.h"

namespace hmxctl {
namespace {

void print(Context& context, const Update& update) {
    if (!context.arguments.formatGiven) return;
    printAnswer(context, {200, update.payload});
}

}  // namespace

ExitCode runWait(Context& context) {
    const Target target = parseElement(context.arguments.words[0], "wait");
    const Expression expression = Expression::parse(context.arguments.words[1]);
    if (context.arguments.validate) {
        for (const std::string& path : expression.members()) checkMemberPath(path, target.resource->element(), "expression");
    }
    Subscription subscription{context.client, {.target = target}};
    Json last;
    std::string lost;
    // A recording ends by itself.
    const bool endsByItself = context.recording != nullptr && !context.arguments.timeoutGiven;
    const std::optional<Deadline> patience = endsByItself ? std::nullopt : std::optional{context.deadline};
    // An element and a service that are not there from the start are a slip of the one who asks, unless told otherwise; once
    // seen, both may go and come back.
    bool patient = context.arguments.appear;
    while (const std::optional<Update> update = nextUpdate(context, subscription, patience)) {
        if (update->error) {
            const Failure failure = failureOf(*update->error);
            if (!patient && update->kind != Update::Kind::ended) throw Failure{failure};
            lost = failure.what();
            continue;
        }
        patient = true;
        lost.clear();
        last = update->elements.front();
        if (!expression.holdsFor(last)) continue;
        print(context, *update);
        return ExitCode::ok;
    }
    throw Failure{
        ExitCode::timeout,
        "'" + context.arguments.words[1] + "' did not hold " +
            (context.isOver() ? "until the end of the recording" : "within " + durationText(context.arguments.timeout)) + ": " +
            (last.is_null() ? "the element was never seen" : expression.valuesIn(last)) + (lost.empty() ? "" : "; " + lost),
        context.isOver() ? "" : "--timeout gives it longer"};
}

}  // namespace hmxctl
