// The bounds that keep one HTTP client from hurting the others: one struct, explained in docs/gateway.md.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>

namespace hmxgateway {

struct Limits {
    std::uint32_t connections = 1536;       // beyond it the one that has waited longest for a request is closed
    std::uint32_t streams = 1200;           // open event streams
    std::uint32_t topics = 256;             // different things that are watched
    std::uint32_t watchesPerStream = 32;    // of one GET /events
    std::size_t connectionBytes = 8192;     // request line and headers of a request, and what is sent to one client at a time
    std::size_t bodyBytes = 1000U << 10U;   // of a request; a frame to the bridge takes a little more
    std::size_t bodiesBytes = 4U << 20U;    // of all requests that are being received
    std::uint32_t waitingRequests = 256;    // whose answers have not come yet
    std::uint32_t queryParameters = 64;     // of one request
    std::uint32_t queuedEvents = 64;        // for one viewer; beyond it the viewer gets a snapshot instead
    std::size_t unreadBytes = 4U << 20U;    // of events that viewers have not read; beyond it the slowest viewer is cut
    std::size_t historyBytes = 64U << 10U;  // of past events of one topic, for viewers that come back
    std::uint32_t historyEvents = 256;      // likewise
    std::size_t pageBytes = 4U << 20U;      // of the page's files
    std::uint32_t pageFiles = 256;          // likewise
    std::uint32_t recordings = 1000;        // that are listed
    std::uint32_t recordingEntries = 4096;  // of their directory that are looked at
    std::uint32_t sentRecordings = 8;       // at a time
    std::size_t blockBytes = 64U << 10U;    // of a recording, that are read and sent at once
    std::chrono::seconds headers{10};       // from connecting to the end of the first request's headers
    std::chrono::seconds keepAlive{60};     // from one request's end to the end of the next one's headers
    std::chrono::seconds body{10};          // from the headers' end to the body's
    std::chrono::seconds answer{10};        // from asking the bridge to its answer
    std::chrono::seconds unread{30};        // that a client leaves something unread
    std::chrono::seconds comment{15};       // between comments on a stream
    std::chrono::seconds linger{30};        // that a topic without viewers is kept, for those that come back
};

inline constexpr Limits limits;

}  // namespace hmxgateway
