#include "following.h"

#include "hmx/client/schema.h"

namespace hmxctl {

std::optional<Update> nextUpdate(Context& context, Subscription& subscription, const std::optional<Deadline>& until) {
    subscription.limitAttempts(until);
    for (;;) {
        std::optional<Update> update = subscription.tryNext();
        if (update && update->kind == Update::Kind::failed) throw failureOf(*update->error);
        if (update || (until && until->passed()) || context.isOver()) return update;
        (void)context.waitForNews(until);
    }
}

std::optional<Expression> conditionAbout(const Context& context, const Target& target) {
    const std::string& text = context.arguments.condition;
    if (text.empty()) return {};
    Expression condition = target.element.empty() ? Expression::parseForSeveral(text) : Expression::parse(text);
    if (context.arguments.validate) {
        for (const std::string& path : condition.members()) checkMemberPath(path, target.resource->element(), "expression");
    }
    return condition;
}

bool isTrue(const std::optional<Expression>& condition, const Target& target, const std::vector<Json>& elements) {
    if (!condition || (elements.empty() && !target.element.empty())) return false;
    return condition->holdsFor(pointersTo(elements));
}

std::vector<const Json*> pointersTo(const std::vector<Json>& elements) {
    std::vector<const Json*> pointers;
    pointers.reserve(elements.size());
    for (const Json& element : elements) pointers.push_back(&element);
    return pointers;
}

std::string instead(const std::optional<Expression>& condition, const Target& target,
                    const std::optional<std::vector<Json>>& last) {
    if (!last) return target.element.empty() ? "no answer" : "the element was never seen";
    if (!condition) return "the element is there";
    return target.element.empty() ? condition->countsIn(pointersTo(*last)) : condition->valuesIn(last->front());
}

Failure conditionLate(const Context& context, std::chrono::milliseconds time, const std::string& instead) {
    const std::string period = context.isOver() ? "until the end of the recording" : "within " + durationText(time);
    const char* more = context.arguments.duration ? "--for gives it longer" : "--timeout gives it longer";
    return Failure{ExitCode::timeout, "'" + context.arguments.condition + "' did not hold " + period + ": " + instead,
                   context.isOver() ? "" : more};
}

}  // namespace hmxctl
