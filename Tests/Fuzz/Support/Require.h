#pragma once

namespace ombrix::tests {

// What a fuzz target promises of every input. Ends the process, saying `what` is untrue, so that
// the fuzzer keeps the input and a replay of it fails.
void require(bool condition, const char* what);

}  // namespace ombrix::tests
