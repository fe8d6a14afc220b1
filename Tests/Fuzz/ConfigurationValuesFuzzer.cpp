#include <array>
#include <cstdint>
#include <string>
#include <string_view>

#include "Tests/Fuzz/Support/ConfigurationBench.h"
#include "Tests/Fuzz/Support/Input.h"
#include "Tests/Fuzz/Support/Require.h"

// A configuration file in good order, or with its end cut off, whose settings have any values and
// spell them in any way that XML knows: each value is to arrive as it was meant.

namespace ombrix::tests {

namespace {

enum class Presence : std::uint8_t { once, twice, never, withoutValue };

// How a character is written that could as well stand for itself.
enum class Spelling : std::uint8_t { plain, decimal, hexadecimal, section };

struct Written {
  Presence presence = Presence::never;
  std::string value;
  Spelling spelling = Spelling::plain;
};

using WrittenSettings = std::array<Written, settingKeys.size()>;

// Text that may stand in XML: plain letters as they are, other bytes as letters of two bytes.
std::string textOf(const std::string& bytes) {
  std::string text;
  for (const char c : bytes) {
    const auto byte = static_cast<std::uint8_t>(c);
    if (byte >= 0x80) {
      text += static_cast<char>(0xC4 + (byte >> 6 & 1));
      text += static_cast<char>(0x80 | (byte & 0x3F));
    } else if (byte >= 0x20 || byte == '\t' || byte == '\n' || byte == '\r') {
      text += c;
    }
  }
  return text;
}

Written settingIn(Input& input) {
  Written setting;
  const std::uint8_t manner = input.byte();
  setting.presence = static_cast<Presence>(manner & 3U);
  setting.spelling = static_cast<Spelling>(manner >> 2U & 3U);
  if (setting.presence == Presence::never || setting.presence == Presence::withoutValue) {
    return setting;
  }
  setting.value = textOf(input.text());
  return setting;
}

std::string byNumber(char c, bool hexadecimal) {
  if (!hexadecimal) return "&#" + std::to_string(static_cast<int>(c)) + ";";
  constexpr std::string_view digits = "0123456789abcdef";
  return std::string("&#x") + digits[static_cast<std::uint8_t>(c) >> 4U] +
         digits[static_cast<std::uint8_t>(c) & 0xFU] + ";";
}

// White space would be made blanks of in an attribute, and a carriage return a line feed anywhere.
bool needsNumber(char c) { return c == '\t' || c == '\n' || c == '\r'; }

std::string spelled(const Written& setting) {
  std::string text;
  for (const char c : setting.value) {
    const bool ascii = (c & 0x80) == 0;
    if (ascii && (needsNumber(c) || setting.spelling == Spelling::decimal)) {
      text += byNumber(c, false);
    } else if (ascii && setting.spelling == Spelling::hexadecimal) {
      text += byNumber(c, true);
    } else if (c == '&') {
      text += "&amp;";
    } else if (c == '<') {
      text += "&lt;";
    } else if (c == '>') {
      text += "&gt;";
    } else if (c == '"') {
      text += "&quot;";
    } else {
      text += c;
    }
  }
  return text;
}

bool fitsSection(const std::string& text) {
  return !text.empty() && text.find("]]>") == std::string::npos &&
         text.find('\r') == std::string::npos;
}

std::string element(const char* name, const Written& setting) {
  const bool asSection = setting.spelling == Spelling::section && fitsSection(setting.value);
  const std::string text = asSection ? "<![CDATA[" + setting.value + "]]>" : spelled(setting);
  return std::string("<") + name + ">" + text + "</" + name + ">";
}

std::string attribute(const char* name, const Written& setting) {
  const std::string value =
      setting.presence == Presence::withoutValue ? "" : " value=\"" + spelled(setting) + "\"";
  return std::string("<Setting key=\"env.") + name + "\"" + value + "/>";
}

std::string written(std::size_t index, const Written& setting) {
  constexpr std::array<const char*, 5> names = {"data_dir", "temp_dir", "log_dir", "MaxSize",
                                                "Level"};
  if (setting.presence == Presence::never) return {};
  const std::string once = index < copyKeys.size() ? attribute(names.at(index), setting)
                                                   : element(names.at(index), setting);
  return setting.presence == Presence::twice ? once + once : once;
}

std::string fileOf(const WrittenSettings& settings, bool damaged) {
  std::string file = "<Configuration><SystemSettings>";
  for (std::size_t i = 0; i < settings.size(); ++i) {
    if (i == copyKeys.size()) file += "</SystemSettings><Logging>";
    file += written(i, settings.at(i));
  }
  return file + (damaged ? "</Logging>" : "</Logging></Configuration>");
}

std::string trimmed(const std::string& text) {
  constexpr const char* blanks = " \t\r\n";
  const std::size_t first = text.find_first_not_of(blanks);
  if (first == std::string::npos) return {};
  return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

Setting meant(std::size_t index, const Written& setting, bool damaged) {
  const Setting& unset = ConfigurationBench::defaults().at(index);
  if (setting.presence == Presence::never || setting.presence == Presence::twice) return unset;
  if (index < copyKeys.size()) {
    if (setting.presence == Presence::withoutValue) return "(null)/";
    if (setting.value.empty()) return unset;
    return setting.value.ends_with('/') ? setting.value : setting.value + "/";
  }
  const std::string value = damaged ? trimmed(setting.value) : setting.value;
  if (value.empty()) return unset;
  return value;
}

}  // namespace

}  // namespace ombrix::tests

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  using namespace ombrix::tests;
  static ConfigurationBench bench;
  Input input(bytes, size);
  const bool damaged = input.flag();
  WrittenSettings settings;
  for (Written& setting : settings) setting = settingIn(input);

  const Settings loaded = bench.load(fileOf(settings, damaged));

  for (std::size_t i = 0; i < settings.size(); ++i) {
    require(loaded.at(i) == meant(i, settings.at(i), damaged), "a value arrives as it was meant");
  }
  return 0;
}
