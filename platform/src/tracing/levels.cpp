// All channels are in a list, so that their thresholds can be changed at run time. The threshold itself stays in the channel:
// whoever logs reads it there and needs neither the list nor its lock. Several channels may have the same name, because each
// source declares its own; they always have the same threshold.
//
// Channels are created during static initialisation, in any order, so everything that they use is constant-initialised. Their
// first threshold comes from KELO_TRACE alone: the file is read when the process starts to work, so that only processes that work
// for long read it.
#include "tracing/levels.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <map>
#include <mutex>
#include <optional>

#include "tracing/channel.h"
#include "tracing/short_id.h"
#include "tracing/sink_module.h"
#include "util/line_buffer.h"
#include "util/text.h"

namespace tracing {

namespace {

constexpr int defaultThreshold = 2;
constexpr char usualFile[] = "/etc/kelo/trace";

constinit std::mutex listMutex;
constinit const Channel* firstChannel = nullptr;

std::string_view trim(std::string_view text) noexcept {
    constexpr std::string_view blanks = " \t\r";
    while (!text.empty() && blanks.find(text.front()) != std::string_view::npos) text.remove_prefix(1);
    while (!text.empty() && blanks.find(text.back()) != std::string_view::npos) text.remove_suffix(1);
    return text;
}

// "NAME=LEVEL"; false for anything else.
bool parseEntry(std::string_view entry, std::string_view& name, int& level) noexcept {
    const auto equals = entry.find('=');
    if (equals == std::string_view::npos) return false;
    name = trim(entry.substr(0, equals));
    const std::string_view number = trim(entry.substr(equals + 1));
    const auto result = std::from_chars(number.data(), number.data() + number.size(), level);
    return !name.empty() && result.ec == std::errc{} && result.ptr == number.data() + number.size();
}

// Calls `take(name, level)` for each entry of a list, and `refuse(entry)` for what is none.
template <class Take, class Refuse>
void visitEntries(std::string_view list, Take take, Refuse refuse) {
    while (!list.empty()) {
        const std::string_view entry = trim(util::takeEntry(list));
        std::string_view name;
        int level = 0;
        if (entry.empty()) continue;
        if (parseEntry(entry, name, level)) {
            take(name, level);
        } else {
            refuse(entry);
        }
    }
}

std::string_view ofEnvironment() noexcept {
    const char* const variable = std::getenv("KELO_TRACE");
    return variable == nullptr ? "" : variable;
}

bool isMeant(std::string_view name, const Channel& channel) noexcept {
    return name == "*" || name == channel.name();
}

void reportMalformed(std::string_view entry) noexcept {
    util::LineBuffer line;
    line.append("KELO_TRACE: ignoring \"");
    line.appendEscaped(entry);
    line.append("\", which is not CHANNEL=LEVEL");
    (void)line.writeTo(STDERR_FILENO);
}

// The beginning of a file, without its comments, as one list. Nothing and `errno` if it cannot be read.
std::optional<std::string> entriesOf(const char* path) {
    constexpr std::size_t most = std::size_t{64} << 10U;
    const int file = ::open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
    if (file < 0) return {};
    std::string text(most, '\0');
    const auto size = ::read(file, text.data(), text.size());
    const int reason = errno;
    ::close(file);
    errno = reason;
    if (size < 0) return {};
    text.resize(static_cast<std::size_t>(size));
    std::string entries;
    for (std::string_view rest = text; !rest.empty();) {
        const std::string_view line = rest.substr(0, rest.find('\n'));
        entries.append(line.substr(0, line.find('#'))) += ',';
        rest.remove_prefix(std::min(line.size() + 1, rest.size()));
    }
    return entries;
}

const Channel& ownChannel() {
    static const Channel channel{"KELO_RUNTIME"};
    return channel;
}

}  // namespace

// Thread: any.
class ChannelList {
public:
    static void addLocked(const Channel& channel) noexcept {
        for (const Channel* each = firstChannel; each != nullptr; each = each->next_) {
            if (std::strcmp(each->name(), channel.name()) == 0) channel.setThreshold(each->threshold());
        }
        channel.next_ = firstChannel;
        firstChannel = &channel;
    }
    static void removeLocked(const Channel& channel) noexcept {
        const Channel** link = &firstChannel;
        while (*link != &channel) link = &(*link)->next_;
        *link = channel.next_;
    }
    template <class Visit>
    static void visit(Visit visit) {
        const std::lock_guard lock{listMutex};
        for (const Channel* each = firstChannel; each != nullptr; each = each->next_) visit(*each);
    }
};

namespace {

// False if there is no such channel.
bool change(std::string_view channel, int threshold) noexcept {
    bool isThere = false;
    ChannelList::visit([&](const Channel& each) {
        if (!isMeant(channel, each)) return;
        each.setThreshold(threshold);
        isThere = true;
    });
    return isThere;
}

}  // namespace

Channel::Channel(const char* name) noexcept : name_{name}, threshold_{defaultThreshold} {
    static constinit std::atomic<bool> isReported{false};
    const std::string_view variable = ofEnvironment();
    const bool isFirst = !variable.empty() && !isReported.exchange(true);
    visitEntries(
        variable,
        [this](std::string_view entry, int level) {
            if (isMeant(entry, *this)) setThreshold(level);
        },
        [isFirst](std::string_view entry) {
            if (isFirst) reportMalformed(entry);
        });
    const std::lock_guard lock{listMutex};
    ChannelList::addLocked(*this);
}

Channel::~Channel() {
    const std::lock_guard lock{listMutex};
    ChannelList::removeLocked(*this);
}

std::vector<ChannelLevel> channelLevels() {
    std::map<std::string, int> byName;
    ChannelList::visit([&](const Channel& channel) { byName[channel.name()] = channel.threshold(); });
    std::vector<ChannelLevel> levels;
    levels.reserve(byName.size());
    for (const auto& [name, threshold] : byName) {
        const ShortId id = freeShortId(name, [&](const ShortId& wanted) {
            return std::any_of(levels.begin(), levels.end(), [&](const ChannelLevel& each) { return each.id == wanted.data(); });
        });
        levels.push_back({name, threshold, id.data()});
    }
    return levels;
}

bool setThreshold(std::string_view channel, int threshold) {
    const bool isThere = change(channel, threshold);
    if (isThere) sink_module::thresholdsChanged();
    return isThere;
}

void reloadThresholds() {
    const char* const named = std::getenv("KELO_TRACE_FILE");
    const char* const path = named == nullptr ? usualFile : named;
    const std::optional<std::string> entries = entriesOf(path);
    if (!entries && (named != nullptr || errno != ENOENT)) {
        logCV(ownChannel(), 4, "cannot read %s: %s", path, std::strerror(errno));
    }
    // The first time, nothing has been changed yet, but by a sink that keeps levels itself; what it has chosen stays.
    static constinit std::atomic<bool> isAgain{false};
    if (isAgain.exchange(true)) (void)change("*", defaultThreshold);
    visitEntries(
        entries.value_or(""),
        [path](std::string_view name, int level) {
            if (change(name, level)) return;
            logCV(ownChannel(), 3, "%s: no channel is called \"%s\"", path, std::string{name}.c_str());
        },
        [path](std::string_view entry) {
            logCV(ownChannel(), 4, "%s: ignoring \"%s\", which is not CHANNEL=LEVEL", path, std::string{entry}.c_str());
        });
    visitEntries(
        ofEnvironment(), [](std::string_view name, int level) { (void)change(name, level); }, [](std::string_view) {});
    sink_module::thresholdsChanged();
}

}  // namespace tracing
