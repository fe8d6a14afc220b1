#include <fcntl.h>
#include <gtest/gtest.h>

#include <utility>

#include "Platform/FileDescriptor.h"

namespace ombrix::tests {

namespace {

using platform::FileDescriptor;

int openSomething() { return ::open("/dev/null", O_RDONLY | O_CLOEXEC); }

bool isOpen(int descriptor) { return ::fcntl(descriptor, F_GETFD) != -1; }

}  // namespace

TEST(FileDescriptor, ClosesWhatItOwns) {
  const int number = openSomething();
  { const FileDescriptor owner(number); }
  EXPECT_FALSE(isOpen(number));
}

TEST(FileDescriptor, OwnsNothingAtFirst) {
  FileDescriptor owner;
  EXPECT_FALSE(owner.valid());
  EXPECT_TRUE(owner.close());
}

TEST(FileDescriptor, HandsItsDescriptorOnWhenMoved) {
  FileDescriptor first(openSomething());
  const int number = first.get();

  const FileDescriptor second(std::move(first));

  EXPECT_EQ(second.get(), number);
  EXPECT_TRUE(isOpen(number));
}

TEST(FileDescriptor, KeepsNothingOfWhatItReleases) {
  FileDescriptor owner(openSomething());
  const FileDescriptor other(owner.release());
  EXPECT_FALSE(owner.valid());
  EXPECT_TRUE(isOpen(other.get()));
}

TEST(FileDescriptor, ClosesItsOldDescriptorWhenGivenAnother) {
  const int old = openSomething();
  {
    FileDescriptor owner(old);
    owner = FileDescriptor(openSomething());
    EXPECT_TRUE(isOpen(owner.get()));
  }
  EXPECT_FALSE(isOpen(old));
}

TEST(FileDescriptor, SaysWhenClosingFails) {
  const int number = openSomething();
  FileDescriptor owner(number);
  ::close(number);
  EXPECT_FALSE(owner.close());
}

}  // namespace ombrix::tests
