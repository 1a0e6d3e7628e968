#include "problem.h"

#include <algorithm>
#include <array>
#include <utility>

#include "json_text.h"

namespace hmxgateway {
namespace {

constexpr std::array<std::pair<int, std::string_view>, 18> titles{{
    {400, "Bad Request"},
    {401, "Unauthorized"},
    {403, "Forbidden"},
    {404, "Not Found"},
    {405, "Method Not Allowed"},
    {406, "Not Acceptable"},
    {408, "Request Timeout"},
    {409, "Conflict"},
    {413, "Content Too Large"},
    {415, "Unsupported Media Type"},
    {416, "Range Not Satisfiable"},
    {431, "Request Header Fields Too Large"},
    {500, "Internal Server Error"},
    {501, "Not Implemented"},
    {502, "Bad Gateway"},
    {503, "Service Unavailable"},
    {504, "Gateway Timeout"},
    {507, "Insufficient Storage"},
}};

constexpr bool mayHelpToRepeat(int status) {
    return status == 503 || status == 504;
}

}  // namespace

std::string_view titleOf(int status) noexcept {
    const auto* found = std::find_if(titles.begin(), titles.end(), [=](const auto& each) { return each.first == status; });
    return found == titles.end() ? "Error" : found->second;
}

std::string problemDocument(int status, std::string_view detail, std::string_view sent) {
    return json::object({{"type", "\"about:blank\""},
                         {"title", json::text(titleOf(status))},
                         {"status", std::to_string(status)},
                         {"detail", json::text(detail)},
                         {"sent", sent.empty() ? "" : json::text(sent)}});
}

Answer problem(int status, std::string_view detail, std::string_view sent) {
    Answer answer{status, problemDocument(status, detail, sent), problemType};
    answer.with("Cache-Control", "no-store");
    if (mayHelpToRepeat(status)) answer.with("Retry-After", "1");
    return answer;
}

Answer problem(Refusal refusal, std::string_view detail) {
    const RefusalForm& form = formOf(refusal);
    std::string text{form.reason};
    if (!detail.empty()) text.append(": ").append(detail);
    // What the gateway itself has not let through was not sent.
    Answer answer = problem(form.status, text, form.status == 503 ? "no" : "");
    if (refusal == Refusal::token) {
        answer.with("WWW-Authenticate", "Bearer realm=\"hmxgateway\"").with("WWW-Authenticate", "Basic realm=\"hmxgateway\"");
    }
    return answer;
}

}  // namespace hmxgateway
