// Changes between configurations: a listing read as a change sets only what it names, and the
// listing written for two configurations turns the first into the second.
#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "Delta.h"
#include "Sparse.h"
#include "small_layout.h"

namespace archspec {
namespace {

TEST(ApplyDelta, SetsTheNamedLeavesZeroIncludedAndKeepsTheRest) {
  const Layout layout = SmallLayout();
  const SparseResult delta = ReadSparse("base = 0\nstage_opcode = op_add\n", layout, Names);
  ASSERT_TRUE(delta.ok()) << Errors(delta);
  const std::vector<uint64_t> config = {7, 5, 1, 1, 1, 99, 3};
  EXPECT_EQ(ApplyDelta(config, delta), (std::vector<uint64_t>{3, 5, 1, 1, 1, 0, 3}));
  // An empty listing changes nothing.
  EXPECT_EQ(ApplyDelta(config, ReadSparse("# nothing\n", layout, Names)), config);
}

TEST(CompareConfigurations, ListsTheDifferingLeavesInBitOrder) {
  const std::vector<LeafChange> changes =
      CompareConfigurations({1, 2, 3, 4, 5, 6, 7}, {1, 0, 3, 4, 5, 6, 8});
  ASSERT_EQ(changes.size(), 2u);
  EXPECT_EQ(changes[0].leaf, 1u);
  EXPECT_EQ(changes[0].from, 2u);
  EXPECT_EQ(changes[0].to, 0u);
  EXPECT_EQ(changes[1].leaf, 6u);
  EXPECT_EQ(WriteDelta(SmallLayout(), changes, {"archspec mk43 pcu"}),
            "# archspec mk43 pcu\nlanes[0][1].sel = 0x0\ntail = 0x8\n");
}

TEST(CompareConfigurations, AValueMissingFromTheShorterIsZero) {
  // Longer on either side: a missing value equal to 0 is no change, any other is one from or to 0.
  for (const bool first_shorter : {true, false}) {
    const std::vector<uint64_t> shorter = {1, 2};
    const std::vector<uint64_t> longer = {1, 2, 0, 5};
    const std::vector<LeafChange> changes = first_shorter ? CompareConfigurations(shorter, longer)
                                                          : CompareConfigurations(longer, shorter);
    ASSERT_EQ(changes.size(), 1u);
    EXPECT_EQ(changes[0].leaf, 3u);
    EXPECT_EQ(changes[0].from, first_shorter ? 0u : 5u);
    EXPECT_EQ(changes[0].to, first_shorter ? 5u : 0u);
  }
  EXPECT_TRUE(CompareConfigurations({}, {0, 0, 0}).empty());
  EXPECT_EQ(CompareConfigurations({}, {0, 0, 9}).size(), 1u);
  EXPECT_EQ(CompareConfigurations({0, 0, 9}, {}).at(0).leaf, 2u);
}

// For any two configurations, the written change applied to the first gives the second: leaves
// that go to zero included, leaves that stay untouched.
TEST(WriteDelta, PatchesTheFirstConfigurationIntoTheSecond) {
  const Layout layout = SmallLayout();
  std::mt19937_64 random(7);
  const auto random_config = [&](const std::vector<uint64_t>& like) {
    std::vector<uint64_t> values;
    for (size_t i = 0; i < layout.leaves().size(); ++i) {
      // Half the leaves keep the value of `like`, a quarter become 0, a quarter random.
      const uint64_t pick = random() % 4;
      const uint64_t fresh = random() & MaxValue(layout.leaves()[i].width);
      values.push_back(pick < 2 && !like.empty() ? like[i] : pick == 2 ? 0 : fresh);
    }
    return values;
  };
  for (int round = 0; round < 200; ++round) {
    const std::vector<uint64_t> a = random_config({});
    const std::vector<uint64_t> b = random_config(a);
    const std::string delta = WriteDelta(layout, CompareConfigurations(a, b));
    const SparseResult read = ReadSparse(delta, layout, nullptr);
    ASSERT_TRUE(read.ok()) << Errors(read) << delta;
    ASSERT_EQ(ApplyDelta(a, read), b) << delta;
  }
}

}  // namespace
}  // namespace archspec
