// Compiled once for the floors: the standard library's heavy headers and what nearly every source of the floors includes. A
// source still includes what it uses: builds for clang and for lint go without this.
#pragma once

#include <algorithm>
#include <array>
#include <atomic>
#include <charconv>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <cstring>
#include <deque>
#include <functional>
#include <limits>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <thread>
#include <type_traits>
#include <unordered_map>
#include <utility>
#include <vector>

#include "kelo/kelo_api.h"
#include "kelo/record.h"
#include "kelo/request.h"
#include "kelo/response_handler.h"
#include "tracing/channel.h"
