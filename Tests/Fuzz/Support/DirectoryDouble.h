#pragma once

#include <string>

namespace ombrix::tests {

// Linked with its source, this takes the place of mkdir(2): directories are made in `folder` only
// (which ends in "/") or relative to the working directory, and refused everywhere else, so that a
// made-up path does no harm to the machine.
void makeDirectoriesOnlyIn(const std::string& folder);

}  // namespace ombrix::tests
