// The records are in a memory file. The supervisor has a descriptor of it, so it exists as long as the service does, however
// often its process ends. It is handed over once, when it is made: a change is then only a write to memory, and nothing has to
// arrive anywhere before the change is safe.
//
// Format. The file has two halves, of which one is in use. A half is a header and a log: each change appends one record, with the
// whole content of an id or its removal, and then writes the header with the new length. The header is less than a page and is
// written by one call, so a process that is killed leaves the old one or the new one; what was appended beyond its length does
// not count. Every record has a checksum over its content and its place, and the header has one over itself. So what is read is
// exactly what was written, or the whole file is refused: a log of which a part is missing would bring back what was deleted.
//
// When the log is full, or much of it has been replaced, the records that count are written to the other half, and the header of
// that half last. Its epoch is one higher, which puts it into use; the memory of the old half is then given back. A change
// therefore costs what it is long, however much else is kept, and twice that in the long run.
//
// The file's size is sealed, so that no other holder of a descriptor can take memory away. Its content is copied before it is
// examined. Numbers are those of the machine: another one never sees them.
#include "kelo/supervisor/kept_state.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string_view>
#include <utility>

#include "supervisor/environment.h"
#include "tracing/channel.h"
#include "util/text.h"

namespace kelo::supervisor {
namespace {

const tracing::Channel channel{"KELO_RUNTIME"};

constexpr int seals = F_SEAL_SHRINK | F_SEAL_GROW;
constexpr std::uint64_t page = 4096;
constexpr std::uint64_t largestFile = std::uint64_t{1} << 32U;
constexpr std::uint64_t leastWaste = std::uint64_t{64} << 10U;

struct HalfHead {
    std::array<char, 8> magic;
    std::uint32_t format;
    std::uint32_t version;
    std::uint64_t epoch;
    std::uint64_t used;
    std::uint64_t check;
};
constexpr std::array<char, 8> magic{'k', 'e', 'l', 'o', 'k', 'e', 'p', 't'};
constexpr std::uint32_t format = 1;
constexpr std::uint64_t logBegin = 64;
static_assert(sizeof(HalfHead) <= logBegin);

struct RecordHead {
    std::uint32_t kind;
    std::uint32_t size;
    std::array<std::uint8_t, std::UUID::byteCount> id;
    std::uint64_t check;
};

// Detects damage, not malice. Eight bytes at a time.
class Checksum {
public:
    Checksum& add(std::uint64_t word) noexcept {
        constexpr std::uint64_t prime = 0x9E3779B97F4A7C15U;
        sum_ = std::rotl((sum_ ^ word) * prime, 29);
        return *this;
    }
    Checksum& add(std::span<const std::uint8_t> bytes) noexcept {
        add(bytes.size());
        for (; !bytes.empty(); bytes = bytes.subspan(std::min(bytes.size(), sizeof(std::uint64_t)))) {
            std::uint64_t word = 0;
            std::memcpy(&word, bytes.data(), std::min(bytes.size(), sizeof word));
            add(word);
        }
        return *this;
    }
    std::uint64_t value() const noexcept { return sum_ ^ (sum_ >> 32U); }

private:
    std::uint64_t sum_ = 0x6B656C6F6B657074U;
};

template <class T>
std::span<std::uint8_t> bytesOf(T& value) noexcept {
    return {reinterpret_cast<std::uint8_t*>(&value), sizeof value};
}
template <class T>
std::span<const std::uint8_t> bytesOf(const T& value) noexcept {
    return {reinterpret_cast<const std::uint8_t*>(&value), sizeof value};
}

std::uint64_t checkOf(const HalfHead& head) noexcept {
    return Checksum{}.add(bytesOf(head).first(offsetof(HalfHead, check))).value();
}
std::uint64_t checkOf(const RecordHead& head, std::uint64_t epoch, std::uint64_t at,
                      std::span<const std::uint8_t> bytes) noexcept {
    return Checksum{}.add(epoch).add(at).add(bytesOf(head).first(offsetof(RecordHead, check))).add(bytes).value();
}

std::uint64_t framed(std::size_t size) noexcept {
    return sizeof(RecordHead) + size;
}

// The descriptors that the supervisor has passed under this name; they belong to the caller.
std::vector<int> received(std::string_view name) {
    constexpr int first = 3;
    std::vector<int> found;
    const char* const names = std::getenv("LISTEN_FDNAMES");
    if (environmentNumber("LISTEN_PID") != ::getpid() || names == nullptr) return found;
    const auto count = static_cast<int>(std::min<std::int64_t>(environmentNumber("LISTEN_FDS"), 1024));
    std::string_view rest = names;
    for (int i = 0; i < count; ++i) {
        const int descriptor = first + i;
        const std::string_view its = rest.substr(0, rest.find(':'));
        rest.remove_prefix(std::min(its.size() + 1, rest.size()));
        if (::fcntl(descriptor, F_SETFD, FD_CLOEXEC) == 0 && its == name) found.push_back(descriptor);
    }
    return found;
}

std::string systemError(const char* what) {
    return std::string{what} + ": " + std::strerror(errno);
}

}  // namespace

std::unique_ptr<KeptState> KeptState::open(const Notifier& notifier, const Form& form) {
    if (!notifier.isWanted()) return nullptr;
    std::string why;
    bool isDropped = false;
    for (const int descriptor : received(form.name)) {
        if (auto state = adopt(descriptor, form, why)) {
            tracing::logCV(channel, 2, "%zu records are taken over from \"%s\"", state->places_.size(), form.name.c_str());
            return state;
        }
        tracing::logCV(channel, 4, "what the supervisor has kept as \"%s\" is dropped: %s", form.name.c_str(), why.c_str());
        isDropped = true;
    }
    if (isDropped) (void)notifier.insist("FDSTOREREMOVE=1\nFDNAME=" + form.name);
    auto fresh = create(form, why);
    if (fresh != nullptr && !notifier.insist("FDSTORE=1\nFDNAME=" + form.name, fresh->descriptor())) {
        why = systemError("cannot give it to the supervisor");
        fresh.reset();
    }
    if (fresh == nullptr) tracing::logCV(channel, 4, "\"%s\" will not outlive the process: %s", form.name.c_str(), why.c_str());
    return fresh;
}

std::unique_ptr<KeptState> KeptState::create(const Form& form, std::string& why) {
    // Room for twice what may count, so that it must be tidied only after as much has been appended.
    const std::uint64_t half = (logBegin + 2 * std::uint64_t{form.bytes} + page - 1) / page * page;
    const int file = ::memfd_create(form.name.c_str(), MFD_CLOEXEC | MFD_ALLOW_SEALING);
    std::unique_ptr<KeptState> state;
    if (file < 0 || ::ftruncate(file, static_cast<off_t>(2 * half)) != 0 ||
        ::fcntl(file, F_ADD_SEALS, seals | F_SEAL_SEAL) != 0) {
        why = systemError("cannot make a memory file");
        if (file >= 0) ::close(file);
        return nullptr;
    }
    state.reset(new KeptState{file, form, half});
    if (!state->writeHeader(state->epoch_, logBegin)) {
        why = systemError("cannot write to a memory file");
        return nullptr;
    }
    return state;
}

std::unique_ptr<KeptState> KeptState::adopt(int descriptor, const Form& form, std::string& why) {
    struct stat status {};
    const int has = ::fcntl(descriptor, F_GET_SEALS);
    const bool isSealed = has >= 0 && (has & seals) == seals && ::fstat(descriptor, &status) == 0;
    const auto size = static_cast<std::uint64_t>(status.st_size);
    if (!isSealed || size % (2 * page) != 0 || size == 0 || size > largestFile) {
        why = isSealed ? "it has an impossible size" : "it is not a memory file of fixed size";
        ::close(descriptor);
        return nullptr;
    }
    std::unique_ptr<KeptState> state{new KeptState{descriptor, form, size / 2}};
    if (!state->takeOver(why)) return nullptr;
    return state;
}

KeptState::KeptState(int file, const Form& form, std::uint64_t half)
    : file_{file}, version_{form.version}, half_{half}, most_{std::min<std::uint64_t>(form.bytes, (half - logBegin) / 2)} {}

KeptState::~KeptState() {
    ::close(file_);
}

void KeptState::visit(const std::function<void(const std::UUID&, std::span<const std::uint8_t>)>& visit) const {
    std::vector<std::uint8_t> bytes;
    for (const auto& [id, place] : inOrder()) {
        bytes.resize(place.size);
        if (readAt(begin() + place.at, bytes)) visit(id, bytes);
    }
}

bool KeptState::put(const std::UUID& id, std::span<const std::uint8_t> bytes) {
    const auto old = places_.find(id);
    const std::uint64_t replaced = old == places_.end() ? 0 : framed(old->second.size);
    errno = ENOSPC;
    return live_ - replaced + framed(bytes.size()) <= most_ && append(Kind::put, id, bytes);
}

bool KeptState::erase(const std::UUID& id) {
    errno = ENOSPC;
    return !places_.contains(id) || append(Kind::erase, id, {});
}

bool KeptState::isWasteful() const noexcept {
    return used_ - logBegin - live_ > std::max(leastWaste, live_);
}

void KeptState::tidy() {
    const std::uint64_t old = begin();
    const std::uint64_t epoch = epoch_ + 1;
    const std::uint64_t other = half_ - old;
    std::uint64_t at = logBegin;
    std::vector<Placed> moved = inOrder();
    std::vector<std::uint8_t> bytes;
    for (auto& [id, place] : moved) {
        bytes.resize(place.size);
        if (!readAt(old + place.at, bytes) || !writeRecord(other, epoch, at, Kind::put, id, bytes)) return;
        place.at = at + sizeof(RecordHead);
        at += framed(place.size);
    }
    if (!writeHeader(epoch, at)) return;
    for (const auto& [id, place] : moved) places_[id].at = place.at;
    release(old);
}

// Makes room by tidying if there is none.
bool KeptState::append(Kind kind, const std::UUID& id, std::span<const std::uint8_t> bytes) {
    const std::uint64_t size = framed(bytes.size());
    if (size > half_ - used_) tidy();
    const std::uint64_t at = used_;
    if (size > half_ - at || !writeRecord(begin(), epoch_, at, kind, id, bytes) || !writeHeader(epoch_, at + size)) return false;
    apply(kind, id, at + sizeof(RecordHead), bytes.size());
    return true;
}

void KeptState::apply(Kind kind, const std::UUID& id, std::uint64_t at, std::size_t size) {
    const auto old = places_.find(id);
    if (old != places_.end()) live_ -= framed(old->second.size);
    if (kind == Kind::erase) {
        if (old != places_.end()) places_.erase(old);
        return;
    }
    live_ += framed(size);
    if (old != places_.end()) {
        old->second.at = at;
        old->second.size = size;
    } else {
        places_.emplace(id, Place{nextOrder_++, at, size});
    }
}

std::vector<KeptState::Placed> KeptState::inOrder() const {
    std::vector<Placed> all{places_.begin(), places_.end()};
    std::sort(all.begin(), all.end(), [](const Placed& a, const Placed& b) { return a.second.order < b.second.order; });
    return all;
}

// Reads the half that is in use. False if it is not what was written, with the reason.
bool KeptState::takeOver(std::string& why) {
    std::optional<HalfHead> newest;
    for (std::uint64_t i = 0; i < 2; ++i) {
        HalfHead head{};
        const bool isHead = readAt(i * half_, bytesOf(head)) && head.magic == magic && head.format == format &&
                            head.check == checkOf(head) && head.epoch % 2 == i && head.used >= logBegin && head.used <= half_;
        if (isHead && (!newest || head.epoch > newest->epoch)) newest = head;
    }
    if (!newest || newest->version != version_) {
        why = newest ? "it is of version " + std::to_string(newest->version) + ", not " + std::to_string(version_)
                     : "it has no valid header";
        return false;
    }
    epoch_ = newest->epoch;
    used_ = newest->used;
    std::vector<std::uint8_t> half(newest->used);
    if (!readAt(begin(), half) || !replay(half)) {
        why = "a record is damaged";
        return false;
    }
    release(half_ - begin());  // of a tidying that was not completed, or of which the end was missing
    return true;
}

bool KeptState::replay(std::span<const std::uint8_t> half) {
    for (std::uint64_t at = logBegin; at < half.size();) {
        RecordHead head{};
        if (half.size() - at < sizeof head) return false;
        std::memcpy(&head, half.data() + at, sizeof head);
        const auto rest = half.subspan(at + sizeof head);
        if (head.size > rest.size()) return false;
        const auto kind = static_cast<Kind>(head.kind);
        if ((kind != Kind::put && kind != Kind::erase) || head.check != checkOf(head, epoch_, at, rest.first(head.size)))
            return false;
        apply(kind, std::UUID{head.id}, at + sizeof head, head.size);
        at += framed(head.size);
    }
    return live_ <= most_;
}

bool KeptState::writeRecord(std::uint64_t half, std::uint64_t epoch, std::uint64_t at, Kind kind, const std::UUID& id,
                            std::span<const std::uint8_t> bytes) {
    RecordHead head{static_cast<std::uint32_t>(kind), static_cast<std::uint32_t>(bytes.size()), id.bytes(), 0};
    head.check = checkOf(head, epoch, at, bytes);
    record_.clear();
    record_.write(bytesOf(head));
    record_.write(bytes);
    return writeAt(half + at, record_.bytes());
}

// Puts the log into use as it is up to `used`.
bool KeptState::writeHeader(std::uint64_t epoch, std::uint64_t used) {
    HalfHead head{magic, format, version_, epoch, used, 0};
    head.check = checkOf(head);
    if (!writeAt((epoch % 2) * half_, bytesOf(head))) return false;
    epoch_ = epoch;
    used_ = used;
    return true;
}

bool KeptState::writeAt(std::uint64_t at, std::span<const std::uint8_t> bytes) const {
    while (!bytes.empty()) {
        const auto written = ::pwrite(file_, bytes.data(), bytes.size(), static_cast<off_t>(at));
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) return false;
        at += static_cast<std::uint64_t>(written);
        bytes = bytes.subspan(static_cast<std::size_t>(written));
    }
    return true;
}

bool KeptState::readAt(std::uint64_t at, std::span<std::uint8_t> bytes) const {
    while (!bytes.empty()) {
        const auto size = ::pread(file_, bytes.data(), bytes.size(), static_cast<off_t>(at));
        if (size < 0 && errno == EINTR) continue;
        if (size <= 0) return false;
        at += static_cast<std::uint64_t>(size);
        bytes = bytes.subspan(static_cast<std::size_t>(size));
    }
    return true;
}

// Gives back the memory of a half that is not in use.
void KeptState::release(std::uint64_t half) const {
    (void)::fallocate(file_, FALLOC_FL_PUNCH_HOLE | FALLOC_FL_KEEP_SIZE, static_cast<off_t>(half), static_cast<off_t>(half_));
}

}  // namespace kelo::supervisor
