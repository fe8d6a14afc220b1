#pragma once

namespace ombrix::tests {

// Gives this process namespaces of its own with an empty /run, and leaves the folders alone in
// which a fuzzer keeps its inputs. Where the kernel gives it none, ends it as a skipped test.
void enterOwnMachine();

}  // namespace ombrix::tests
