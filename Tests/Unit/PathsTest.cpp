#include <gtest/gtest.h>

#include "Utilities/Paths.h"

namespace ombrix {
namespace {

TEST(Paths, LastComponentIsRemovedWithItsSlash) {
  struct Case {
    const char* path;
    const char* directory;
  };
  for (const Case& c :
       {Case{"/usr/bin/vim", "/usr/bin"}, Case{"/usr/bin/", "/usr"}, Case{"/vim", "/"},
        Case{"/", "/"}, Case{"vim", ""}, Case{"", ""}, Case{"/a//b", "/a"}, Case{"./a/b", "./a"}}) {
    EXPECT_EQ(deletingLastPathComponent(c.path), c.directory) << c.path;
  }
}

TEST(Paths, AppendingPutsOneSlashBetween) {
  struct Case {
    const char* directory;
    const char* path;
  };
  for (const Case& c :
       {Case{"/data", "/data/x"}, Case{"/data/", "/data/x"}, Case{"/data//", "/data/x"},
        Case{"/", "/x"}, Case{"", "x"}, Case{"./data/", "./data/x"}}) {
    EXPECT_EQ(appendingPathComponent(c.directory, "x"), c.path) << c.directory;
  }
}

TEST(Paths, NothingIsAppendedToNoDirectory) {
  EXPECT_EQ(appendingPathComponent(std::nullopt, "x"), std::nullopt);
}

}  // namespace
}  // namespace ombrix
