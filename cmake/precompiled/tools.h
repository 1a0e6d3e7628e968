// Compiled once for the tools.
#pragma once

#include <nlohmann/json.hpp>

#include "floors.h"
