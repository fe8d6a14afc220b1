#pragma once

#include <cstddef>
#include <string>
#include <vector>

// The least that the kernel must be asked for what the agent needs, in plain calls: the floors that
// the agent's own figures are held against.

namespace ombrix::benchmarks {

// Reads the names in /proc and does nothing with them. Returns the bytes read.
std::size_t readNames();

// The process ids among them.
std::vector<int> readProcessIds();

// Reads of each process what yields its name, effective user and executable, and looks at nothing.
// Returns how many processes there were to be read.
std::size_t readDetails(const std::vector<int>& processIds);

// Creates `path` exclusively, writes `bytes` and closes it.
void writeFile(const std::string& path, const std::string& bytes);

}  // namespace ombrix::benchmarks
