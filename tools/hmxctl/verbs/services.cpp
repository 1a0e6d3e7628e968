// `services`: the services of the domain, and of those that a relay publishes, how near they are to their originals.

#include "hmx/client/domain.h"
#include "hmx/client/suggest.h"
#include "render.h"
#include "table.h"
#include "verbs/verbs.h"

namespace hmxctl {
namespace {

using hmx::client::member;
using hmx::client::text;

// What a relay tells of the origin behind a service; null for any other service, and if it does not tell.
Json originOf(Context& context, const ServiceState& state) {
    const bool isCopy = state.life == Life::alive && state.application == "hmxrelay" &&
                        (state.path == hmxService || state.path.starts_with(std::string{hmxService} + "@"));
    if (!isCopy) return nullptr;
    try {
        const Deadline deadline = context.deadline.atMost(std::chrono::milliseconds{500});
        const Service service{context.client.dispatcher(),
                              *context.client.run(context.client.domain().attach(state.path, deadline)), state.path,
                              context.client.options().style};
        return hmx::client::decode(context.client.run(service.request({"retrieve", "/relay"}, deadline)).payload);
    } catch (const Error&) {
        return nullptr;
    }
}

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
        for (const ServiceState& state : states) {
            services.push_back(asJson(state));
            if (Json origin = originOf(context, state); !origin.is_null()) services.back()["origin"] = std::move(origin);
        }
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
    Table origins{{{"ORIGIN"},
                   {"SERVICE"},
                   {"STATE"},
                   {"AGE ms", Align::right},
                   {"LAG ms", Align::right},
                   {"LOST", Align::right},
                   {"HOST"}}};
    bool hasOrigins = false;
    for (const ServiceState& state : states) {
        const Json origin = originOf(context, state);
        if (origin.is_null()) continue;
        hasOrigins = true;
        const std::string life = text(origin, "state");
        origins.addRow({{text(origin, "origin")},
                        {state.path},
                        {life, life == "live" ? Style::green : Style::red},
                        {compact(member(origin, "age"))},
                        {compact(member(origin, "lag"))},
                        {compact(member(origin, "lost"))},
                        {text(origin, "host")}});
    }
    if (hasOrigins) {
        context.out.line("");
        printLines(context.out, origins.lines(context.out.colour()));
    }
    if (states.empty()) context.note("no service has a place in " + context.client.domain().where());
    return ExitCode::ok;
}

}  // namespace hmxctl
