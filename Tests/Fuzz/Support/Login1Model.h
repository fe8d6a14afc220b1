#pragma once

#include <cstdint>
#include <set>
#include <string>
#include <vector>

namespace ombrix::tests {

// What the agent is to make of the bus's words: the announcements that it hands on. Told of every
// message in its order. The owner of this model releases its lock at every announcement of a sleep
// and takes it again after it, as the agent does.
class Login1Model {
 public:
  // A connection has been made, and what the agent asks at once has been asked.
  void connected();
  void connectionEnded();

  // An answer without a value is an error. `serial` is that of the question.
  void ownerTold(bool answered, const std::string& name);
  void ownerChanged(const std::string& newOwner);
  void prepareForSleep(const std::string& sender, bool sleeping);
  void preparingTold(std::uint32_t serial, bool answered, bool sleeping);
  void lockGiven(std::uint32_t serial, bool answered);

  [[nodiscard]] const std::vector<bool>& announcements() const { return announced; }
  // Whether the agent knows yet whether anybody is there to announce a sleep.
  [[nodiscard]] bool ownerKnown() const { return !starting; }

 private:
  void becomeOwned(const std::string& newOwner);
  void ask();
  void takeLock();
  void announce(bool nowSleeping);

  bool starting = true;
  bool ownerAsked = false;
  std::string owner;
  bool sleeping = false;
  bool lockHeld = false;
  bool lockAsked = false;
  std::uint32_t lastSerial = 0;
  std::set<std::uint32_t> askedWhetherPreparing;
  std::set<std::uint32_t> askedForLock;
  std::vector<bool> announced;
};

}  // namespace ombrix::tests
