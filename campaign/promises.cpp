#include "promises.h"

#include <array>

#include "drivers/drivers.h"

namespace campaign {
namespace {

constexpr std::array all{
    Promise{"crash", "every request ends once, soon after the upstream service that it waits for is killed", &driveCrash},
    Promise{"cut", "a connection may end behind any byte: every request ends once, and what its error says is true", &driveCut},
    Promise{"track", "trackers see each provider come and go, strictly in turn", &driveTrack},
    Promise{"directory", "trackers see what is true, whatever happens to the directory", &driveDirectory},
    Promise{"owner", "a path has one owner, and another soon when that one dies", &driveOwner},
    Promise{"watch", "watchers end at the true state, whoever is killed and restarted meanwhile", &driveWatch},
    Promise{"slow", "a client that does not read costs little memory and holds nobody up", &driveSlow},
    Promise{"flood", "what is too much is refused and counted, and others are served", &driveFlood},
    Promise{"greed", "whoever makes the bridge keep much costs it little memory and holds nobody up", &driveGreed, true},
    Promise{"malformed", "what is malformed ends its own connection alone", &driveMalformed},
    Promise{"damaged", "damaged answers end requests once, and their provider is asked again", &driveDamagedAnswers},
    Promise{"late", "wrong, late and repeated answers reach nobody", &driveLate},
    Promise{"values", "values pass through every encoding unchanged, or are refused", &driveValues},
    Promise{"descriptors", "without descriptors the bridge rests, serves whom it has, and recovers", &driveDescriptors, true},
    Promise{"disk", "a service that cannot be published for now is alive soon after it can", &driveDisk, true},
    Promise{"interrupted", "interrupted and short calls change no answer", &driveInterrupted, true},
    Promise{"stopped", "a stopped upstream service costs its requests their deadline and no more, whatever the clock says",
            &driveStopped, true},
    Promise{"memory", "a failing allocation ends what it belongs to: nothing is corrupted, nothing stands still", &driveMemory,
            true},
    Promise{"failpoint", "at every step of its life an upstream service may be killed, stopped or cut off", &driveFailpoint,
            true},
    Promise{"regions", "once all is quiet, the regions that /hmx shows are those that the input manager has", &driveRegions},
    Promise{"soak", "nothing is lost and nothing gathers while clients and upstream services come and go", &driveSoak},
    Promise{"identity", "who somebody is, the kernel says: strangers are neither served nor trusted, unsafe directories refused",
            &driveIdentity},
};

}  // namespace

std::span<const Promise> promises() {
    return all;
}

}  // namespace campaign
