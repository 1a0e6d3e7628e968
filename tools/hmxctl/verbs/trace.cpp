// `trace`: what a running service logs.

#include "hmx/client/suggest.h"
#include "render.h"
#include "table.h"
#include "verbs/verbs.h"

namespace hmxctl {
namespace {

using hmx::client::member;
using hmx::client::text;

constexpr std::string_view tracePath{"/$platform/trace"};
constexpr const char* form = "CHANNEL=LEVEL, with a level from 0 (everything) to 5 (nothing)";

Json change(const std::string& word) {
    const std::size_t equals = word.find('=');
    const std::string level = equals == std::string::npos ? "" : word.substr(equals + 1);
    if (equals == 0 || level.size() != 1 || level < "0" || level > "5") {
        throw usageError("trace: cannot use '" + word + "'", form);
    }
    return {{"channel", word.substr(0, equals)}, {"level", level.front() - '0'}};
}

// A mistyped channel is found before anything is sent.
void checkChannel(const std::string& channel, const Json& levels) {
    std::vector<std::string> names{"*"};
    for (const Json& each : levels) names.push_back(text(each, "channel"));
    if (std::find(names.begin(), names.end(), channel) != names.end()) return;
    const std::string meant = didYouMean(channel, names);
    throw usageError("trace: no channel '" + channel + "'", meant.empty() ? "hmxctl trace lists the channels" : meant);
}

}  // namespace

ExitCode runTrace(Context& context) {
    std::vector<std::string> words = context.arguments.words;
    std::string path{hmxService};
    if (!words.empty() && words.front().starts_with('/')) {
        path = words.front();
        words.erase(words.begin());
    }
    Json changes = Json::array();
    for (const std::string& word : words) changes.push_back(change(word));
    const Service service = context.service(path);
    Json levels = decode(context.wait(service.request({"retrieve", std::string{tracePath}}, context.deadline)).payload);
    if (!changes.empty()) {
        for (const Json& each : changes) checkChannel(text(each, "channel"), levels);
        levels = decode(context.wait(service.request({"update", std::string{tracePath}, changes}, context.deadline)).payload);
    }
    if (context.arguments.format != Format::table) {
        printDocument(context, levels);
        return ExitCode::ok;
    }
    Table table{{{"CHANNEL"}, {"ID"}, {"LEVEL", Align::right}}};
    for (const Json& each : levels) table.addRow({{text(each, "channel")}, {text(each, "id")}, {compact(member(each, "level"))}});
    printLines(context.out, table.lines(context.out.colour()));
    return ExitCode::ok;
}

}  // namespace hmxctl
