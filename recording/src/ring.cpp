#include "hmx/recording/ring.h"

#include <utility>

namespace hmx::recording {
namespace {

// What a line takes besides its text.
constexpr std::size_t lineBytes = 64;

}  // namespace

void Ring::add(std::chrono::nanoseconds at, std::string line) {
    bytes_ += line.size() + lineBytes;
    lines_.push_back({at, std::move(line)});
    drop(at);
}

void Ring::drop(std::chrono::nanoseconds now) {
    while (!lines_.empty() && (bytes_ > mostBytes_ || lines_.front().at < now - span_)) {
        const Entry entry = entryOf(lines_.front().text);
        (void)base_.apply(entry);
        numbers_[entry.source.key()] = entry.number.value_or(0);
        begin_ = entry.at;
        bytes_ -= lines_.front().text.size() + lineBytes;
        lines_.pop_front();
    }
    if (begin_ > std::chrono::nanoseconds{0} && begin_ < now - span_) begin_ = now - span_;
}

void Ring::write(std::chrono::nanoseconds now, Writer& writer) {
    drop(now);
    // A source that does not answer any more takes two entries: what stands, and that.
    for (const auto& [key, state] : base_.sources()) {
        const bool isAnswering = state.kind == EntryKind::state;
        const std::uint64_t number = numbers_[key];
        Entry entry{.at = base_.at(), .number = number, .source = state.source, .kind = state.kind, .status = state.status};
        if (!isAnswering) {
            entry.reason = state.reason;
            if (state.isKnown) {
                writer.write(
                    {.at = base_.at(), .number = number - 1, .source = state.source, .status = 200, .document = state.document});
            }
        } else {
            entry.document = state.document;
        }
        writer.write(entry);
    }
    for (const Line& line : lines_) writer.writeLines(line.text);
    writer.stop(now);
}

}  // namespace hmx::recording
