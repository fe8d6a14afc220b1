#include "Platform/RunLoop.h"

#include <sys/event.h>

#include <array>
#include <utility>

#include "Platform/FileDescriptor.h"
#include "Platform/SystemLog.h"
#include "Platform/macOS/Owners.h"

// The main thread's CFRunLoop. Notifications and power messages are sources of it that the system
// brings along; signals are one of our own.

namespace ombrix::platform {

namespace {

// Set by each signal that has ended a wait.
bool signalArrived = false;

// A queue of the kernel's in which it notes the signals that arrive, as a source of the run loop.
// Their handlers run beside it, undisturbed (kqueue(2), EVFILT_SIGNAL).
class SignalSource {
 public:
  SignalSource() : queue(::kqueue()) {
    if (!attach()) systemLog("Signals are heard only when something else ends the wait.");
  }
  SignalSource(const SignalSource&) = delete;
  SignalSource& operator=(const SignalSource&) = delete;

  static SignalSource& instance() {
    static SignalSource theOne;
    return theOne;
  }

  void add(int signalNumber) const {
    struct kevent change {};
    EV_SET(&change, static_cast<uintptr_t>(signalNumber), EVFILT_SIGNAL, EV_ADD, 0, 0, nullptr);
    // Refused for a signal that nobody can handle either.
    ::kevent(queue.get(), &change, 1, nullptr, 0, nullptr);
  }

 private:
  bool attach() {
    if (!queue.valid()) return false;
    const CFFileDescriptorContext context{0, this, nullptr, nullptr, nullptr};
    constexpr Boolean closeOnInvalidate = false;
    descriptor.reset(CFFileDescriptorCreate(kCFAllocatorDefault, queue.get(), closeOnInvalidate,
                                            &readable, &context));
    if (!descriptor) return false;
    enable();
    const CFOwner<CFRunLoopSourceRef> source(
        CFFileDescriptorCreateRunLoopSource(kCFAllocatorDefault, descriptor.get(), 0));
    if (source) CFRunLoopAddSource(CFRunLoopGetMain(), source.get(), kCFRunLoopCommonModes);
    return source != nullptr;
  }

  // Fires once, until enabled again.
  void enable() const {
    CFFileDescriptorEnableCallBacks(descriptor.get(), kCFFileDescriptorReadCallBack);
  }

  static void readable(CFFileDescriptorRef /*descriptor*/, CFOptionFlags /*kinds*/, void* source) {
    static_cast<SignalSource*>(source)->drain();
  }

  void drain() {
    constexpr timespec atOnce{};
    std::array<struct kevent, 8> events{};
    while (::kevent(queue.get(), nullptr, 0, events.data(), events.size(), &atOnce) > 0) {
    }
    signalArrived = true;
    enable();
  }

  FileDescriptor queue;
  CFFileDescriptorOwner descriptor;  // after the queue, so that it ends before that is closed
};

}  // namespace

bool runLoopRunOnce(std::chrono::milliseconds limit) {
  const AutoreleasePool pool;
  // The kernel queues a signal before it delivers it, so that a wait may have ended a moment before
  // the handler ran. Whoever looked for the handler's trace too early looks again at once.
  if (std::exchange(signalArrived, false)) limit = std::chrono::milliseconds{0};
  const double seconds = std::chrono::duration<double>(limit).count();
  constexpr Boolean returnAfterSourceHandled = true;
  return CFRunLoopRunInMode(kCFRunLoopDefaultMode, seconds, returnAfterSourceHandled) !=
         kCFRunLoopRunFinished;
}

void endWaitOnSignal(int signalNumber) { SignalSource::instance().add(signalNumber); }

}  // namespace ombrix::platform
