// A recording knows one moment by two clocks: its origin, by the steady clock that the times of entries count from and by the
// clock on the wall. The clock on the wall may have been set since, and may have jumped with the season; times of day are
// reckoned from the origin all the same, with the distance from UTC that held there.

#include "hmx/recording/times.h"

#include <unistd.h>

#include <array>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <optional>

namespace hmx::recording {
namespace {

using client::Error;
using std::chrono::nanoseconds;
using std::chrono::seconds;

constexpr nanoseconds day = std::chrono::hours{24};

// Takes texts apart from the left. Thread: one at a time.
class Scanner {
public:
    explicit Scanner(std::string_view text) : text_{text} {}

    bool take(char c) {
        if (text_.empty() || text_.front() != c) return false;
        text_.remove_prefix(1);
        return true;
    }
    // Exactly that many digits.
    bool digits(std::size_t count, int& number) {
        if (text_.size() < count) return false;
        const auto end = std::from_chars(text_.data(), text_.data() + count, number);
        if (end.ec != std::errc{} || end.ptr != text_.data() + count || number < 0) return false;
        text_.remove_prefix(count);
        return true;
    }
    // "12:34:56.789", of which the fraction may be missing.
    bool timeOfDay(nanoseconds& time) {
        int hour = 0;
        int minute = 0;
        int second = 0;
        if (!digits(2, hour) || !take(':') || !digits(2, minute) || !take(':') || !digits(2, second)) return false;
        if (hour > 23 || minute > 59 || second > 60) return false;
        time = std::chrono::hours{hour} + std::chrono::minutes{minute} + seconds{second};
        if (!take('.')) return true;
        const std::string_view begin = text_;
        nanoseconds unit{100'000'000};
        for (int digit = 0; digits(1, digit); unit /= 10) time += unit * digit;
        return text_.size() < begin.size();
    }
    // "Z", "+01:00"; nothing for no zone.
    bool zone(std::optional<nanoseconds>& fromUtc) {
        if (text_.empty()) return true;
        int hours = 0;
        int minutes = 0;
        if (take('Z')) {
            fromUtc = nanoseconds{0};
            return true;
        }
        const bool west = take('-');
        if (!west && !take('+')) return false;
        if (!digits(2, hours) || (take(':'), !digits(2, minutes))) return false;
        fromUtc = (std::chrono::hours{hours} + std::chrono::minutes{minutes}) * (west ? -1 : 1);
        return true;
    }
    bool isOver() const noexcept { return text_.empty(); }

private:
    std::string_view text_;
};

// A clock on a wall.
struct WallTime {
    nanoseconds local{0};  // since the start of 1970, as the clock shows it
    std::optional<nanoseconds> fromUtc;
};

std::optional<WallTime> readWallTime(std::string_view text) {
    Scanner scanner{text};
    int year = 0;
    int month = 0;
    int dayOfMonth = 0;
    nanoseconds time{0};
    WallTime wall;
    if (!scanner.digits(4, year) || !scanner.take('-') || !scanner.digits(2, month) || !scanner.take('-') ||
        !scanner.digits(2, dayOfMonth) || !(scanner.take('T') || scanner.take(' ')) || !scanner.timeOfDay(time) ||
        !scanner.zone(wall.fromUtc) || !scanner.isOver()) {
        return {};
    }
    const std::chrono::year_month_day date{std::chrono::year{year}, std::chrono::month{static_cast<unsigned>(month)},
                                           std::chrono::day{static_cast<unsigned>(dayOfMonth)}};
    if (!date.ok() || year < 1970 || year > 2200) return {};
    wall.local = std::chrono::sys_days{date}.time_since_epoch() + time;
    return wall;
}

// "12.5s" as what it says, also below zero.
std::optional<nanoseconds> readDuration(std::string_view text) {
    double amount = 0;
    const auto end = std::from_chars(text.data(), text.data() + text.size(), amount);
    const std::string_view unit = text.substr(static_cast<std::size_t>(end.ptr - text.data()));
    const double perUnit = unit == "ns"                   ? 1
                           : unit == "us"                 ? 1e3
                           : unit == "ms"                 ? 1e6
                           : unit.empty() || unit == "s"  ? 1e9
                           : unit == "m" || unit == "min" ? 6e10
                           : unit == "h"                  ? 3.6e12
                                                          : 0;
    if (end.ec != std::errc{} || perUnit == 0 || !(std::abs(amount * perUnit) < 9e18)) return {};
    return nanoseconds{std::llround(amount * perUnit)};
}

Error badTime(std::string_view text, const std::string& why) {
    return Error{Error::Kind::invalid, '\'' + std::string{text} + "' is no time of the recording: " + why,
                 "for example 12.5s (from the start), -3s (before the end), 12:34:56.789 or 2026-11-22T12:34:56"};
}

// "Europe/Berlin", where the system has a name for it.
std::string zoneName() {
    const char* chosen = std::getenv("TZ");
    if (chosen != nullptr && *chosen != '\0') return chosen[0] == ':' ? chosen + 1 : chosen;
    std::array<char, 256> link{};
    const ssize_t length = ::readlink("/etc/localtime", link.data(), link.size());
    const std::string_view path{link.data(), static_cast<std::size_t>(length < 0 ? 0 : length)};
    const std::size_t at = path.find("zoneinfo/");
    return at == std::string_view::npos ? "" : std::string{path.substr(at + 9)};
}

nanoseconds steadyNow() {
    return std::chrono::steady_clock::now().time_since_epoch();
}

}  // namespace

Head headNow() {
    timespec now{};
    ::clock_gettime(CLOCK_REALTIME, &now);
    Head head;
    head.origin = steadyNow().count();
    std::tm local{};
    ::localtime_r(&now.tv_sec, &local);
    std::array<char, 64> date{};
    const std::size_t length = std::strftime(date.data(), date.size(), "%Y-%m-%dT%H:%M:%S", &local);
    const long minutes = std::abs(local.tm_gmtoff) / 60;
    std::array<char, 32> rest{};
    std::snprintf(rest.data(), rest.size(), ".%09ld%c%02ld:%02ld", now.tv_nsec, local.tm_gmtoff < 0 ? '-' : '+', minutes / 60,
                  minutes % 60);
    head.wall = std::string{date.data(), length} + rest.data();
    head.zone = zoneName();
    return head;
}

nanoseconds timeNow(const Head& head) {
    return steadyNow() - nanoseconds{head.origin};
}

nanoseconds parseTime(std::string_view text, const Head& head, const std::function<nanoseconds()>& end) {
    const auto checked = [&](nanoseconds at) {
        if (at < nanoseconds{0}) throw badTime(text, "it is before the start");
        return at;
    };
    if (const std::optional<nanoseconds> duration = readDuration(text)) {
        return checked(text.starts_with('-') ? end() + *duration : *duration);
    }
    const std::optional<WallTime> origin = readWallTime(head.wall);
    Scanner scanner{text};
    nanoseconds time{0};
    if (scanner.timeOfDay(time) && scanner.isOver()) {
        if (!origin) throw badTime(text, "its head does not say when it was made");
        const nanoseconds since = time - origin->local % day;
        return since < nanoseconds{0} ? since + day : since;
    }
    const std::optional<WallTime> wall = readWallTime(text);
    if (!wall) throw badTime(text, "it cannot be read");
    if (!origin) throw badTime(text, "its head does not say when it was made");
    const nanoseconds originZone = origin->fromUtc.value_or(nanoseconds{0});
    return checked((wall->local - wall->fromUtc.value_or(originZone)) - (origin->local - originZone));
}

std::string wallTime(nanoseconds at, const Head& head) {
    const std::optional<WallTime> origin = readWallTime(head.wall);
    if (!origin) return {};
    const auto milliseconds = std::chrono::floor<std::chrono::milliseconds>((origin->local + at) % day).count();
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "%02lld:%02lld:%02lld.%03lld", static_cast<long long>(milliseconds / 3'600'000),
                  static_cast<long long>(milliseconds / 60'000 % 60), static_cast<long long>(milliseconds / 1000 % 60),
                  static_cast<long long>(milliseconds % 1000));
    return text.data();
}

}  // namespace hmx::recording
