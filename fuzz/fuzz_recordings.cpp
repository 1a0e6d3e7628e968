// Any bytes as a recording: what is read of it can be written and read again, and the state at a time does not depend on how it
// is found, line by line or by looking for it.
#include <sys/mman.h>
#include <unistd.h>

#include <optional>
#include <string>

#include "hmx/recording/moment.h"
#include "hmx/recording/reader.h"
#include "walk.h"

namespace {

using hmx::client::compact;
using hmx::client::Error;
using hmx::recording::Entry;
using hmx::recording::entryOf;
using hmx::recording::Moment;

std::string textOf(const Moment& moment) {
    std::string text;
    for (const auto& [key, state] : moment.sources()) {
        text += key + ' ' + std::string{nameOf(state.kind)} + (state.isKnown ? ' ' + compact(state.document) : "") + '\n';
    }
    return text;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const int memory = ::memfd_create("recording", MFD_CLOEXEC);
    fuzz::require(::write(memory, data, size) == static_cast<ssize_t>(size), "there is memory");
    const std::string file = "/proc/self/fd/" + std::to_string(memory);
    std::optional<Moment> read;
    try {
        hmx::recording::Reader reader{file};
        read.emplace();
        while (const std::optional<Entry> entry = reader.next()) {
            fuzz::require(lineOf(entryOf(lineOf(*entry))) == lineOf(*entry), "what was read can be written and read again");
            try {
                (void)read->apply(*entry);
            } catch (const Error&) {
            }
        }
    } catch (const Error&) {
    }
    try {
        const Moment found = hmx::recording::momentAt(file);
        fuzz::require(read && textOf(found) == textOf(*read), "both ways lead to the same state");
    } catch (const Error&) {
        fuzz::require(!read, "both ways refuse the same files");
    }
    ::close(memory);
    return 0;
}
