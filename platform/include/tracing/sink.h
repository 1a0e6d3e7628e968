// The interface of trace sinks: loadable modules that get a process's log lines in place of standard error.
#pragma once

#include <cstdint>

// C, so that a module need not be built with the program's compiler or C++ library. A module is libkelo-trace-NAME.so; it exports
// `keloTraceSink` and nothing else. docs/operating.md tells where modules are looked for.
extern "C" {

// Counts the changes of what follows. A program refuses a module of another version.
inline constexpr std::uint32_t keloTraceSinkVersion = 1;

// What the program offers its sink, for as long as the process exists. Thread: any, but not from inside a call of the sink.
struct KeloTraceHost {
    const char* application;    // the name of the program in the log
    const char* applicationId;  // its short form, made like the ids of channels
    // Lines below the threshold are not logged; levels as in `tracing::Channel`. False if there is no such channel.
    bool (*setThreshold)(const char* channel, int threshold);
    // Has the state of the process logged, soon after the call.
    void (*dumpStatus)();
};

// All texts are UTF-8, end with a zero byte, and are valid during the call; the names and ids of channels are valid for ever.
struct KeloTraceSink {
    std::uint32_t version;  // keloTraceSinkVersion
    // Called first, once. Null, or the reason why the sink cannot take lines. Thread: main.
    const char* (*open)(const KeloTraceHost* host);
    // Announces a channel, once, before its first line; `id` has four characters, A to Z and 0 to 9, and no other channel of the
    // process has it. Returns what stands for the channel below; null if there is no room for it. Thread: any.
    void* (*addChannel)(const char* name, const char* id, int threshold);
    // The program has changed a threshold. Thread: any.
    void (*thresholdChanged)(void* channel, int threshold);
    // Takes a line. Must not wait for anything and must not keep more than a bounded amount; control characters are escaped.
    // Thread: any, several at a time.
    void (*writeLine)(void* channel, int level, const char* text);
    // Called last, once, after all lines: has half a second to pass on what the sink still holds. The process may end without any
    // handlers of its end being called. Thread: any.
    void (*close)();
};

// Null if the module does not want to be used.
const KeloTraceSink* keloTraceSink();
}
