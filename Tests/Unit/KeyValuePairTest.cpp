#include <gtest/gtest.h>

#include "Utilities/Containers/KeyValuePair.h"

namespace ombrix {
namespace {

// Two pairs are equal only when they are the same object, so comparing them is nobody's business.
template <class Type>
concept HasEquality = requires(const Type& one, const Type& other) {
  one == other;
};
static_assert(!HasEquality<KeyValuePair>);

TEST(KeyValuePair, TakesTheKeyFirstAndTheValueSecond) {
  const KeyValuePair pair("key", "value");

  EXPECT_EQ(pair.key(), "key");
  EXPECT_EQ(pair.value(), "value");
}

TEST(KeyValuePair, ANewKeyLeavesTheValueAlone) {
  KeyValuePair pair("key", "value");

  pair.setKey("other");

  EXPECT_EQ(pair.key(), "other");
  EXPECT_EQ(pair.value(), "value");
}

TEST(KeyValuePair, ANewValueLeavesTheKeyAlone) {
  KeyValuePair pair("key", "value");

  pair.setValue("other");

  EXPECT_EQ(pair.key(), "key");
  EXPECT_EQ(pair.value(), "other");
}

TEST(KeyValuePair, EitherMayBeAbsentWhichIsNotEmpty) {
  KeyValuePair pair(std::nullopt, "");
  EXPECT_EQ(pair.key(), std::nullopt);
  EXPECT_EQ(pair.value(), "");

  pair.setValue(std::nullopt);
  EXPECT_EQ(pair.value(), std::nullopt);
}

}  // namespace
}  // namespace ombrix
