#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

// Runs a fuzz target on the inputs in the folders that the arguments name, with any compiler and
// without a fuzzer.

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size);
extern "C" __attribute__((weak)) int LLVMFuzzerInitialize(int* argumentCount, char*** arguments);

namespace {

std::vector<std::filesystem::path> inputsIn(const std::filesystem::path& folder) {
  std::vector<std::filesystem::path> inputs;
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    inputs.push_back(std::filesystem::absolute(entry.path()));
  }
  std::sort(inputs.begin(), inputs.end());
  return inputs;
}

// A copy of exactly the input's size, so that a sanitizer sees the end overrun.
void run(std::vector<std::uint8_t> bytes) {
  bytes.shrink_to_fit();
  LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
}

void runFile(const std::filesystem::path& input) {
  std::fprintf(stderr, "Input %s\n", input.c_str());
  std::ifstream file(input, std::ios::binary);
  run({std::istreambuf_iterator<char>(file), {}});
}

}  // namespace

int main(int argumentCount, char** arguments) {
  if (LLVMFuzzerInitialize != nullptr) LLVMFuzzerInitialize(&argumentCount, &arguments);
  std::vector<std::filesystem::path> inputs;
  for (int i = 1; i < argumentCount; ++i) {
    const auto found = inputsIn(arguments[i]);
    inputs.insert(inputs.end(), found.begin(), found.end());
  }
  if (inputs.empty()) {
    std::fputs("There is no input to run.\n", stderr);
    return 1;
  }
  run({});
  for (const auto& input : inputs) runFile(input);
  std::printf("%zu inputs\n", inputs.size());
  return 0;
}
