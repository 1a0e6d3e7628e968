// `call` and `status`: any request to any service.

#include <array>
#include <utility>

#include "assignments.h"
#include "hmx/client/inbox.h"
#include "parameters.h"
#include "processes.h"
#include "render.h"
#include "typed_json.h"
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
    Inbox inbox{context.client.dispatcher()};
    const Stream stream = service.open(query, inbox, 0);
    for (;;) {
        const std::optional<Event> event = inbox.tryTake();
        if (!event) {
            (void)context.waitForNews({});
            continue;
        }
        if (event->kind != Event::Kind::next) throw failureOf(*service.errorOf(query, *event));
        const kelo::Payload& payload = event->response.payload();
        if (context.arguments.format == Format::raw) {
            context.out.write(payload.text());
        } else {
            context.out.line(compact(decode(payload)));
        }
        context.out.flush();
    }
}

// The status as people read it: one table of all clients instead of one in each service's entry. What the whole process holds of
// memory is the kernel's word: a recorder that runs for weeks shows there that it does not grow.
Json withClientsApart(Json status) {
    constexpr std::array<std::pair<std::string_view, std::string_view>, 10> columns{{{"pid", "pid"},
                                                                                     {"uid", "uid"},
                                                                                     {"program", "program"},
                                                                                     {"application", "calls itself"},
                                                                                     {"requests", "requests"},
                                                                                     {"streams", "streams"},
                                                                                     {"queuedBytes", "queued bytes"},
                                                                                     {"keptBytes", "kept bytes"},
                                                                                     {"heldRequests", "held requests"},
                                                                                     {"heldBytes", "held bytes"}}};
    Json rows = Json::array();
    if (!member(status, "published").is_array()) return status;
    for (Json& service : status["published"]) {
        for (const Json& client : member(service, "clients")) {
            Json row{{"service", text(service, "path")}};
            for (const auto& [key, title] : columns) row[std::string{title}] = member(client, key);
            if (const Json& pid = member(client, "pid"); pid.is_number_integer()) {
                const std::optional<std::uint64_t> memory = residentKilobytes(pid.get<pid_t>());
                row["memory, kB"] = memory ? Json(*memory) : Json();
            }
            rows.push_back(std::move(row));
        }
        if (service.is_object()) service.erase("clients");
    }
    if (!rows.empty()) status["clients"] = std::move(rows);
    return status;
}

}  // namespace

ExitCode runCall(Context& context) {
    const std::vector<std::string>& words = context.arguments.words;
    checkPath(words[0], "service");
    checkPath(words[2], "path");
    const Query query{words[1], words[2], bodyOf(context)};
    const Service service = context.service(words[0]);
    if (context.arguments.stream) return follow(context, service, query);
    const Answer answer = context.wait(service.request(query, context.deadline));
    if (!answer.payload.empty() || context.arguments.format != Format::table) printAnswer(context, answer);
    return ExitCode::ok;
}

ExitCode runStatus(Context& context) {
    const std::vector<std::string>& words = context.arguments.words;
    const std::string path = words.empty() ? std::string{hmxService} : words.front();
    checkPath(path, "service");
    const Query query{"retrieve", "/$platform/status", nullptr};
    const Answer answer = context.wait(context.service(path).request(query, context.deadline));
    if (context.arguments.format == Format::table) {
        printDocument(context, withClientsApart(decode(answer.payload)));
    } else {
        printAnswer(context, answer);
    }
    return ExitCode::ok;
}

}  // namespace hmxctl
