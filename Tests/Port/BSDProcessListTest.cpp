#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <deque>
#include <limits>
#include <string>
#include <string_view>
#include <vector>

#include "Platform/BSDProcessList.h"

// AddressSanitizer aborts on a request that no machine can meet, unless it is told to refuse it as
// the machine itself does.
extern "C" const char* __asan_default_options() { return "allocator_may_return_null=1"; }

namespace ombrix::tests {

namespace {

using platform::BSDProcessList;
using platform::GetBSDProcessList;

// A kernel that answers by a script: the size queries and the fetches one after the other.
class ScriptedKernel {
 public:
  struct Answer {
    int error = 0;
    std::size_t length = 0;
    std::string_view bytes;
  };
  explicit ScriptedKernel(std::deque<Answer> answers) : answers(std::move(answers)) {}

  int operator()(void* buffer, std::size_t& length) {
    calls.push_back({buffer != nullptr, length});
    const Answer answer = answers.front();
    answers.pop_front();
    errno = answer.error;
    if (answer.error != 0) return -1;
    if (buffer != nullptr) std::memcpy(buffer, answer.bytes.data(), answer.bytes.size());
    length = buffer == nullptr ? answer.length : answer.bytes.size();
    return 0;
  }

  struct Call {
    bool withBuffer;
    std::size_t lengthBefore;
    bool operator==(const Call& other) const {
      return withBuffer == other.withBuffer && lengthBefore == other.lengthBefore;
    }
  };
  std::vector<Call> calls;
  std::deque<Answer> answers;
};

ScriptedKernel::Answer sizeOf(std::size_t length) { return {0, length, {}}; }
ScriptedKernel::Answer filled(std::string_view bytes) { return {0, 0, bytes}; }
ScriptedKernel::Answer failed(int error) { return {error, 0, {}}; }

bool fetch(ScriptedKernel& kernel, BSDProcessList& list) {
  return GetBSDProcessList(
      [&kernel](void* buffer, std::size_t& length) { return kernel(buffer, length); }, list);
}

std::string textOf(const BSDProcessList& list) {
  return {reinterpret_cast<const char*>(list.bytes.get()), list.length};
}

void expectFailure(ScriptedKernel kernel) {
  BSDProcessList list;
  EXPECT_FALSE(fetch(kernel, list));
  EXPECT_EQ(list.bytes, nullptr);
  EXPECT_EQ(list.length, 0U);
  EXPECT_TRUE(kernel.answers.empty());
}

}  // namespace

TEST(BSDProcessList, AsksForTheSizeAndFetchesExactlyThatMuch) {
  ScriptedKernel kernel({sizeOf(6), filled("abcdef")});
  BSDProcessList list;

  ASSERT_TRUE(fetch(kernel, list));

  EXPECT_EQ(textOf(list), "abcdef");
  const std::vector<ScriptedKernel::Call> expected = {{false, 0}, {true, 6}};
  EXPECT_EQ(kernel.calls, expected);
}

TEST(BSDProcessList, IsAsLongAsTheKernelFilledIt) {
  ScriptedKernel kernel({sizeOf(10), filled("abcdef")});
  BSDProcessList list;
  ASSERT_TRUE(fetch(kernel, list));
  EXPECT_EQ(list.length, 6U);
}

TEST(BSDProcessList, MayBeEmpty) {
  ScriptedKernel kernel({sizeOf(0), filled("")});
  BSDProcessList list;
  ASSERT_TRUE(fetch(kernel, list));
  EXPECT_EQ(list.length, 0U);
}

TEST(BSDProcessList, BeginsAnewWhenTheListGrewBetweenTheCalls) {
  ScriptedKernel kernel({sizeOf(3), failed(ENOMEM), sizeOf(6), filled("abcdef")});
  BSDProcessList list;

  ASSERT_TRUE(fetch(kernel, list));

  EXPECT_EQ(textOf(list), "abcdef");
  const std::vector<ScriptedKernel::Call> expected = {{false, 0}, {true, 3}, {false, 0}, {true, 6}};
  EXPECT_EQ(kernel.calls, expected);
}

TEST(BSDProcessList, BeginsAnewAsOftenAsTheListGrows) {
  constexpr int growths = 10'000;
  std::deque<ScriptedKernel::Answer> answers;
  for (int growth = 0; growth < growths; ++growth) {
    answers.push_back(sizeOf(3));
    answers.push_back(failed(ENOMEM));
  }
  answers.push_back(sizeOf(6));
  answers.push_back(filled("abcdef"));
  ScriptedKernel kernel(std::move(answers));
  BSDProcessList list;

  ASSERT_TRUE(fetch(kernel, list));

  EXPECT_EQ(textOf(list), "abcdef");
  EXPECT_EQ(kernel.calls.size(), 2U * (growths + 1));
}

TEST(BSDProcessList, FailsWhenTheSizeIsRefused) {
  for (const int error : {EPERM, EINVAL, ENOMEM}) expectFailure(ScriptedKernel({failed(error)}));
}

TEST(BSDProcessList, FailsWhenTheFetchIsRefused) {
  for (const int error : {EPERM, EINVAL, EFAULT}) {
    expectFailure(ScriptedKernel({sizeOf(6), failed(error)}));
  }
}

TEST(BSDProcessList, FailsWhenALaterPassFails) {
  expectFailure(ScriptedKernel({sizeOf(6), failed(ENOMEM), failed(EPERM)}));
  expectFailure(ScriptedKernel({sizeOf(6), failed(ENOMEM), sizeOf(8), failed(EPERM)}));
}

TEST(BSDProcessList, FailsWithoutAFetchWhenThereIsNoMemory) {
  constexpr std::size_t moreThanThereIs = std::numeric_limits<std::ptrdiff_t>::max();
  expectFailure(ScriptedKernel({sizeOf(moreThanThereIs)}));
}

TEST(BSDProcessList, TakesAnErrorFromTheResultItself) {
  BSDProcessList list;
  int calls = 0;
  EXPECT_FALSE(GetBSDProcessList(
      [&calls](void* /*buffer*/, std::size_t& /*length*/) {
        ++calls;
        errno = 0;
        return EPERM;
      },
      list));
  EXPECT_EQ(calls, 1);
}

TEST(BSDProcessList, AnErrorOfEarlierIsNoFailure) {
  ScriptedKernel kernel({sizeOf(6), filled("abcdef")});
  BSDProcessList list;
  errno = EPERM;
  EXPECT_TRUE(fetch(kernel, list));
}

TEST(BSDProcessListDeathTest, AbortsWhenABufferIsHeldAtTheTopOfAPass) {
  ScriptedKernel kernel({sizeOf(6), filled("abcdef"), sizeOf(6), filled("abcdef")});
  BSDProcessList list;
  ASSERT_TRUE(fetch(kernel, list));
  EXPECT_DEATH(static_cast<void>(fetch(kernel, list)), "result == NULL");
}

}  // namespace ombrix::tests
