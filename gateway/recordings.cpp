// Names never lead out of the directory: only the entries of the directory itself are opened, relative to the descriptor that was
// opened at the start, without following links, and only regular files with a recording's ending are read. Nothing is ever
// written.
//
// A file is sent in blocks while others are served in between. The client gets the bytes that the file had when it was asked for;
// if it is cut meanwhile, the connection ends early.

#include "recordings.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <stdexcept>
#include <vector>

#include "event_hub.h"
#include "gateway_limits.h"
#include "json_text.h"
#include "target.h"

namespace hmxgateway {
namespace {

constexpr std::string_view ending{".jsonl"};

// Whether a file of this name may be a recording, and can be asked for.
bool isRecordingName(const std::string& entry) {
    if (entry.size() <= ending.size() || entry.front() == '.' || !entry.ends_with(ending)) return false;
    const std::optional<Target> target = parseTarget("/" + encodedPart(entry));
    return target && target->parts.size() == 1 && target->parts.front() == entry && entry.find('/') == std::string::npos;
}

std::chrono::system_clock::time_point modifiedAt(const struct stat& status) {
    const auto since = std::chrono::seconds{status.st_mtim.tv_sec} + std::chrono::nanoseconds{status.st_mtim.tv_nsec};
    return std::chrono::system_clock::time_point{std::chrono::duration_cast<std::chrono::system_clock::duration>(since)};
}

struct Listed {
    std::string name;
    struct stat status {};
};

bool isNewer(const Listed& a, const Listed& b) {
    const auto [at, bt] = std::pair{modifiedAt(a.status), modifiedAt(b.status)};
    return at == bt ? a.name < b.name : at > bt;
}

// A part of a file. Thread: the gateway's.
class FileStream final : public IStream {
public:
    FileStream(Descriptor file, std::uint64_t offset, std::uint64_t length, std::size_t& sending)
        : file_{std::move(file)}, offset_{offset}, left_{length}, sending_{sending} {
        ++sending_;
    }
    ~FileStream() override { --sending_; }
    FileStream(const FileStream&) = delete;
    FileStream& operator=(const FileStream&) = delete;

    std::size_t read(char* out, std::size_t room) override {
        const auto wanted = static_cast<std::size_t>(std::min<std::uint64_t>(room, left_));
        ssize_t got = 0;
        do {
            got = ::pread(file_.get(), out, wanted, static_cast<off_t>(offset_));
        } while (got < 0 && errno == EINTR);
        if (got <= 0) {
            left_ = 0;
            return 0;
        }
        offset_ += static_cast<std::uint64_t>(got);
        left_ -= static_cast<std::uint64_t>(got);
        return static_cast<std::size_t>(got);
    }
    bool isOver() const override { return left_ == 0; }

private:
    Descriptor file_;
    std::uint64_t offset_;
    std::uint64_t left_;
    std::size_t& sending_;
};

}  // namespace

Recordings::Recordings(const std::string& directory) : directory_{::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)} {
    if (!directory_) throw std::runtime_error{"cannot read the recordings: " + directory + ": " + std::strerror(errno)};
}

std::string Recordings::list() const {
    std::vector<Listed> found;
    bool more = false;
    // A descriptor of its own: reading a directory moves on in it.
    const int again = ::openat(directory_.get(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (const std::unique_ptr<DIR, int (*)(DIR*)> entries{again < 0 ? nullptr : ::fdopendir(again), ::closedir}) {
        std::uint32_t seen = 0;
        while (const dirent* entry = ::readdir(entries.get())) {
            if (++seen > limits.recordingEntries) {
                more = true;
                break;
            }
            Listed listed{entry->d_name};
            if (!isRecordingName(listed.name)) continue;
            if (::fstatat(directory_.get(), entry->d_name, &listed.status, AT_SYMLINK_NOFOLLOW) != 0) continue;
            if (S_ISREG(listed.status.st_mode)) found.push_back(std::move(listed));
        }
    }
    std::sort(found.begin(), found.end(), isNewer);
    if (found.size() > limits.recordings) {
        found.resize(limits.recordings);
        more = true;
    }
    std::vector<std::string> recordings;
    recordings.reserve(found.size());
    for (const auto& [file, status] : found) {
        recordings.push_back(json::object({{"name", json::text(file)},
                                           {"size", std::to_string(status.st_size)},
                                           {"modified", json::text(timestamp(modifiedAt(status)))}}));
    }
    return json::object({{"recordings", json::array(recordings)}, {"more", more ? "true" : "false"}});
}

std::optional<RecordingFile> Recordings::open(const std::string& wanted) const {
    if (!isRecordingName(wanted)) return {};
    constexpr int flags = O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;
    Descriptor file{::openat(directory_.get(), wanted.c_str(), flags)};
    struct stat status {};
    if (!file || ::fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode)) return {};
    char tag[80];
    std::snprintf(tag, sizeof tag, "\"%jx-%jx-%jx\"", static_cast<std::uintmax_t>(status.st_ino),
                  static_cast<std::uintmax_t>(status.st_size),
                  static_cast<std::uintmax_t>(modifiedAt(status).time_since_epoch().count()));
    return RecordingFile{std::move(file), static_cast<std::uint64_t>(status.st_size), tag};
}

std::unique_ptr<IStream> Recordings::send(RecordingFile recording, std::uint64_t offset, std::uint64_t length) {
    if (sending_ >= limits.sentRecordings) return nullptr;
    return std::make_unique<FileStream>(std::move(recording.file), offset, length, sending_);
}

std::optional<ByteRange> rangeIn(std::string_view header, std::uint64_t size) {
    constexpr std::string_view unit{"bytes="};
    const ByteRange all{0, size};
    if (!header.starts_with(unit)) return all;
    header.remove_prefix(unit.size());
    const auto number = [&](std::optional<std::uint64_t>& value) {
        std::uint64_t read = 0;
        const auto [end, error] = std::from_chars(header.data(), header.data() + header.size(), read);
        if (error == std::errc::result_out_of_range) return false;
        if (end != header.data()) value = read;
        header.remove_prefix(static_cast<std::size_t>(end - header.data()));
        return true;
    };
    std::optional<std::uint64_t> first;
    std::optional<std::uint64_t> last;
    if (!number(first) || !header.starts_with('-')) return all;
    header.remove_prefix(1);
    if (!number(last) || !header.empty() || (!first && !last) || (first && last && *last < *first)) return all;
    if (!first) {
        const std::uint64_t length = std::min(*last, size);
        return length == 0 ? std::nullopt : std::optional{ByteRange{size - length, length}};
    }
    if (*first >= size) return {};
    return ByteRange{*first, std::min(last.value_or(size - 1), size - 1) - *first + 1};
}

}  // namespace hmxgateway
