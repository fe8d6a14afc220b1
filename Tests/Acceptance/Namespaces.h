#pragma once

#include <string>

// A machine of each test's own: fresh process ids, a network of its own (its limits on queued
// datagrams are part of that), and empty folders in the places where agents meet. Nothing that a
// test does there reaches the machine it runs on, and two tests at a time do not meet.

namespace ombrix::tests {

// Runs `body` on a machine of its own, as a child of its process 1, and returns its exit status.
// Where the kernel gives nobody namespaces, says so and returns 0.
int runOnOwnMachine(int (*body)());

// True when a test may become several users; false when it is an ordinary user's.
[[nodiscard]] bool hasSeveralUsers();

// Where the executables under test lie on the test's own machine, open to every user.
[[nodiscard]] const std::string& executableFolder();

}  // namespace ombrix::tests
