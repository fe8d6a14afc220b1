#pragma once

#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "Platform/FileDescriptor.h"
#include "Tests/Fuzz/Support/FuzzFolder.h"

// Stands in for the system bus: says what it was told to say to whoever connects, all at once, and
// listens to nothing.

namespace ombrix::tests {

// What one connection gets to read.
struct BusScript {
  struct Piece {
    std::string bytes;
    unsigned descriptors = 0;  // that come along with them
  };
  std::vector<Piece> pieces;
  bool hangsUp = false;  // at the end
};

class BusDouble {
 public:
  // Takes the place of the system bus for this process.
  BusDouble();
  ~BusDouble();
  BusDouble(const BusDouble&) = delete;
  BusDouble& operator=(const BusDouble&) = delete;

  // The first connection is served while the caller waits for the bus, by a thread; finishFirst()
  // awaits its end.
  void serveFirst(const BusScript& script);
  void finishFirst();

  // Serves one more connection if anybody has asked for one.
  bool serveNext(const BusScript& script);

  // Lets go of all connections.
  void forget() { connections.clear(); }

 private:
  void work();
  void serve(platform::FileDescriptor connection, const BusScript& script);

  FuzzFolder folder;
  platform::FileDescriptor listening;
  std::vector<platform::FileDescriptor> connections;

  std::mutex mutex;
  std::condition_variable changed;
  const BusScript* first = nullptr;
  bool ending = false;
  std::thread thread;
};

}  // namespace ombrix::tests
