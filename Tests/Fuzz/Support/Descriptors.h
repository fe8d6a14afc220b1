#pragma once

#include <cstddef>

namespace ombrix::tests {

// How many descriptors this process has open.
[[nodiscard]] std::size_t openDescriptorCount();

}  // namespace ombrix::tests
