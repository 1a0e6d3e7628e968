// The store is one fixed slot per thread. Recording an error neither allocates nor fails, so it works when memory is short and in
// destructors. A slot is constant-initialised; the first error of a thread costs no more than the others.
//
// An action may itself run code that records errors. Those are dropped: the slot that the action reads must not change.
//
// An error is unhandled when the next one overwrites it, when the event loop ends the turn in which it was recorded, or when the
// ErrorStorage object is destroyed. So it is reported soon, and no later piece of work mistakes it for its own.

#include "kelo/std/error_storage.h"

#include <unistd.h>

#include <array>
#include <atomic>
#include <charconv>
#include <cstring>

#include "kelo/std/unhandled_error.h"
#include "util/line_buffer.h"

namespace std {

namespace {

struct Slot {
    const ErrorCategory* category = nullptr;
    int code = 0;
    const char* file = "";
    unsigned line = 0;
    bool inAction = false;
    size_t size = 0;          // of the text
    bool hasPath = false;     // the text begins with a path
    bool isPathFull = false;  // the path takes no more parts
    array<char, 1024> text{};
};

constinit thread_local Slot slot;
constinit atomic<ErrorStorage::Action> unconsumedAction{nullptr};

// Passes the stored error, if any, to the action, if any.
void report() noexcept {
    const ErrorStorage::Action action = unconsumedAction.load(memory_order_acquire);
    if (slot.category == nullptr || action == nullptr) return;
    slot.inAction = true;
    action(ErrorStorage::current());
    slot.inAction = false;
}

// A long part is cut. If there is no room, this part and those around it are left out: a long key from a peer must not push out
// what is wrong and the innermost part of the path.
void prependPathPart(string_view part) noexcept {
    constexpr size_t longest = 64;  // bytes; the keys of records are shorter
    if (slot.category == nullptr || slot.isPathFull) return;
    const string_view shown = util::cutUtf8(part, longest);
    const string_view mark = shown.size() < part.size() ? string_view{"…"} : string_view{};
    string_view separator;
    if (!slot.hasPath) {
        separator = ": ";
    } else if (slot.text.front() != '[') {
        separator = ".";
    }
    const size_t size = shown.size() + mark.size() + separator.size();
    slot.isPathFull = size > slot.text.size() - slot.size;
    if (slot.isPathFull) return;
    memmove(slot.text.data() + size, slot.text.data(), slot.size);
    auto* to = slot.text.begin();
    for (const string_view piece : {shown, mark, separator}) to = copy(piece.begin(), piece.end(), to);
    slot.size += size;
    slot.hasPath = true;
}

}  // namespace

ErrorStorage::ErrorStorage(Action action) noexcept : previous_{unconsumedAction.exchange(action)} {}

ErrorStorage::~ErrorStorage() {
    kelo::disposeOfUnhandledError();
    unconsumedAction.store(previous_);
}

void ErrorStorage::action_dump_to_stdout(const ErrorEntry& entry) {
    if (entry.category == nullptr) return;
    util::LineBuffer line;
    line.append("unhandled error ");
    line.append(entry.category->name);
    line.append(" ");
    line.appendNumber(entry.code);
    line.append(" (");
    line.append(entry.category->describe(entry.code));
    line.append("): ");
    line.appendEscaped(entry.text);
    line.append(" [");
    const string_view file = entry.file;
    line.append(file.substr(file.rfind('/') + 1));
    line.append(":");
    line.appendNumber(entry.line);
    line.append("]");
    (void)line.writeTo(STDOUT_FILENO);
}

bool ErrorStorage::hasError() noexcept {
    return slot.category != nullptr;
}

ErrorEntry ErrorStorage::current() noexcept {
    if (slot.category == nullptr) return {};
    return {slot.category, slot.code, {slot.text.data(), slot.size}, slot.file, slot.line};
}

string ErrorStorage::reason() {
    return string{current().text};
}

void ErrorStorage::ack() noexcept {
    slot.category = nullptr;
}

string ErrorStorage::takeReason() {
    string text = reason();
    ack();
    return text;
}

void ErrorStorage::prependPath(string_view member) noexcept {
    prependPathPart(member);
}

void ErrorStorage::prependPath(size_t index) noexcept {
    char part[24] = "[";
    auto* end = to_chars(part + 1, part + sizeof part - 1, index).ptr;
    *end++ = ']';
    prependPathPart({part, static_cast<size_t>(end - part)});
}

ErrorOutput::ErrorOutput(const ErrorCategory& category, int code, string_view text, const char* file, unsigned line) noexcept {
    if (slot.inAction) return;
    report();
    const string_view fits = util::cutUtf8(text, slot.text.size());
    if (!fits.empty()) memmove(slot.text.data(), fits.data(), fits.size());  // may be a piece of the text that it replaces
    slot.size = fits.size();
    slot.hasPath = false;
    slot.isPathFull = false;
    slot.category = &category;
    slot.code = code;
    slot.file = file;
    slot.line = line;
}

}  // namespace std

void kelo::disposeOfUnhandledError() noexcept {
    if (!std::ErrorStorage::hasError()) return;
    std::report();
    std::ErrorStorage::ack();
}
