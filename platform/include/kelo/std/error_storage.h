// The error store: the last framework error of the calling thread, waiting to be consumed.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace std {

// A family of error codes. Categories are compared by address: each is one object with static storage.
struct ErrorCategory {
    const char* name;                   // e.g. "kelo::errors::Error"
    const char* (*describe)(int code);  // a short text for the code; never null
};

// One recorded error. `text` is what the reporter knew, and is what `ErrorStorage::reason` gives back.
struct ErrorEntry {
    const ErrorCategory* category = nullptr;
    int code = 0;
    string_view text;
    const char* file = "";  // where it was recorded
    unsigned line = 0;
};

// The store itself is per thread, of fixed size (a text is cut at 1 KiB, at a whole UTF-8 character) and never fails or
// allocates. Constructing an ErrorStorage sets what happens, in the whole process, to an error that nobody consumed: one that the
// next overwrites, or that is left when its thread's event loop, or the storage, has done. Destroying it restores what was
// before. Thread: the static functions speak of the calling thread.
class ErrorStorage {
public:
    using Action = void (*)(const ErrorEntry&);

    explicit ErrorStorage(Action action) noexcept;
    ~ErrorStorage();
    ErrorStorage(const ErrorStorage&) = delete;
    ErrorStorage& operator=(const ErrorStorage&) = delete;

    // One line on standard output; dropped when standard output cannot take it at once.
    static void action_dump_to_stdout(const ErrorEntry& entry);

    static bool hasError() noexcept;
    // The stored error; `category` is null when there is none. The text lives until the thread's next error or `ack`.
    static ErrorEntry current() noexcept;
    // The stored error's text, "" when there is none.
    static string reason();
    // Consumes the stored error.
    static void ack() noexcept;
    // Both: the stored error's text, for whoever answers for it.
    static string takeReason();

    // Says where in a document the stored error lies: called from the inside out while the failure travels upwards, with a
    // member's name or an element's index. What is gathered stands before the text: "regions.layers[2].id: not an integer".
    // Without effect when nothing is stored.
    static void prependPath(string_view member) noexcept;
    static void prependPath(size_t index) noexcept;

private:
    Action previous_;
};

// Records an error in the calling thread's store: `ErrorOutput{category, code, text};`. An unconsumed one before it goes to the
// storage's action.
class ErrorOutput {
public:
    ErrorOutput(const ErrorCategory& category, int code, string_view text, const char* file = __builtin_FILE(),
                unsigned line = __builtin_LINE()) noexcept;
};

}  // namespace std
