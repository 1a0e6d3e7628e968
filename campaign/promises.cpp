#include "promises.h"

#include <array>

#include "drivers/drivers.h"

namespace campaign {
namespace {

constexpr std::array all{
    Promise{"crash", "when an upstream service is killed, every request that waits for it ends soon, and once", &driveCrash},
    Promise{"cut", "wherever a connection is cut, every request ends once, and what its error says is true", &driveCut},
    Promise{"track", "trackers see each provider come and go, strictly in turn", &driveTrack},
    Promise{"directory", "trackers see the true state, whatever happens to the directory", &driveDirectory},
    Promise{"owner", "a path has one owner; when it dies, another one takes over soon", &driveOwner},
    Promise{"watch", "watchers end at the true state, whatever is killed and restarted meanwhile", &driveWatch},
    Promise{"slow", "a client that does not read costs little memory and delays nobody", &driveSlow},
    Promise{"flood", "excess requests are refused and counted; other clients are served", &driveFlood},
    Promise{"greed", "a client that makes the bridge keep a lot costs little memory and delays nobody", &driveGreed, true},
    Promise{"malformed", "malformed input ends its own connection only", &driveMalformed},
    Promise{"damaged", "a damaged answer ends its request once, and the provider is asked again", &driveDamagedAnswers},
    Promise{"late", "wrong, late and repeated answers reach nobody", &driveLate},
    Promise{"values", "values pass through every encoding unchanged, or are refused", &driveValues},
    Promise{"descriptors", "without free descriptors the bridge idles, serves the clients it has, and recovers",
            &driveDescriptors, true},
    Promise{"disk", "a service that cannot be published yet is published soon after it can be", &driveDisk, true},
    Promise{"interrupted", "interrupted and partial system calls change no answer", &driveInterrupted, true},
    Promise{"stopped",
            "a stopped upstream service delays its requests until their deadline and no longer, whatever the clock does",
            &driveStopped, true},
    Promise{"memory", "a failed allocation ends only what it belongs to: nothing is corrupted, nothing hangs", &driveMemory,
            true},
    Promise{"failpoint", "an upstream service may be killed, stopped or cut off at every step of its life", &driveFailpoint,
            true},
    Promise{"regions", "once everything is quiet, /hmx shows the regions that the input manager has", &driveRegions},
    Promise{"kept", "what clients were told of their regions stays true when the bridge is killed and restarted", &driveKept},
    Promise{"soak", "nothing is lost and nothing accumulates while clients and upstream services come and go", &driveSoak},
    Promise{"identity",
            "identity comes from the kernel: strangers are neither served nor trusted, unsafe directories are refused",
            &driveIdentity},
};

}  // namespace

std::span<const Promise> promises() {
    return all;
}

}  // namespace campaign
