#include "Tests/Fuzz/Support/Login1Model.h"

namespace ombrix::tests {

void Login1Model::connected() {
  lastSerial = 4;  // the greeting, two subscriptions, and who the owner is
  ownerAsked = true;
  askedWhetherPreparing.clear();
  askedForLock.clear();
}

// Every question gets an error for an answer, and there is no owner any more.
void Login1Model::connectionEnded() {
  ownerAsked = false;
  becomeOwned("");
}

void Login1Model::ownerTold(bool answered, const std::string& name) {
  if (!ownerAsked) return;
  ownerAsked = false;
  becomeOwned(answered ? name : "");
}

void Login1Model::ownerChanged(const std::string& newOwner) { becomeOwned(newOwner); }

void Login1Model::becomeOwned(const std::string& newOwner) {
  owner = newOwner;
  lockHeld = false;
  lockAsked = false;
  starting = false;
  if (!owner.empty()) ask();
}

void Login1Model::ask() {
  askedWhetherPreparing.insert(++lastSerial);
  takeLock();
}

void Login1Model::takeLock() {
  sleeping = false;
  if (owner.empty() || lockHeld || lockAsked) return;
  askedForLock.insert(++lastSerial);
  lockAsked = true;
}

void Login1Model::prepareForSleep(const std::string& sender, bool nowSleeping) {
  if (!owner.empty() && sender == owner) announce(nowSleeping);
}

void Login1Model::preparingTold(std::uint32_t serial, bool answered, bool nowSleeping) {
  if (askedWhetherPreparing.erase(serial) == 0 || !answered) return;
  if (nowSleeping && !sleeping) announce(true);
}

void Login1Model::lockGiven(std::uint32_t serial, bool answered) {
  if (askedForLock.erase(serial) == 0) return;
  lockAsked = false;
  if (answered && !sleeping) lockHeld = true;
}

void Login1Model::announce(bool nowSleeping) {
  sleeping = nowSleeping;
  announced.push_back(nowSleeping);
  if (nowSleeping) {
    lockHeld = false;
  } else {
    takeLock();
  }
}

}  // namespace ombrix::tests
