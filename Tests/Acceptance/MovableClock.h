#pragma once

#include "Tests/Acceptance/Program.h"

// An agent whose clocks a test can move (MovableClockLibrary.cpp); it knows the system bus of
// SystemBus.h.

namespace ombrix::tests {

// The agent's executable, with both clocks as they are.
[[nodiscard]] Launch withMovableClock();

// Puts the wall clock that many seconds ahead of the real one.
void moveWallClock(double seconds);

// Moves all clocks as sleeps of so many seconds in all do, of which nobody was told.
void passAsleep(double seconds);

}  // namespace ombrix::tests
