#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "Tests/Fuzz/Support/BusDouble.h"
#include "Tests/Fuzz/Support/BusWire.h"
#include "Tests/Fuzz/Support/Input.h"
#include "Tests/Fuzz/Support/Login1Model.h"

namespace ombrix::tests {

// A fuzzer's input, read as what the bus says to the agent, and what the agent is to make of it.
class BusConversation {
 public:
  explicit BusConversation(Input& input);

  // One for each connection; every one but the last hangs up.
  [[nodiscard]] const std::vector<BusScript>& scripts() const { return allScripts; }

  // False when something was said of which only libsystemd knows what it means.
  [[nodiscard]] bool foreseen() const { return exact; }
  [[nodiscard]] const std::vector<bool>& announcements() const { return model.announcements(); }

 private:
  void converse(Input& input);
  void greet();
  void sayOneThing(Input& input);
  void tellOwner(Input& input);
  void tellOwnerChange(Input& input);
  void announceSleep(Input& input);
  void tellWhetherPreparing(Input& input);
  void giveLock(Input& input);
  void sayAnything(Input& input);
  void babble(Input& input);
  void say(BusMessage message);
  [[nodiscard]] BusMessage answer(std::uint32_t question, bool asError) const;

  std::vector<BusScript> allScripts;
  BusScript script;
  std::uint32_t serial = 0;
  Login1Model model;
  bool exact = true;
};

}  // namespace ombrix::tests
