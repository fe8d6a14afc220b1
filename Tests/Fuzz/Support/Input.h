#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <type_traits>

namespace ombrix::tests {

// The fuzzer's bytes, taken from the front as whatever a target needs. An input that has come to
// its end goes on as zeros and empty texts.
class Input {
 public:
  Input(const std::uint8_t* bytes, std::size_t size)
      : rest_(reinterpret_cast<const char*>(bytes), size) {}

  [[nodiscard]] bool empty() const { return rest_.empty(); }
  [[nodiscard]] std::string_view rest() const { return rest_; }

  // Little-endian, so that the low bits are the ones that come first.
  template <class Number>
  [[nodiscard]] Number number() {
    static_assert(std::is_unsigned_v<Number>);
    std::uint64_t value = 0;
    const std::string_view bytes = take(sizeof(Number));
    for (std::size_t i = 0; i < bytes.size(); ++i) {
      value |= std::uint64_t{static_cast<std::uint8_t>(bytes[i])} << (8 * i);
    }
    return static_cast<Number>(value);
  }
  [[nodiscard]] std::uint8_t byte() { return number<std::uint8_t>(); }
  [[nodiscard]] bool flag() { return (byte() & 1U) != 0; }

  // One of `count` choices, counted from 0.
  [[nodiscard]] unsigned choice(unsigned count) { return byte() % count; }

  // Any bytes at all: as many as the next byte says, or all that are left.
  [[nodiscard]] std::string text() { return std::string(take(byte())); }

 private:
  std::string_view take(std::size_t size) {
    const std::string_view taken = rest_.substr(0, size);
    rest_.remove_prefix(taken.size());
    return taken;
  }

  std::string_view rest_;
};

}  // namespace ombrix::tests
