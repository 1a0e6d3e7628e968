#include "promises.h"

#include <array>

#include "drivers/drivers.h"

namespace campaign {
namespace {

constexpr std::array all{
    Promise{"crash", "every request ends once, soon after the upstream service that it waits for is killed", &driveCrash},
};

}  // namespace

std::span<const Promise> promises() {
    return all;
}

}  // namespace campaign
