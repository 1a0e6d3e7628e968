// The roles that the program `road` plays.
#pragma once

#include <string>
#include <vector>

#include "traffic.h"

namespace road {

// The three upstream services, as far as measures need them:
//     /hmxdisplaymanager  answers everything with the four displays
//     /hmxinputmanager    accepts everything
//     /hmxpopupmanager    has one popup, which every update changes and every open retrieve then hears of
// Options: sends=gathered|single, how the answers to what was read at once are sent.
int playUpstream(const std::string& directory, const traffic::Options& options);

// The floor: a service that forwards requests to another one and its answers back, bytes copied, nothing decoded.
int playRelay(const std::string& directory, const std::string& service, const std::string& upstreamService);

// Sends the same request again and again, and prints what it measured. Options, beside those of the load: command, path, mime;
// body, in which each '%' stands for the request's number; sends; interval_us, after which the next request is due whether the
// last one has been answered or not (by default, each answer makes the next one due).
int playClient(const std::string& directory, const std::string& service, const traffic::Options& options);

// Starts a program and prints the milliseconds from there to the first answer of the service that it provides. What waits for
// the service is told of it by the kernel, so nothing but the program is measured.
int measureStart(const std::string& directory, const std::string& service, std::vector<char*> program);

// Watches the popup `watchers` times over one connection, says "ready", changes it `changes` times, one each `interval_us` or
// when the last watcher has heard of the one before, and prints how long that took..
int playWatchers(const std::string& directory, const std::string& service, const traffic::Options& options);

}  // namespace road
