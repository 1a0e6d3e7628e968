// `help` and `version`.

#include "context.h"
#include "hmx/client/suggest.h"
#include "render.h"
#include "verbs/verbs.h"

namespace hmxctl {
namespace {

constexpr std::string_view version{HMX_VERSION};

}  // namespace

std::string_view programVersion() noexcept {
    return version;
}

ExitCode runHelp(Context& context) {
    const std::vector<std::string>& words = context.arguments.words;
    const Verb* verb = words.empty() ? nullptr : findVerb(words.front());
    if (verb == nullptr && !words.empty())
        throw usageError("help: no verb '" + words.front() + "'", didYouMean(words.front(), verbNames()));
    printText(context, "help", helpText(verb));
    return ExitCode::ok;
}

ExitCode runVersion(Context& context) {
    if (context.arguments.format == Format::table) {
        context.out.line("hmxctl " + std::string{version});
    } else {
        printDocument(context, Json{{"name", "hmxctl"}, {"version", version}});
    }
    return ExitCode::ok;
}

}  // namespace hmxctl
