#include "Platform/Linux/ProcessStatus.h"

#include <charconv>
#include <cstdint>
#include <utility>

namespace ombrix::platform {

namespace {

// The kernel writes a newline and a backslash of a name as "\n" and "\\" into this file, and every
// other byte as it is (proc_task_name() in fs/proc/array.c).
std::string unescaped(std::string_view escaped) {
  std::string name;
  for (std::size_t i = 0; i < escaped.size(); ++i) {
    if (escaped[i] == '\\' && i + 1 < escaped.size()) {
      ++i;
      name += escaped[i] == 'n' ? '\n' : escaped[i];
    } else {
      name += escaped[i];
    }
  }
  return name;
}

// The text before the next `separator`, which is taken away too.
std::string_view takeUntil(char separator, std::string_view& text) {
  const std::size_t end = text.find(separator);
  const std::string_view piece = text.substr(0, end);
  text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
  return piece;
}

std::optional<std::uint32_t> number(std::string_view digits) {
  std::uint32_t value = 0;
  const char* end = digits.data() + digits.size();
  const auto [stop, error] = std::from_chars(digits.data(), end, value);
  if (error != std::errc() || stop != end) return std::nullopt;
  return value;
}

// The second of four numbers: real, effective, saved, and that of the file system.
std::optional<UserId> effectiveOf(std::string_view userIds) {
  takeUntil('\t', userIds);
  return number(takeUntil('\t', userIds));
}

// The text behind `field`, which is the beginning of `line`; nothing when it is not. Of a literal,
// so that the compiler makes a comparison of one or two words of it.
template <std::size_t size>
std::optional<std::string_view> valueOf(const char (&field)[size], std::string_view line) {
  if (!line.starts_with(std::string_view(field, size - 1))) return std::nullopt;
  return line.substr(size - 1);
}

}  // namespace

std::optional<ProcessStatus> parseProcessStatus(std::string_view status) {
  ProcessStatus parsed;
  std::optional<std::string> name;
  std::optional<UserId> user;
  // A line without its end was cut off and could show half a number. The kernel writes what is
  // asked for here early, before dozens of lines that a poll of thousands has no time for.
  bool settled = false;
  while (!settled && status.find('\n') != std::string_view::npos) {
    const std::string_view line = takeUntil('\n', status);
    if (const auto text = valueOf("Name:\t", line)) {
      name = unescaped(*text);
    } else if (const auto state = valueOf("State:\t", line)) {
      if (state->starts_with('Z') || state->starts_with('X')) parsed.kernelThread = false;
    } else if (const auto users = valueOf("Uid:\t", line)) {
      user = effectiveOf(*users);
    } else if (const auto flag = valueOf("Kthread:\t", line)) {
      parsed.kernelThread = *flag == "1";
      settled = true;
    } else if (line.starts_with("VmSize:")) {
      parsed.kernelThread = false;
      settled = true;
    }
  }
  if (!name || !user) return std::nullopt;
  parsed.commandName = std::move(*name);
  parsed.effectiveUserId = *user;
  return parsed;
}

bool hasKernelThreadFlag(std::string_view stat) {
  constexpr std::uint32_t kernelThreadFlag = 0x00200000;  // PF_KTHREAD in linux/sched.h
  constexpr int fieldsBeforeFlags = 6;  // state, ppid, pgrp, session, tty_nr, tpgid
  // The name may hold blanks and parentheses; only the last one is the kernel's own.
  const std::size_t nameEnd = stat.rfind(") ");
  if (nameEnd == std::string_view::npos) return false;
  stat.remove_prefix(nameEnd + 2);
  for (int field = 0; field < fieldsBeforeFlags; ++field) takeUntil(' ', stat);
  return (number(takeUntil(' ', stat)).value_or(0) & kernelThreadFlag) != 0;
}

}  // namespace ombrix::platform
