// The roles of the program `road`.
#pragma once

#include <string>
#include <vector>

#include "traffic.h"

namespace road {

// Plays the three upstream services, as far as the measurements need them:
//     /hmxdisplaymanager  answers everything with the four displays
//     /hmxinputmanager    accepts everything
//     /hmxpopupmanager    has one popup; every update changes it and is sent to every open retrieve
// Options: sends=gathered|single, how the answers to requests that were read together are sent.
int playUpstream(const std::string& directory, const traffic::Options& options);

// The floor: a service that forwards requests to another one, and its answers back. Bytes are copied; nothing is decoded.
int playRelay(const std::string& directory, const std::string& service, const std::string& upstreamService);

// Sends the same request repeatedly, and prints what it measured. Options, in addition to those of the load: command, path, mime;
// body, in which each '%' stands for the request's number; sends; interval_us, after which the next request is due whether or not
// the previous one has been answered (by default, each answer makes the next one due).
int playClient(const std::string& directory, const std::string& service, const traffic::Options& options);

// Starts a program and prints the milliseconds until the first answer of the service that it provides. The kernel reports when
// the service appears, so only the program's own time is measured.
int measureStart(const std::string& directory, const std::string& service, std::vector<char*> program);

// Watches the popup `watchers` times over one connection, prints "ready", and changes the popup `changes` times: every
// `interval_us`, or when the last watcher has got the previous change. Prints how long that took.
int playWatchers(const std::string& directory, const std::string& service, const traffic::Options& options);

}  // namespace road
