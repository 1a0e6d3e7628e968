#include "metrics.h"

#include <algorithm>

#include "hmx/client/document.h"

namespace hmxgateway {
namespace {

using Json = hmx::client::Json;
using hmx::client::member;

// "requestsAccepted" as "requests_accepted".
std::string snakeCase(std::string_view name) {
    std::string out;
    for (const char c : name) {
        const bool isCapital = c >= 'A' && c <= 'Z';
        if (isCapital) out += '_';
        out += isCapital ? static_cast<char>(c - 'A' + 'a') : c;
    }
    return out;
}

// A label's value comes from other processes.
std::string labelValue(std::string_view value) {
    std::string out{'"'};
    for (const char c : value) {
        if (c == '"' || c == '\\') out += '\\';
        out += c == '\n' ? ' ' : c;
    }
    return out + '"';
}

// Writes families one after the other. Thread: one at a time.
class Writer {
public:
    void family(const std::string& name, std::string_view type, std::string_view help) {
        name_ = name;
        suffix_ = type == "counter" ? "_total" : "";
        text_.append("# TYPE ").append(name).append(" ").append(type).append("\n# HELP ").append(name).append(" ").append(help);
        text_ += '\n';
    }
    void value(std::uint64_t number, const std::string& labels = {}) {
        text_.append(name_).append(suffix_);
        if (!labels.empty()) text_.append("{").append(labels).append("}");
        text_.append(" ").append(std::to_string(number)).append("\n");
    }
    void one(const std::string& name, std::string_view type, std::string_view help, std::uint64_t number) {
        family(name, type, help);
        value(number);
    }
    std::string end() && { return std::move(text_) + "# EOF\n"; }

private:
    std::string text_;
    std::string name_;
    std::string_view suffix_;
};

// Of a count, which a document may hold as a signed number, too.
std::uint64_t numberOf(const Json& value) {
    if (value.is_number_unsigned()) return value.get<std::uint64_t>();
    return value.is_number_integer() ? static_cast<std::uint64_t>(std::max<std::int64_t>(0, value.get<std::int64_t>())) : 0;
}

void writeBridge(Writer& out, const Json& status) {
    out.one("hmx_bridge_up", "gauge", "Whether /hmx answers.", status.is_object() ? 1 : 0);
    if (!status.is_object()) return;
    for (const auto& [key, value] : member(status, "counters").items()) {
        // How many there are now, among counts since the start.
        const bool isGauge = key == "connectionsOpen";
        out.one("hmx_bridge_" + snakeCase(key), isGauge ? "gauge" : "counter", "The bridge's counter " + key + ".",
                numberOf(value));
    }
    for (const auto& [key, value] : member(status, "gauges").items()) {
        out.one("hmx_bridge_" + snakeCase(key), "gauge", "The bridge's gauge " + key + ".", numberOf(value));
    }
    const Json& tracked = member(status, "tracked");
    const auto perService = [&](const char* name, std::string_view help, auto numberIn) {
        out.family(name, "gauge", help);
        for (const Json& service : tracked)
            out.value(numberIn(service), "service=" + labelValue(hmx::client::text(service, "path")));
    };
    perService("hmx_upstream_up", "Whether the bridge is connected to the upstream service.",
               [](const Json& service) { return member(service, "alive") == true ? 1U : 0U; });
    perService("hmx_upstream_pending_requests", "Requests that the upstream service has not answered.",
               [](const Json& service) { return numberOf(member(service, "pendingRequests")); });
    perService("hmx_upstream_streams", "Streams open at the upstream service.",
               [](const Json& service) { return numberOf(member(service, "streams")); });
}

}  // namespace

std::string Metrics::text(const Gauges& gauges, const Json& status) const {
    Writer out;
    out.family("hmxgateway_requests", "counter", "Requests that were answered, by what they were about.");
    for (const auto& [key, count] : requests_) {
        out.value(count, "resource=" + labelValue(key.first) + ",status=\"" + std::to_string(key.second) + "\"");
    }
    out.family("hmxgateway_refused", "counter", "Requests and connections that the gateway itself refused, by reason.");
    for (std::size_t i = 0; i < refusals_.size(); ++i) {
        out.value(refusals_[i], "reason=" + labelValue(formOf(static_cast<Refusal>(i)).name));
    }
    out.one("hmxgateway_connections", "gauge", "Open connections.", gauges.connections);
    out.one("hmxgateway_streams", "gauge", "Open event streams.", gauges.streams);
    out.one("hmxgateway_topics", "gauge", "Different things that are watched.", gauges.topics);
    out.one("hmxgateway_events", "counter", "Events of all topics.", gauges.events);
    out.one("hmxgateway_slow_viewers_cut", "counter", "Event streams ended because too much was left unread.",
            gauges.slowViewersCut);
    writeBridge(out, status);
    return std::move(out).end();
}

}  // namespace hmxgateway
