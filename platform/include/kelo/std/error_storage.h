// The error store: the calling thread's last framework error, until it is consumed.
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

// One recorded error. `text` is what the reporter gave, and what `ErrorStorage::reason` returns.
struct ErrorEntry {
    const ErrorCategory* category = nullptr;
    int code = 0;
    string_view text;
    const char* file = "";  // where it was recorded
    unsigned line = 0;
};

// The store is per thread, has a fixed size (a text is cut after at most 1 KiB, at a character boundary), and never fails or
// allocates. An ErrorStorage object sets, for the whole process, what happens to an error that nobody consumed: one that is
// overwritten by the next, or is still there when its thread's event loop ends a turn or when the ErrorStorage is destroyed. Its
// destructor restores the previous action. Thread: the static functions refer to the calling thread.
class ErrorStorage {
public:
    using Action = void (*)(const ErrorEntry&);

    explicit ErrorStorage(Action action) noexcept;
    ~ErrorStorage();
    ErrorStorage(const ErrorStorage&) = delete;
    ErrorStorage& operator=(const ErrorStorage&) = delete;

    // Writes one line to standard output; drops it if standard output cannot take it at once.
    static void action_dump_to_stdout(const ErrorEntry& entry);

    static bool hasError() noexcept;
    // The stored error; `category` is null if there is none. The text is valid until the thread's next error or `ack`.
    static ErrorEntry current() noexcept;
    // The stored error's text; "" if there is none.
    static string reason();
    // Consumes the stored error.
    static void ack() noexcept;
    // Returns the stored error's text and consumes the error.
    static string takeReason();

    // Adds where in a document the stored error occurred: a member's name or an element's index. Called from the inside out while
    // the failure is passed up. The path precedes the text: "regions.layers[2].id: not an integer". No effect if nothing is
    // stored.
    static void prependPath(string_view member) noexcept;
    static void prependPath(size_t index) noexcept;

private:
    Action previous_;
};

// Records an error in the calling thread's store: `ErrorOutput{category, code, text};`. If there is an unconsumed error, it goes
// to the storage's action first.
class ErrorOutput {
public:
    ErrorOutput(const ErrorCategory& category, int code, string_view text, const char* file = __builtin_FILE(),
                unsigned line = __builtin_LINE()) noexcept;
};

}  // namespace std
