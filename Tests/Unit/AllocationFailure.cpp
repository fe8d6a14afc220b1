#include "Tests/Unit/AllocationFailure.h"

#include <cstdlib>
#include <new>
#include <utility>

namespace ombrix::tests {

namespace {

const AllocationFailure::Meant* question = nullptr;
bool* answer = nullptr;

bool isToFail(std::size_t bytes) {
  if (question == nullptr) return false;
  const AllocationFailure::Meant* const asked = std::exchange(question, nullptr);
  if (!(*asked)(bytes)) {
    question = asked;
    return false;
  }
  *answer = true;
  return true;
}

}  // namespace

AllocationFailure::AllocationFailure(Meant meant) : meant(std::move(meant)) {
  question = &this->meant;
  answer = &failed;
}

AllocationFailure::~AllocationFailure() {
  question = nullptr;
  answer = nullptr;
}

AllocationFailure::Meant ofExactly(std::size_t bytes) {
  return [bytes](std::size_t asked) { return asked == bytes; };
}

AllocationFailure::Meant ofAtLeast(std::size_t bytes) {
  return [bytes](std::size_t asked) { return asked >= bytes; };
}

AllocationFailure::Meant theNth(std::size_t number) {
  return [number, count = std::size_t{0}](std::size_t) mutable { return ++count == number; };
}

namespace {

void* allocateOrNull(std::size_t bytes) {
  if (isToFail(bytes)) return nullptr;
  return std::malloc(bytes == 0 ? 1 : bytes);
}

// As the standard has it: what has failed is tried again for as long as somebody can help.
void* allocate(std::size_t bytes) {
  for (;;) {
    void* const memory = allocateOrNull(bytes);
    if (memory != nullptr) return memory;
    const std::new_handler helper = std::get_new_handler();
    if (helper == nullptr) throw std::bad_alloc();
    helper();
  }
}

}  // namespace

}  // namespace ombrix::tests

// All forms are replaced together: a sanitizer takes a mixture of its own and ours for a mistake.
void* operator new(std::size_t bytes) { return ombrix::tests::allocate(bytes); }
void* operator new[](std::size_t bytes) { return ombrix::tests::allocate(bytes); }
void* operator new(std::size_t bytes, const std::nothrow_t&) noexcept {
  return ombrix::tests::allocateOrNull(bytes);
}
void* operator new[](std::size_t bytes, const std::nothrow_t&) noexcept {
  return ombrix::tests::allocateOrNull(bytes);
}
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete[](void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }
void operator delete[](void* memory, std::size_t) noexcept { std::free(memory); }
void operator delete(void* memory, const std::nothrow_t&) noexcept { std::free(memory); }
void operator delete[](void* memory, const std::nothrow_t&) noexcept { std::free(memory); }
