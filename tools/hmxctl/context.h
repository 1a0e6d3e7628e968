// What a verb works with.
#pragma once

#include <functional>
#include <iosfwd>
#include <memory>
#include <string>
#include <string_view>

#include "args.h"
#include "deadline.h"
#include "output.h"
#include "resources.h"
#include "service.h"
#include "services.h"
#include "verbs/verbs.h"

namespace hmxctl {

// Thread: main.
struct Context {
    const Arguments& arguments;
    Services& services;
    Output& out;
    std::ostream& err;
    Deadline deadline{arguments.timeout};

    // The service, waited for until the deadline if it is not attached yet. Errors: Failure.
    Service service(std::string_view path) { return service(path, deadline, arguments.mimeType); }
    Service service(std::string_view path, const Deadline& until, const std::string& mimeType) {
        return Service{services.attach(path, until), std::string{path}, mimeType, arguments.verbose ? &err : nullptr,
                       arguments.patient};
    }

    // A remark for people, on standard error.
    void note(std::string_view text);

    // "get displays/X": what failures begin with.
    std::string action() const;
};

// Runs a whole command line: parses it, runs the verb, reports failures on `err`. Never throws.
[[nodiscard]] ExitCode runCommand(int argc, const char* const* argv,
                                  const std::function<std::unique_ptr<Services>(const Arguments&)>& makeServices,
                                  int outputDescriptor, std::ostream& err);

}  // namespace hmxctl
