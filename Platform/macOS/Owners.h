#pragma once

#include <CoreFoundation/CoreFoundation.h>

#include <memory>
#include <type_traits>

// Owners of what the system's C interfaces hand out. An object from a Get function belongs to
// somebody else and has none.

extern "C" {
// The runtime's own entry points behind an autorelease pool (Clang's documentation of automatic
// reference counting, "Runtime support").
void* objc_autoreleasePoolPush();
void objc_autoreleasePoolPop(void* pool);
}

namespace ombrix::platform {

struct CFReleaser {
  void operator()(CFTypeRef object) const { CFRelease(object); }
};

// Owns one reference to an object that a Create or Copy function returned; may be null.
template <class Reference>
using CFOwner = std::unique_ptr<std::remove_pointer_t<Reference>, CFReleaser>;

struct CFFileDescriptorCloser {
  void operator()(CFFileDescriptorRef descriptor) const {
    CFFileDescriptorInvalidate(descriptor);
    CFRelease(descriptor);
  }
};

// Owns a CFFileDescriptor; takes it off its run loop before giving it back.
using CFFileDescriptorOwner =
    std::unique_ptr<std::remove_pointer_t<CFFileDescriptorRef>, CFFileDescriptorCloser>;

// Frees what Foundation leaves for its caller's pool. A program without pools would keep all of it
// to its end.
class AutoreleasePool {
 public:
  AutoreleasePool() : pool(objc_autoreleasePoolPush()) {}
  ~AutoreleasePool() { objc_autoreleasePoolPop(pool); }
  AutoreleasePool(const AutoreleasePool&) = delete;
  AutoreleasePool& operator=(const AutoreleasePool&) = delete;

 private:
  void* pool;
};

}  // namespace ombrix::platform
