// A sink module is code that runs in this process, so it is loaded from one place only: the directory that the program was
// installed with, or one that the operator names by its absolute path. The name of a module is no path. Neither the module nor
// any directory above it may be writable by anyone but root and the user of the process; what is checked cannot be exchanged
// then. A program that runs with more rights than its caller (AT_SECURE) does not listen to the variables at all.
//
// The sink knows channels by what its `addChannel` returned. These handles are in a table that only grows; lines look their
// channel up there without a lock. A channel that is created late is announced with its first line. While one thread announces a
// channel, another one's lines of that channel go to standard error, as do those of channels for which there is no room.
//
// A module is never unloaded: its own threads may still be running.
#include "tracing/sink_module.h"

#include <dlfcn.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>
#include <new>
#include <string>
#include <string_view>

#include "tracing/channel.h"
#include "tracing/levels.h"
#include "tracing/output.h"
#include "tracing/replaceable.h"
#include "tracing/short_id.h"
#include "tracing/sink.h"
#include "util/line_buffer.h"
#include "util/safe_file.h"
#include "util/util.h"

namespace tracing::sink_module {

namespace {

constexpr int defaultThreshold = 2;

constinit Replaceable<> statusDump;

// The channels that the sink knows. Thread: any.
class Channels {
public:
    explicit Channels(const KeloTraceSink& sink) : sink_{sink} {}

    // Null if the sink has no room for it, or is being told of it just now.
    void* handleOf(std::string_view name) {
        Entry* entry = find(name);
        if (entry == nullptr) {
            tellAll();
            entry = add(name, defaultThreshold);
        }
        return entry == nullptr ? nullptr : entry->handle.load(std::memory_order_acquire);
    }

    void tellAll() {
        for (const ChannelLevel& each : channelLevels()) tell(each.channel, each.threshold);
    }

    // The sink knows the threshold already, for it has chosen it.
    void note(std::string_view name, int threshold) {
        Entry* const entry = find(name);
        if (entry != nullptr) entry->threshold = threshold;
    }

private:
    struct Entry {
        std::string name;
        ShortId id;
        std::atomic<int> threshold;
        std::atomic<void*> handle{nullptr};
    };

    Entry* find(std::string_view name) noexcept {
        const std::size_t size = size_.load(std::memory_order_acquire);
        for (std::size_t i = 0; i < size; ++i) {
            if (entries_[i].name == name) return &entries_[i];
        }
        return nullptr;
    }

    void tell(std::string_view name, int threshold) {
        Entry* const entry = find(name);
        if (entry == nullptr) {
            (void)add(name, threshold);
            return;
        }
        void* const handle = entry->handle.load(std::memory_order_acquire);
        if (entry->threshold.exchange(threshold) != threshold && handle != nullptr) sink_.thresholdChanged(handle, threshold);
    }

    Entry* add(std::string_view name, int threshold) {
        Entry* entry = nullptr;
        {
            const std::lock_guard lock{mutex_};
            entry = find(name);
            if (entry != nullptr || size_ == entries_.size()) return entry;
            entry = &entries_[size_];
            entry->name = name;
            entry->id = freeShortId(name, [this](const ShortId& id) {
                return std::any_of(entries_.begin(), entries_.begin() + static_cast<std::ptrdiff_t>(size_.load()),
                                   [&](const Entry& each) { return each.id == id; });
            });
            entry->threshold = threshold;
            size_.store(size_ + 1, std::memory_order_release);
        }
        entry->handle.store(sink_.addChannel(entry->name.c_str(), entry->id.data(), threshold), std::memory_order_release);
        return entry;
    }

    const KeloTraceSink& sink_;
    std::mutex mutex_;
    std::array<Entry, 64> entries_;
    std::atomic<std::size_t> size_{0};
};

// The sink in use; never destroyed.
struct Module {
    const KeloTraceSink& sink;
    const KeloTraceHost host;
    Channels channels;
};
constinit std::atomic<Module*> module{nullptr};

void write(const char* channel, int level, const char* text, void* /*context*/) {
    void* handle = nullptr;
    try {
        handle = module.load()->channels.handleOf(channel);
    } catch (const std::bad_alloc&) {
        // A channel that cannot be announced for lack of memory.
    }
    if (handle == nullptr) {
        output::toStandardError(channel, level, text);
        return;
    }
    util::LineBuffer line;
    line.appendEscaped(text);
    module.load()->sink.writeLine(handle, level, line.text());
}

// The sink has chosen a threshold.
bool adopt(const char* channel, int threshold) noexcept {
    try {
        if (Module* const current = module.load()) current->channels.note(channel, threshold);
        return setThreshold(channel, threshold);
    } catch (const std::bad_alloc&) {
        return false;
    }
}

// --- Finding the module ---

// `path` without symbolic links; empty, with the reason in `error`, if it is not there or others could write to it.
std::string trusted(const std::string& path, std::string& error) {
    const std::unique_ptr<char, decltype(&std::free)> real{::realpath(path.c_str(), nullptr), &std::free};
    if (!real) {
        error = path + ": " + std::strerror(errno);
        return {};
    }
    for (std::string part = real.get();; part.resize(part.rfind('/'))) {
        struct stat status {};
        const bool isRoot = part.empty();
        const char* const name = isRoot ? "/" : part.c_str();
        if (::stat(name, &status) != 0) {
            error = std::string{name} + ": " + std::strerror(errno);
            return {};
        }
        const bool isDirectory = S_ISDIR(status.st_mode);
        if (!util::unsafeReason(status, isDirectory ? util::Sticky::isEnough : util::Sticky::isNotEnough).empty()) {
            error = std::string{name} + " could be changed by others than root and the user";
            return {};
        }
        if (isRoot) return real.get();
    }
}

// Where the program was installed with its modules, from where its own file is.
std::string installedDirectory() {
    std::array<char, PATH_MAX> path;
    const auto size = ::readlink("/proc/self/exe", path.data(), path.size());
    const std::string_view program{path.data(), size < 0 ? 0 : static_cast<std::size_t>(size)};
    return std::string{program.substr(0, program.rfind('/') + 1)} + HMX_MODULES;
}

bool isModuleName(std::string_view name) noexcept {
    return name.find_first_not_of("abcdefghijklmnopqrstuvwxyz0123456789-") == std::string_view::npos;
}

const KeloTraceSink* load(const char* name, std::string& error) {
    if (!isModuleName(name)) {
        error = "this is not the name of a sink";
        return nullptr;
    }
    const char* const named = ::secure_getenv("KELO_TRACE_SINK_DIR");
    if (named != nullptr && *named != '/') {
        error = std::string{"KELO_TRACE_SINK_DIR is not an absolute path: "} + named;
        return nullptr;
    }
    const std::string directory = named == nullptr ? installedDirectory() : named;
    const std::string path = trusted(directory + "/libkelo-trace-" + name + ".so", error);
    if (path.empty()) return nullptr;
    void* const library = ::dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr) {
        error = ::dlerror();
        return nullptr;
    }
    const auto entry = reinterpret_cast<decltype(&keloTraceSink)>(::dlsym(library, "keloTraceSink"));
    const KeloTraceSink* const sink = entry == nullptr ? nullptr : entry();
    if (sink == nullptr) {
        error = path + " is no trace sink";
    } else if (sink->version != keloTraceSinkVersion) {
        error = path + " has version " + std::to_string(sink->version) + " of the interface, not " +
                std::to_string(keloTraceSinkVersion);
    } else {
        return sink;
    }
    return nullptr;
}

}  // namespace

void open() {
    const char* const name = ::secure_getenv("KELO_TRACE_SINK");
    if (name == nullptr || *name == '\0' || module.load() != nullptr) return;
    static const std::string application = util::Util::applicationName();
    static const ShortId applicationId = shortId(application);
    std::string error;
    const KeloTraceSink* const sink = load(name, error);
    if (sink != nullptr) {
        auto* const made = new Module{
            *sink,
            {application.c_str(), applicationId.data(), &adopt, [] { (void)statusDump.call(); }},
            Channels{*sink},
        };
        module = made;
        const char* const refusal = sink->open(&made->host);
        if (refusal == nullptr) {
            thresholdsChanged();
            setSink(&write, nullptr);
            return;
        }
        error = refusal;
        module = nullptr;
    }
    const Channel channel{"KELO_RUNTIME"};
    logCV(channel, 4, "KELO_TRACE_SINK=%s: %s; the log goes to standard error", name, error.c_str());
}

void close() noexcept {
    static constinit std::atomic<bool> isClosed{false};
    Module* const closed = module.load();
    if (closed == nullptr || isClosed.exchange(true)) return;
    setStatusDump(nullptr, nullptr);
    setSink(nullptr, nullptr);
    module = nullptr;
    closed->sink.close();
}

void thresholdsChanged() {
    if (Module* const told = module.load()) told->channels.tellAll();
}

void setStatusDump(void (*dump)(void* context), void* context) noexcept {
    statusDump.replace(dump, context);
}

}  // namespace tracing::sink_module
