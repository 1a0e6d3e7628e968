// Compiled once for the programs around the bridge, and for what they share.
#pragma once

#include <coroutine>
#include <filesystem>
#include <set>

#include <nlohmann/json.hpp>

#include "floors.h"
#include "hmx/client/client.h"
#include "hmx/client/elements.h"
#include "hmx/client/schema.h"
#include "hmx/client/subscription.h"
