// Services that answer from a script, and commands run against them as a user would run them.
#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <functional>
#include <initializer_list>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "context.h"
#include "failure.h"
#include "support/scripted_api.h"

namespace hmxctl_test {

using namespace scripted;
using hmxctl::ExitCode;

struct Outcome {
    ExitCode code = ExitCode::ok;
    std::string out;
    std::string err;
};

// Thread: one at a time.
class ScriptedServices {
public:
    ScriptedApi& hmx() { return apis_["/hmx"]; }
    ScriptedApi& service(const std::string& path) { return apis_[path]; }

    // Runs `hmxctl WORDS...`.
    Outcome run(const std::vector<const char*>& words) {
        const int file = ::memfd_create("hmxctl-out", MFD_CLOEXEC);
        Outcome outcome = runInto(file, words);
        outcome.out.resize(static_cast<std::size_t>(::lseek(file, 0, SEEK_END)));
        if (::pread(file, outcome.out.data(), outcome.out.size(), 0) < 0) outcome.out = "unreadable";
        ::close(file);
        return outcome;
    }

    // The same with its standard output led elsewhere.
    Outcome runInto(int descriptor, const std::vector<const char*>& words) {
        std::vector<const char*> argv{"hmxctl"};
        argv.insert(argv.end(), words.begin(), words.end());
        std::ostringstream err;
        const auto client = [&](const hmxctl::Arguments&, const hmx::client::ClientOptions& options,
                                const hmx::client::Client::DomainMaker& domain) {
            const auto scripted = [&](auto&) { return std::make_unique<ScriptedDomain>(apis_); };
            return std::make_unique<hmx::client::Client>(options, domain ? domain : scripted);
        };
        const ExitCode code = hmxctl::runCommand(static_cast<int>(argv.size()), argv.data(), client, descriptor, err);
        return {code, "", err.str()};
    }

private:
    ScriptedApis apis_;
};

}  // namespace hmxctl_test
