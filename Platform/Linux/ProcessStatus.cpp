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

}  // namespace

std::optional<ProcessStatus> parseProcessStatus(std::string_view status) {
  ProcessStatus parsed;
  bool hasName = false;
  std::optional<UserId> user;
  while (!status.empty()) {
    // A line that was cut off could show half a number.
    if (status.find('\n') == std::string_view::npos) break;
    std::string_view value = takeUntil('\n', status);
    const std::string_view field = takeUntil('\t', value);
    if (field == "Name:") {
      parsed.commandName = unescaped(value);
      hasName = true;
    } else if (field == "State:") {
      if (value.starts_with('Z') || value.starts_with('X')) parsed.kernelThread = false;
    } else if (field == "Uid:") {
      user = effectiveOf(value);
    } else if (field == "VmSize:") {
      parsed.kernelThread = false;
    } else if (field == "Kthread:") {
      parsed.kernelThread = value == "1";
    }
  }
  if (!hasName || !user) return std::nullopt;
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
