// `call` and `status`: any request to any service.

#include "assignments.h"
#include "parameters.h"
#include "render.h"
#include "verbs/verbs.h"

namespace hmxctl {
namespace {

void checkPath(const std::string& path, const char* what) {
    if (path.empty() || path.front() != '/') {
        throw usageError(std::string{what} + " '" + path + "' does not begin with a slash", "did you mean '/" + path + "'?");
    }
}

// One word that is no assignment is the body itself.
Json bodyOf(const Context& context) {
    const std::vector<std::string>& words = context.arguments.words;
    if (words.size() == 4 && context.arguments.file.empty()) {
        const bool looksLikeJson =
            !words[3].empty() && (words[3].front() == '{' || words[3].front() == '[' || words[3].front() == '"');
        if (looksLikeJson || !asAssignment(words[3])) return parseJson(words[3], "BODY");
    }
    return requestBody(context, 3, {});
}

ExitCode follow(Context& context, const Service& service, const Query& query) {
    const auto inbox = std::make_shared<Inbox>();
    const Stream stream = service.open(query, inbox, 0);
    for (;;) {
        const std::optional<Event> event = inbox->take({}, context.out.descriptor());
        if (event->kind == Event::Kind::completed) {
            throw Failure{ExitCode::streamEnded, describeQuery(query, service.path()) + ": the service ended the request"};
        }
        if (event->kind == Event::Kind::error) throw service.failure(query, event->response);
        const kelo::Payload& payload = event->response.payload();
        if (context.arguments.format == Format::raw) {
            context.out.write(payload.text());
        } else {
            context.out.line(compact(decode(payload)));
        }
        context.out.flush();
    }
}

}  // namespace

ExitCode runCall(Context& context) {
    const std::vector<std::string>& words = context.arguments.words;
    checkPath(words[0], "service");
    checkPath(words[2], "path");
    const Query query{words[1], words[2], bodyOf(context)};
    const Service service = context.service(words[0]);
    if (context.arguments.stream) return follow(context, service, query);
    const Answer answer = service.request(query, context.deadline);
    if (!answer.payload.empty() || context.arguments.format != Format::table) printAnswer(context, answer);
    return ExitCode::ok;
}

ExitCode runStatus(Context& context) {
    const std::vector<std::string>& words = context.arguments.words;
    const std::string path = words.empty() ? std::string{hmxService} : words.front();
    checkPath(path, "service");
    printAnswer(context, context.service(path).request({"retrieve", "/$platform/status", nullptr}, context.deadline));
    return ExitCode::ok;
}

}  // namespace hmxctl
