// `services`: the services of the domain.

#include "hmx/client/domain.h"
#include "hmx/client/suggest.h"
#include "render.h"
#include "table.h"
#include "verbs/verbs.h"

namespace hmxctl {
namespace {

Json asJson(const ServiceState& state) {
    Json json{{"path", state.path}, {"state", nameOf(state.life)}};
    if (state.life == Life::refused) json["uid"] = state.uid;
    if (state.life != Life::alive) return json;
    json["application"] = state.application;
    json["pid"] = state.pid;
    json["uid"] = state.uid;
    json["mimeTypes"] = state.mimeTypes;
    return json;
}

}  // namespace

ExitCode runServices(Context& context) {
    const std::vector<ServiceState> states = context.wait(context.client.domain().list(context.deadline));
    if (context.arguments.format != Format::table) {
        Json services = Json::array();
        for (const ServiceState& state : states) services.push_back(asJson(state));
        printDocument(context, services);
        return ExitCode::ok;
    }
    Table table{{{"SERVICE"}, {"STATE"}, {"APPLICATION"}, {"PID", Align::right}, {"UID", Align::right}, {"MIME TYPES"}}};
    for (const ServiceState& state : states) {
        const std::string life{nameOf(state.life)};
        if (state.life == Life::alive) {
            table.addRow({{state.path},
                          {life, Style::green},
                          {state.application},
                          {std::to_string(state.pid)},
                          {std::to_string(state.uid)},
                          {joined(state.mimeTypes)}});
        } else if (state.life == Life::refused) {
            table.addRow({{state.path}, {life, Style::yellow}, {""}, {""}, {std::to_string(state.uid)}});
        } else {
            table.addRow({{state.path}, {life, Style::red}});
        }
    }
    printLines(context.out, table.lines(context.out.colour()));
    if (states.empty()) context.note("no service has a place in " + context.client.domain().where());
    return ExitCode::ok;
}

}  // namespace hmxctl
