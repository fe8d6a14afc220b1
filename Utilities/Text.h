#pragma once

#include <optional>
#include <string>
#include <string_view>

// Small text helpers that several folders use.

namespace ombrix {

// How an absent text reads inside a message, a record or a path: "(null)".
[[nodiscard]] std::string textOrNull(const std::optional<std::string>& text);

// `bytes` as text, or nothing when they are not UTF-8.
[[nodiscard]] std::optional<std::string> utf8OrNothing(std::string_view bytes);

// `text` without any of the characters in `unwanted`.
[[nodiscard]] std::string removingAll(std::string text, std::string_view unwanted);

// The decimal number at the start of `text`, after white space and a sign: 0 when there is none,
// the nearest 32-bit value when it is out of range.
[[nodiscard]] int leadingInteger(const std::string& text);

}  // namespace ombrix
