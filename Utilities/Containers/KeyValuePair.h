#pragma once

#include <optional>
#include <string>
#include <utility>

namespace ombrix {

// A pair of two texts, each of which may be absent: an entry of the configuration store and a row
// of a contract's lists. Two pairs are the same only when they are one object, so there is no
// comparison.
class KeyValuePair {
 public:
  KeyValuePair(std::optional<std::string> key, std::optional<std::string> value)
      : key_(std::move(key)), value_(std::move(value)) {}

  [[nodiscard]] const std::optional<std::string>& key() const { return key_; }
  void setKey(std::optional<std::string> key) { key_ = std::move(key); }

  [[nodiscard]] const std::optional<std::string>& value() const { return value_; }
  void setValue(std::optional<std::string> value) { value_ = std::move(value); }

 private:
  std::optional<std::string> key_;
  std::optional<std::string> value_;
};

}  // namespace ombrix
