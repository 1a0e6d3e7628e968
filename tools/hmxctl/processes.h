// What the kernel tells of the processes of this machine: for finding out what is wrong.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "failure.h"
#include "hmx/client/document.h"

namespace hmxctl {

// The variables that decide where services meet.
[[nodiscard]] Json meetingEnvironment();

// The processes of these program names that may be looked at. Thread: any, as all here.
[[nodiscard]] std::vector<pid_t> processesNamed(const std::vector<std::string_view>& programs);

// A process, as far as it may be looked at; null if it does not exist: "program", "pid", "state" (as in proc(5)), "environment"
// (see meetingEnvironment), "replaced" (its program file), "descriptors" and "mostDescriptors", "directories" that it has open,
// "locks": the files of that kind that it has open, "here": whether one of the directories is `directory`.
[[nodiscard]] Json processFacts(pid_t process, const std::string& directory);

// The memory that a process of this machine holds, in kB; nothing if it may not be looked at.
[[nodiscard]] std::optional<std::uint64_t> residentKilobytes(pid_t process);

// The inotify instances and watches of this user, and the limits: "instances", "mostInstances", "watches", "mostWatches"; "error"
// if the directory cannot be watched.
[[nodiscard]] Json inotifyFacts(const std::string& directory);

// The last lines that a process has logged, and where they are from: {"source", "lines"}. Without lines if they cannot be had.
[[nodiscard]] Json lastLogLines(pid_t process, std::size_t count);

// The pid in what a lock file says, "pid 12 (program)"; nothing if it says none.
[[nodiscard]] std::optional<pid_t> holderIn(std::string_view lock);

// A small file's text; "" if it cannot be read.
[[nodiscard]] std::string readText(const std::string& file);

}  // namespace hmxctl
