#pragma once

namespace ombrix::tests {

// The main() of a test program. The agent's services have state that lasts as long as their
// process, so every test gets a process of its own: one selected test is run by `runSelected`
// (which ends in RUN_ALL_TESTS()), several are run one after the other in child processes.
int testMain(int argumentCount, char** arguments, int (*runSelected)());

}  // namespace ombrix::tests
