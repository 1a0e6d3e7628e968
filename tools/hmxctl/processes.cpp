#include "processes.h"

#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <sstream>

namespace hmxctl {
namespace {

namespace fs = std::filesystem;

constexpr std::array<std::string_view, 5> meetingVariables{"KELO_RUNTIME_DIR", "KELO_DOMAIN", "XDG_RUNTIME_DIR", "TMPDIR",
                                                           "KELO_TRACE"};

std::string folderOf(pid_t process) {
    return "/proc/" + std::to_string(process);
}

std::optional<pid_t> numberIn(std::string_view text) {
    pid_t number = 0;
    const auto end = std::from_chars(text.data(), text.data() + text.size(), number);
    if (end.ec != std::errc{} || end.ptr == text.data()) return {};
    return number;
}

std::string linkOf(const fs::path& file) {
    std::error_code ignored;
    return fs::read_symlink(file, ignored).string();
}

constexpr std::string_view deletedMark = " (deleted)";

// The name of its file, or, if that may not be seen, the one that it has given itself.
std::string programOf(pid_t process) {
    std::string name = linkOf(folderOf(process) + "/exe");
    if (name.ends_with(deletedMark)) name.resize(name.size() - deletedMark.size());
    if (!name.empty()) return fs::path{name}.filename().string();
    name = readText(folderOf(process) + "/comm");
    while (!name.empty() && name.back() == '\n') name.pop_back();
    return name;
}

// Calls `visit(path)` for what is in the folder, as far as it may be read.
template <class F>
void visitFolder(const std::string& folder, F visit) {
    std::error_code failed;
    for (fs::directory_iterator each{folder, failed}; !failed && each != fs::directory_iterator{}; each.increment(failed)) {
        visit(each->path());
    }
}

// The pids of all processes.
std::vector<pid_t> allProcesses() {
    std::vector<pid_t> found;
    visitFolder("/proc", [&](const fs::path& path) {
        if (const std::optional<pid_t> process = numberIn(path.filename().string())) found.push_back(*process);
    });
    std::sort(found.begin(), found.end());
    return found;
}

Json environmentOf(pid_t process) {
    Json found = Json::object();
    std::istringstream text{readText(folderOf(process) + "/environ")};
    for (std::string entry; std::getline(text, entry, '\0');) {
        const std::string name = entry.substr(0, entry.find('='));
        if (std::find(meetingVariables.begin(), meetingVariables.end(), name) == meetingVariables.end()) continue;
        found[name] = entry.substr(std::min(entry.size(), name.size() + 1));
    }
    return found;
}

// The character after the name in brackets, which may hold anything.
std::string stateOf(pid_t process) {
    const std::string stat = readText(folderOf(process) + "/stat");
    const std::size_t close = stat.rfind(')');
    return close == std::string::npos || close + 2 >= stat.size() ? "" : stat.substr(close + 2, 1);
}

// The number after a title, of the lines that a process's file has; nothing without such a line.
std::optional<std::uint64_t> numberAfter(std::string_view title, pid_t process, const std::string& file) {
    std::istringstream text{readText(folderOf(process) + file)};
    for (std::string line; std::getline(text, line);) {
        if (line.starts_with(title)) return std::strtoull(line.c_str() + title.size(), nullptr, 10);
    }
    return {};
}

std::uint64_t settingOf(const std::string& name) {
    return std::strtoull(readText("/proc/sys/fs/inotify/" + name).c_str(), nullptr, 10);
}

// Whether one more directory can be watched; else why not.
std::string watchingFault(const std::string& directory) {
    const int instance = ::inotify_init1(IN_CLOEXEC);
    if (instance < 0) return std::strerror(errno);
    const bool failed = ::inotify_add_watch(instance, directory.c_str(), IN_CREATE) < 0 && errno != ENOENT && errno != EACCES;
    const std::string fault = failed ? std::strerror(errno) : "";
    ::close(instance);
    return fault;
}

std::vector<std::string> lastLines(std::istream& text, std::size_t count) {
    std::vector<std::string> lines;
    for (std::string line; std::getline(text, line);) {
        lines.push_back(line);
        if (lines.size() > 2 * count) lines.erase(lines.begin(), lines.end() - static_cast<std::ptrdiff_t>(count));
    }
    if (lines.size() > count) lines.erase(lines.begin(), lines.end() - static_cast<std::ptrdiff_t>(count));
    return lines;
}

// What a command prints.
std::string outputOf(const std::string& command) {
    const std::unique_ptr<FILE, int (*)(FILE*)> pipe{::popen(command.c_str(), "re"), ::pclose};
    std::string output;
    std::array<char, 4096> piece{};
    for (std::size_t size = 0; pipe && (size = std::fread(piece.data(), 1, piece.size(), pipe.get())) > 0;) {
        output.append(piece.data(), size);
    }
    return output;
}

}  // namespace

std::string readText(const std::string& file) {
    std::ifstream stream{file, std::ios::binary};
    return {std::istreambuf_iterator<char>{stream}, {}};
}

Json meetingEnvironment() {
    return environmentOf(::getpid());
}

std::vector<pid_t> processesNamed(const std::vector<std::string_view>& programs) {
    std::vector<pid_t> found = allProcesses();
    std::erase_if(
        found, [&](pid_t process) { return std::find(programs.begin(), programs.end(), programOf(process)) == programs.end(); });
    return found;
}

Json processFacts(pid_t process, const std::string& directory) {
    const std::string program = programOf(process);
    if (program.empty()) return nullptr;
    struct stat wanted {};
    const bool isThere = ::stat(directory.c_str(), &wanted) == 0;
    std::uint64_t descriptors = 0;
    bool here = false;
    Json directories = Json::array();
    Json locks = Json::array();
    visitFolder(folderOf(process) + "/fd", [&](const fs::path& path) {
        ++descriptors;
        const std::string link = linkOf(path);
        struct stat status {};
        if (link.ends_with(".sock.lock")) locks.push_back(link);
        if (::stat(path.c_str(), &status) != 0 || !S_ISDIR(status.st_mode)) return;
        directories.push_back(link);
        here = here || (isThere && status.st_dev == wanted.st_dev && status.st_ino == wanted.st_ino);
    });
    return Json{{"program", program},
                {"pid", process},
                {"state", stateOf(process)},
                {"environment", environmentOf(process)},
                {"replaced", linkOf(folderOf(process) + "/exe").ends_with(deletedMark)},
                {"descriptors", descriptors},
                {"mostDescriptors", numberAfter("Max open files", process, "/limits").value_or(0)},
                {"directories", directories},
                {"locks", locks},
                {"here", here}};
}

std::optional<std::uint64_t> residentKilobytes(pid_t process) {
    return numberAfter("VmRSS:", process, "/status");
}

Json inotifyFacts(const std::string& directory) {
    std::uint64_t instances = 0;
    std::uint64_t watches = 0;
    for (const pid_t process : allProcesses()) {
        struct stat status {};
        if (::stat(folderOf(process).c_str(), &status) != 0 || status.st_uid != ::geteuid()) continue;
        visitFolder(folderOf(process) + "/fd", [&](const fs::path& path) {
            if (linkOf(path) != "anon_inode:inotify") return;
            ++instances;
            std::istringstream info{readText(folderOf(process) + "/fdinfo/" + path.filename().string())};
            for (std::string line; std::getline(info, line);) watches += line.starts_with("inotify ") ? 1U : 0U;
        });
    }
    return Json{{"instances", instances},
                {"mostInstances", settingOf("max_user_instances")},
                {"watches", watches},
                {"mostWatches", settingOf("max_user_watches")},
                {"error", watchingFault(directory)}};
}

Json lastLogLines(pid_t process, std::size_t count) {
    const std::string place = linkOf(folderOf(process) + "/fd/2");
    std::error_code ignored;
    if (fs::is_regular_file(place, ignored)) {
        std::ifstream file{place};
        return Json{{"source", place}, {"lines", lastLines(file, count)}};
    }
    if (!place.starts_with("socket:")) return Json{{"source", place}};
    // A service of systemd writes to the journal.
    const std::string command = "journalctl --no-pager --quiet --output=short-iso _PID=" + std::to_string(process) +
                                " --lines=" + std::to_string(count) + " 2>/dev/null";
    std::istringstream journal{outputOf(command)};
    const std::vector<std::string> lines = lastLines(journal, count);
    return lines.empty() ? Json{{"source", place}} : Json{{"source", "journal"}, {"lines", lines}};
}

std::optional<pid_t> holderIn(std::string_view lock) {
    constexpr std::string_view before = "pid ";
    return lock.starts_with(before) ? numberIn(lock.substr(before.size())) : std::nullopt;
}

}  // namespace hmxctl
