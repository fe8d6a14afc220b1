#pragma once

#include <ctime>

#include "Tests/Acceptance/Program.h"

// An agent whose clocks a test can move (MovableClockLibrary.cpp); it knows the system bus of
// SystemBus.h.

namespace ombrix::tests {

// The agent's executable, with both clocks as they are, in a zone in which it is noon.
[[nodiscard]] Launch withMovableClock();
// The same in a zone of the test's own (tzset(3)).
[[nodiscard]] Launch withMovableClockIn(const std::string& zone);

// Puts the wall clock that many seconds ahead of the real one.
void moveWallClock(double seconds);

// A moment of universal time, and the wall clock at one.
[[nodiscard]] std::time_t universal(int year, int month, int day, int hour, int minute = 0);
void setWallClock(std::time_t moment);

// Moves all clocks as sleeps of so many seconds in all do, of which nobody was told.
void passAsleep(double seconds);

}  // namespace ombrix::tests
