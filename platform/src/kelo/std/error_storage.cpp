// The store is one fixed slot per thread: recording an error neither allocates nor fails, so it works when memory is short and
// from a destructor. A slot is constant-initialised; the first error of a thread costs no more than the others.
//
// An action may itself run code that records errors. Those are dropped: the slot that the action is looking at must stay as it
// is, and an error about reporting an error helps nobody.
//
// An error is unhandled when the next one overwrites it, when the turn of the event loop that recorded it is over, or when the
// storage itself goes. So it is reported soon, and no later piece of work mistakes it for its own.

#include "kelo/std/error_storage.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <charconv>
#include <cstdint>
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
    size_t size = 0;        // of the text
    size_t pathLength = 0;  // of the path that the text begins with; 0 when it has none
    array<char, 1024> text{};
};

constinit thread_local Slot slot;
constinit atomic<ErrorStorage::Action> unconsumedAction{nullptr};

// Shows the stored error, if there is one, to the action, if there is one.
void report() noexcept {
    const ErrorStorage::Action action = unconsumedAction.load(memory_order_acquire);
    if (slot.category == nullptr || action == nullptr) return;
    slot.inAction = true;
    action(ErrorStorage::current());
    slot.inAction = false;
}

// Opens a gap of `count` bytes at the front of the slot's text; the end is cut if need be. The bytes that may be filled.
size_t openGap(size_t count) noexcept {
    count = min(count, slot.text.size());
    const size_t kept = util::cutUtf8({slot.text.data(), slot.size}, slot.text.size() - count).size();
    memmove(slot.text.data() + count, slot.text.data(), kept);
    slot.size = kept + count;
    return count;
}

void prepend(string_view part, string_view separator) noexcept {
    const size_t gap = openGap(part.size() + separator.size());
    const size_t head = min(part.size(), gap);
    copy_n(separator.begin(), gap - head, copy_n(part.begin(), head, slot.text.begin()));
}

void prependPathPart(string_view part) noexcept {
    if (slot.category == nullptr) return;
    string_view separator;
    if (slot.pathLength == 0) {
        separator = ": ";
    } else if (slot.text.front() != '[') {
        separator = ".";
    }
    prepend(part, separator);
    slot.pathLength += part.size() + separator.size();
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
    if (!fits.empty()) memmove(slot.text.data(), fits.data(), fits.size());  // it may be a piece of the text that it replaces
    slot.size = fits.size();
    slot.pathLength = 0;
    slot.category = &category;
    slot.code = code;
    slot.file = file;
    slot.line = line;
}

}  // namespace std

void kelo::disposeOfUnhandledError() noexcept {
    std::report();
    std::ErrorStorage::ack();
}
