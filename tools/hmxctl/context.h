// What a verb works with.
#pragma once

#include <functional>
#include <iosfwd>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "args.h"
#include "failure.h"
#include "hmx/client/client.h"
#include "hmx/client/resources.h"
#include "output.h"
#include "recorded_domain.h"
#include "verbs/verbs.h"

namespace hmxctl {

// Thread: main.
struct Context {
    const Arguments& arguments;
    Client& client;
    Output& out;
    std::ostream& err;
    RecordedDomain* recording = nullptr;  // that is asked instead of running services; null: none
    Deadline deadline{arguments.timeout};

    // Does the task. Errors: Failure.
    template <class T>
    T wait(Task<T> task) const {
        try {
            return client.run(std::move(task));
        } catch (const Error& error) {
            throw failureOf(error);
        }
    }

    // The service, waited for until the deadline if it is not attached yet. Errors: Failure.
    Service service(std::string_view path) const { return service(path, client.options().style); }
    Service service(std::string_view path, RequestStyle style) const {
        return wait(client.service(std::string{path}, deadline, std::move(style)));
    }

    // Waits until something has arrived for the client, and lets it arrive; false at the deadline. Throws OutputClosed when
    // nobody reads the output any more. Errors: Failure.
    bool waitForNews(const std::optional<Deadline>& until) const;

    // The time of day that is shown: "12:34:56.789".
    std::string clockTime() const;
    // Whether a recording has been played to its end.
    bool isOver() const { return recording != nullptr && recording->isOver(); }

    // A remark for people, on standard error.
    void note(std::string_view text);

    // "get displays/X": what failures begin with.
    std::string action() const;
};

// How the arguments want services to be found and asked. `observer` may be null.
[[nodiscard]] ClientOptions clientOptions(const Arguments& arguments, IObserver* observer);

// Makes the client. `domain`: makes what services are found in, in place of the usual; null: none.
using ClientMaker =
    std::function<std::unique_ptr<Client>(const Arguments& arguments, ClientOptions options, const Client::DomainMaker& domain)>;
// Runs a whole command line: parses it, runs the verb, reports failures on `err`. Never throws.
[[nodiscard]] ExitCode runCommand(int argc, const char* const* argv, const ClientMaker& makeClient, int outputDescriptor,
                                  std::ostream& err);

}  // namespace hmxctl
