// Two things are checked: each line by itself, and that the entries of each source follow upon one another. Their numbers tell.
// One that was read already is left out. One that comes too early waits for those before it, since lines may have been put out of
// order; with the source's next whole answer, or when too many wait, those before it count as missing, and all changes up to that
// answer are left out.
//
// Files of other programs may do without numbers. Their entries count as complete, and must not go back in time.
//
// A second head means that another recording was written after the first. Times begin anew there, so reading ends.

#include "hmx/recording/reader.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <deque>
#include <map>
#include <set>
#include <unordered_map>
#include <utility>

#include "entry_prefix.h"
#include "faults.h"
#include "line_splitter.h"

namespace hmx::recording {
namespace {

using client::Error;

constexpr std::size_t mostProblems = 1000;
constexpr std::size_t mostEarly = 64;

std::string entries(std::uint64_t count) {
    return count == 1 ? "1 entry" : std::to_string(count) + " entries";
}

}  // namespace

class Reader::Lines {
public:
    explicit Lines(const std::string& file) : splitter_{file}, name_{file == "-" ? "standard input" : file} { readHead(); }

    std::optional<Entry> next() {
        for (;;) {
            if (!ready_.empty()) {
                Numbered first = std::move(ready_.front());
                ready_.pop_front();
                line = first.line;
                if (first.entry.at < latest_) {
                    report(first.line, "it is out of order: the lines before it are later");
                }
                latest_ = std::max(latest_, first.entry.at);
                end = std::max(end, latest_);
                return std::move(first.entry);
            }
            if (isOver_) return {};
            std::string_view text;
            if (!splitter_.next(text)) {
                isOver_ = true;
                giveUpOnEarly();
                continue;
            }
            take(text);
        }
    }

    Head head;
    std::uint64_t line = 1;
    std::chrono::nanoseconds end{0};
    std::vector<Problem> problems;
    std::uint64_t problemCount = 0;

private:
    struct Numbered {
        std::uint64_t line = 0;
        Entry entry;
    };
    struct Sequence {
        std::optional<std::uint64_t> last;
        std::chrono::nanoseconds at{0};
        bool isWhole = false;  // whether changes can be applied
        std::map<std::uint64_t, Numbered> early;
    };

    void report(std::uint64_t at, std::string what) {
        ++problemCount;
        if (problems.size() < mostProblems) problems.push_back({at, std::move(what)});
    }

    void readHead() {
        std::string_view text;
        std::string reason = "it is empty";
        while (splitter_.next(text)) {
            try {
                head = headOf(text);
                headLine_ = text;
                if (splitter_.number() > 1) report(1, "no head; it is in line " + std::to_string(splitter_.number()));
                return;
            } catch (const Error& error) {
                if (error.kind() == Error::Kind::invalid) throw Error{Error::Kind::invalid, name_ + ": " + error.what()};
                reason = error.what();
            }
            try {
                Entry first = entryOf(text);
                report(1, "no head: when and with what it was recorded is not known");
                sort({splitter_.number(), std::move(first)});
                return;
            } catch (const Error&) {
                if (splitter_.number() == 1) firstReason_ = reason;
            }
        }
        throw Error{Error::Kind::invalid,
                    name_ + " is no recording: " + (firstReason_.empty() ? reason : "its first line is " + firstReason_)};
    }

    void take(std::string_view text) {
        const std::uint64_t number = splitter_.number();
        if (text.empty() && !splitter_.isTooLong()) return;
        try {
            if (splitter_.isTooLong()) throw Error{Error::Kind::unreadable, "longer than any entry"};
            if (text.starts_with("{\"recording\"")) {
                if (text == headLine_) return report(number, "the head again");
                (void)headOf(text);
                report(number, "another recording begins here; it is not read");
                isOver_ = true;
                return giveUpOnEarly();
            }
            if (const auto stop = stopIn(text)) {
                end = std::max(end, *stop);
                return;
            }
            sort({number, entryOf(text)});
        } catch (const Error& error) {
            report(number, splitter_.isComplete() ? error.what() : std::string{cutLine});
        }
    }

    // Where in its source's sequence the entry stands.
    void sort(Numbered numbered) {
        Entry& entry = numbered.entry;
        Sequence& sequence = sequences_[entry.source.key()];
        const auto expected = sequence.last ? std::optional{*sequence.last + 1} : std::nullopt;
        const bool isNumbered = entry.number && expected;
        if (isNumbered && (*entry.number < *expected || sequence.early.contains(*entry.number))) {
            return report(numbered.line, *entry.number + 1 == *expected ? "the entry before it again"
                                                                        : "an entry that was read already, or too late");
        }
        if (!entry.number && entry.at < sequence.at) return report(numbered.line, "it goes back in time");
        if (isNumbered && *entry.number > *expected && entry.kind != EntryKind::state && sequence.isWhole) {
            const std::uint64_t key = *entry.number;
            sequence.early.emplace(key, std::move(numbered));
            if (sequence.early.size() > mostEarly) giveUp(sequence);
            return;
        }
        if (isNumbered && *entry.number > *expected && sequence.isWhole) {
            giveUp(sequence);
            if (*entry.number > *sequence.last + 1) report(numbered.line, gap(sequence, entry) + " missing before it");
        }
        pass(sequence, std::move(numbered));
        while (!sequence.early.empty() && sequence.early.begin()->first == *sequence.last + 1) {
            Numbered held = std::move(sequence.early.extract(sequence.early.begin()).mapped());
            report(held.line, "it came before those that it follows; put in order");
            pass(sequence, std::move(held));
        }
    }

    static std::string gap(const Sequence& sequence, const Entry& entry) {
        const std::uint64_t missing = *entry.number - *sequence.last - 1;
        return entries(missing) + " of " + entry.source.path + (missing == 1 ? " is" : " are");
    }

    // Hands out what can be applied.
    void pass(Sequence& sequence, Numbered numbered) {
        Entry& entry = numbered.entry;
        if (entry.number) sequence.last = entry.number;
        sequence.at = entry.at;
        if (entry.kind == EntryKind::state) sequence.isWhole = true;
        if (entry.kind == EntryKind::change && !sequence.isWhole) {
            return report(numbered.line, "a change of " + entry.source.path + " to what is not known");
        }
        ready_.push_back(std::move(numbered));
    }

    // Those before the ones that wait will not come.
    void giveUp(Sequence& sequence) {
        if (sequence.early.empty()) return;
        const Numbered& first = sequence.early.begin()->second;
        report(first.line, gap(sequence, first.entry) + " missing before it");
        sequence.isWhole = false;
        for (auto& [number, numbered] : std::exchange(sequence.early, {})) pass(sequence, std::move(numbered));
    }

    void giveUpOnEarly() {
        for (auto& [key, sequence] : sequences_) giveUp(sequence);
    }

    LineSplitter splitter_;
    std::string name_;
    std::string headLine_;
    std::string firstReason_;
    std::map<std::string, Sequence> sequences_;
    std::deque<Numbered> ready_;
    std::chrono::nanoseconds latest_{0};
    bool isOver_ = false;
};

Reader::Reader(const std::string& file) : lines_{std::make_unique<Lines>(file)} {}

Reader::~Reader() = default;

const Head& Reader::head() const noexcept {
    return lines_->head;
}

std::optional<Entry> Reader::next() {
    return lines_->next();
}

std::chrono::nanoseconds Reader::end() const noexcept {
    return lines_->end;
}

std::uint64_t Reader::line() const noexcept {
    return lines_->line;
}

const std::vector<Problem>& Reader::problems() const noexcept {
    return lines_->problems;
}

std::uint64_t Reader::problemCount() const noexcept {
    return lines_->problemCount;
}

std::string rereadable(const std::string& file) {
    if (file != "-") return file;
    const auto check = [](auto result) {
        if (result < 0) throw Error{Error::Kind::system, std::string{"cannot keep standard input: "} + std::strerror(errno)};
        return result;
    };
    static const int copy = check(::memfd_create("recording", MFD_CLOEXEC));
    std::string piece(std::size_t{256} * 1024U, '\0');
    for (;;) {
        const ssize_t got = ::read(STDIN_FILENO, piece.data(), piece.size());
        if (got < 0 && errno == EINTR) continue;
        if (check(got) == 0) return "/proc/self/fd/" + std::to_string(copy);
        for (ssize_t done = 0; done < got;)
            done += check(::write(copy, piece.data() + done, static_cast<std::size_t>(got - done)));
    }
}

std::chrono::nanoseconds endOf(const std::string& file) {
    LineSplitter lines{file};
    std::chrono::nanoseconds end{0};
    EntryPrefix prefix;
    for (std::string_view line; lines.next(line);) {
        if (readPrefix(line, prefix)) {
            end = std::max(end, prefix.at);
            continue;
        }
        if (const auto stop = stopIn(line)) {
            end = std::max(end, *stop);
            continue;
        }
        try {
            end = std::max(end, entryOf(line).at);
        } catch (const Error&) {  // Reader says what is wrong with it
        }
    }
    return end;
}

std::chrono::nanoseconds beginningOf(const std::string& file) {
    Reader reader{file};
    std::set<std::string> seen;
    std::chrono::nanoseconds last{0};
    while (const std::optional<Entry> entry = reader.next()) {
        if (!seen.insert(entry->source.key()).second) break;
        last = entry->at;
    }
    return last;
}

}  // namespace hmx::recording
