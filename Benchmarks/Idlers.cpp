#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include "Benchmarks/Population.h"

// Idlers COUNT: raises that many idle processes, says so with a line, and ends them with itself
// when its input ends.
int main(int argc, char** argv) {
  const std::size_t count = argc == 2 ? std::strtoul(argv[1], nullptr, 10) : 0;
  const ombrix::benchmarks::Population population(count);
  std::printf("%zu\n", population.processIds().size());
  std::fflush(stdout);
  char byte = 0;
  while (::read(STDIN_FILENO, &byte, 1) > 0) continue;
}
