#include <algorithm>
#include <array>
#include <cstdint>
#include <ctime>
#include <string>
#include <string_view>

#include "Platform/Text.h"
#include "Tests/Fuzz/Support/ConfigurationBench.h"
#include "Tests/Fuzz/Support/Require.h"
#include "Utilities/Configuration/ConfigurationDocument.h"
#include "Utilities/Logging/LogManager.h"

// The configuration file, as any bytes: what the agent then has for settings.

namespace ombrix::tests {

namespace {

// A value is made of the file's text. A file in an encoding of one byte for each letter grows
// threefold at most when it becomes UTF-8; no declaration of the file's makes it longer.
void requireModesty(std::size_t fileSize, const std::string& value) {
  require(value.size() <= 3 * fileSize + std::string_view("(null)/").size(),
          "a value is no longer than the file can spell");
}

void requireUsable(std::size_t fileSize, const Settings& settings) {
  for (std::size_t i = 0; i < settings.size(); ++i) {
    const Setting& value = settings.at(i);
    if (!value) continue;
    require(!value->empty(), "no setting is set to nothing");
    require(platform::isUtf8(*value), "values are UTF-8");
    if (i < copyKeys.size()) require(value->ends_with('/'), "directories end in a slash");
    if (value != ConfigurationBench::defaults().at(i)) requireModesty(fileSize, *value);
  }
}

// The word of the level is one of five or counts for none.
void requireConvertible(const std::string& word) {
  constexpr std::array<std::string_view, 5> words = {"error", "warning", "info", "trace",
                                                     "verbose"};
  const bool known = std::find(words.begin(), words.end(), word) != words.end();
  require((LogManager::convertLogLevel(word) != LogLevel::emergency) == known,
          "five words name a level and no others");
}

// Counts a processor's seconds, so that a busy machine makes no finding.
class Stopwatch {
 public:
  [[nodiscard]] double seconds() const {
    return static_cast<double>(std::clock() - start) / CLOCKS_PER_SEC;
  }

 private:
  std::clock_t start = std::clock();
};

}  // namespace

}  // namespace ombrix::tests

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  using namespace ombrix::tests;
  static ConfigurationBench bench;
  const std::string_view file(reinterpret_cast<const char*>(bytes), size);

  const Stopwatch stopwatch;
  const Settings settings = bench.load(file);
  require(stopwatch.seconds() < 2.0, "no file keeps the agent busy");

  requireUsable(size, settings);
  requireConvertible(settings.at(4).value_or(""));
  for (const std::string& line : bench.said()) {
    require(ombrix::platform::isUtf8(line), "the log is UTF-8");
  }
  if (size > ombrix::ConfigurationDocument::maximumBytes) {
    require(settings == ConfigurationBench::defaults(), "a file without measure sets nothing");
  }
  return 0;
}
