// The drivers, one per promise. The promises themselves are in promises.cpp.
#pragma once

#include "harness/report.h"
#include "harness/scope.h"

namespace campaign {

void driveCrash(const Scope& scope, Random& random, Report& report);
void driveCut(const Scope& scope, Random& random, Report& report);
void driveTrack(const Scope& scope, Random& random, Report& report);
void driveDirectory(const Scope& scope, Random& random, Report& report);
void driveOwner(const Scope& scope, Random& random, Report& report);
void driveWatch(const Scope& scope, Random& random, Report& report);
void driveSlow(const Scope& scope, Random& random, Report& report);
void driveFlood(const Scope& scope, Random& random, Report& report);
void driveGreed(const Scope& scope, Random& random, Report& report);
void driveMalformed(const Scope& scope, Random& random, Report& report);
void driveDamagedAnswers(const Scope& scope, Random& random, Report& report);
void driveLate(const Scope& scope, Random& random, Report& report);
void driveValues(const Scope& scope, Random& random, Report& report);
void driveDescriptors(const Scope& scope, Random& random, Report& report);
void driveDisk(const Scope& scope, Random& random, Report& report);
void driveInterrupted(const Scope& scope, Random& random, Report& report);
void driveStopped(const Scope& scope, Random& random, Report& report);
void driveMemory(const Scope& scope, Random& random, Report& report);
void driveFailpoint(const Scope& scope, Random& random, Report& report);
void driveRegions(const Scope& scope, Random& random, Report& report);
void driveKept(const Scope& scope, Random& random, Report& report);
void driveSoak(const Scope& scope, Random& random, Report& report);
void driveIdentity(const Scope& scope, Random& random, Report& report);

}  // namespace campaign
