#pragma once

#include <chrono>
#include <cstdint>
#include <vector>

namespace ombrix::platform {

// Decides which power messages the agent gets, from two witnesses who contradict each other now and
// then: logind, which announces a sleep before it and a wake after it but may be doubled, late,
// restarted or absent; and the kernel's count of the time slept, which is always right but says
// nothing until afterwards. Every sleep is told once. Pure: the count comes as an argument.
class SleepMessages {
 public:
  struct Message {
    std::uint32_t type = 0;           // as in SystemPower.h
    std::chrono::nanoseconds ago{0};  // how long before now it should have come
    bool wantsAcknowledgement = false;
  };
  using Messages = std::vector<Message>;

  // `suspended` here and below: platform::timeSuspended().
  explicit SleepMessages(std::chrono::nanoseconds suspended) : accounted(suspended) {}

  // logind says that the machine is about to sleep, or is awake again.
  [[nodiscard]] Messages sleepAnnounced(std::chrono::nanoseconds suspended);
  [[nodiscard]] Messages wakeAnnounced(std::chrono::nanoseconds suspended);

  // A look at the kernel's count at any other time.
  [[nodiscard]] Messages looked(std::chrono::nanoseconds suspended);

 private:
  [[nodiscard]] bool sleptUntold(std::chrono::nanoseconds suspended) const;

  std::chrono::nanoseconds accounted;  // the count up to which everything has been told
  bool sleepPending = false;           // announced, and no wake told yet
  bool wakeToldEarly = false;          // told from the count; logind's own word is still to come
};

}  // namespace ombrix::platform
