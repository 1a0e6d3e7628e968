#include "context.h"

#include <algorithm>
#include <exception>
#include <ostream>

#include "text.h"

namespace hmxctl {
namespace {

// One line for what was tried and how it ended, one for what would help.
void report(std::ostream& err, const std::string& action, const Failure& failure) {
    const std::string what = failure.what();
    // "get displays/X": what is said of the element itself need not name it twice.
    const std::string verb = action.substr(0, action.find(' '));
    const std::string object = action.substr(std::min(action.size(), verb.size() + 1));
    std::string begin = action.empty() ? "" : action + ": ";
    if (!object.empty() && what.rfind(object, 0) == 0) begin = verb + " ";
    // Or the text names the verb itself.
    if (what.rfind(verb + ":", 0) == 0 || what.rfind(verb + " ", 0) == 0) begin.clear();
    std::string lines = "hmxctl: " + printable(begin + what) + "\n";
    if (!failure.hint().empty()) lines += "hmxctl: " + printable(failure.hint()) + "\n";
    err << lines << std::flush;  // in one piece, so that others' lines do not come between
}

}  // namespace

void Context::note(std::string_view text) {
    out.flush();  // on a terminal, data comes before what is said of it
    err << "hmxctl: " + printable(text) + "\n" << std::flush;
}

std::string Context::action() const {
    std::string text{arguments.verb->name};
    if (!arguments.words.empty()) text += " " + arguments.words.front();
    return text;
}

ExitCode runCommand(int argc, const char* const* argv,
                    const std::function<std::unique_ptr<Services>(const Arguments&)>& makeServices, int outputDescriptor,
                    std::ostream& err) {
    std::string action;
    std::string verb;
    try {
        const Arguments arguments = parseArguments(argc, argv);
        Output out{outputDescriptor, arguments.colour};
        if (!arguments.help.empty()) {
            out.write(arguments.help);
            out.flush();
            return ExitCode::ok;
        }
        const std::unique_ptr<Services> services = makeServices(arguments);
        Context context{arguments, *services, out, err};
        action = context.action();
        verb = arguments.verb->name;
        const ExitCode code = arguments.verb->run(context);
        out.flush();
        return code;
    } catch (const OutputClosed&) {
        return ExitCode::ok;
    } catch (const Failure& failure) {
        // Whoever typed it wrong can always look up how it is right.
        const bool needsHelp = failure.code() == ExitCode::usage && failure.hint().empty();
        const std::string help = "`hmxctl help" + (verb.empty() ? "" : " " + verb) + "` explains it";
        report(err, action, needsHelp ? Failure{failure.code(), failure.what(), help} : failure);
        return failure.code();
    } catch (const std::exception& error) {
        report(err, action, Failure{ExitCode::unexpected, error.what()});
        return ExitCode::unexpected;
    }
}

}  // namespace hmxctl
