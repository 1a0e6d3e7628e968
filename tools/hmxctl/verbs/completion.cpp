// `completion` prints the shells' scripts; `__complete` is what these call.

#include "completion.h"

#include "hmx/client/domain.h"
#include "hmx/client/elements.h"
#include "hmx/client/suggest.h"
#include "render.h"
#include "verbs/verbs.h"

namespace hmxctl {
namespace {

// How long a person who pressed a key may be kept waiting.
constexpr std::chrono::milliseconds keyPatience{700};

// Asks the running services, and takes no for an answer.
class LiveNames final : public NameSource {
public:
    explicit LiveNames(Context& context) : context_{context} {}

    std::vector<std::string> elements(const Resource& resource) override {
        if (!isListable(resource)) return {};
        try {
            Elements elements{context_.client, Deadline{keyPatience}};
            if (resource.path == "/displays" || resource.path == "/layerconfigurations") {
                return context_.wait(elements.displayNames());
            }
            std::vector<std::string> names;
            for (const Json& element : context_.wait(elements.list(resource, nullptr))) {
                names.push_back(context_.wait(elements.nameOf(resource, element)));
            }
            return names;
        } catch (const Failure&) {
            return {};
        }
    }

    std::vector<std::string> services() override {
        try {
            std::vector<std::string> paths;
            for (const ServiceState& state : context_.wait(context_.client.domain().list(Deadline{keyPatience})))
                paths.push_back(state.path);
            return paths;
        } catch (const Failure&) {
            return {};
        }
    }

    std::vector<std::string> channels(const std::string& service) override {
        try {
            const Deadline deadline{keyPatience};
            const Service asked = context_.wait(context_.client.service(service, deadline, context_.client.options().style));
            std::vector<std::string> names;
            for (const Json& each : decode(context_.wait(asked.request({"retrieve", "/$platform/trace"}, deadline)).payload)) {
                names.push_back(hmx::client::text(each, "channel"));
            }
            return names;
        } catch (const Failure&) {
            return {};
        }
    }

private:
    Context& context_;
};

}  // namespace

ExitCode runCompletion(Context& context) {
    const std::string& shell = context.arguments.words.front();
    const std::string_view script = completionScript(shell);
    if (script.empty()) throw usageError("completion: no script for '" + shell + "'", "one of " + joined(completionShells()));
    printText(context, "script", script);
    return ExitCode::ok;
}

ExitCode runComplete(Context& context) {
    const std::string line = joined(context.arguments.words, " ");
    // Whoever is looking into another domain, or a recording, wants the names of that one.
    Arguments arguments = context.arguments;
    const std::string directory = optionValue(line, "--runtime-dir");
    const std::string domain = optionValue(line, "--domain");
    if (!directory.empty()) arguments.runtimeDirectory = directory;
    if (!domain.empty()) arguments.domain = domain;
    const std::string from = optionValue(line, "--from");
    const bool elsewhere = !directory.empty() || !domain.empty() || !from.empty();
    std::unique_ptr<Client> client;
    if (!from.empty()) {
        if (from == "-") return ExitCode::ok;  // not ours to read
        const auto recorded = [&](Dispatcher& dispatcher) { return openRecording(dispatcher, {.file = from}); };
        client = std::make_unique<Client>(clientOptions(arguments, nullptr), recorded);
    } else if (elsewhere) {
        client = std::make_unique<Client>(clientOptions(arguments, nullptr));
    }
    Context there{arguments, elsewhere ? *client : context.client, context.out, context.err};
    LiveNames names{there};
    for (const Candidate& candidate : complete(line, names)) {
        context.out.line(candidate.about.empty() ? candidate.word : candidate.word + "\t" + candidate.about);
    }
    return ExitCode::ok;
}

}  // namespace hmxctl
