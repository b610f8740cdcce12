// The tree of `decode --nonzero`: the non-zero leaves and the records and arrays around them.
#include <gtest/gtest.h>

#include "TreeText.h"

namespace archspec {
namespace {

TEST(NonzeroTree, KeepsTheNonZeroLeavesAndWhatHoldsThem) {
  const char* tree =
      "{\n"
      "  a = [0x0000:0]/1 0x0\n"
      "  b = [\n"
      "    0: [0x0001:0]/1 0x1 (one)\n"
      "    1: [0x0002:0]/1 0x0 (zero)\n"
      "  ]/2\n"
      "  c = {\n"
      "    d = [0x0003:0]/1 0x0\n"
      "  }\n"
      "}\n";
  EXPECT_EQ(NonzeroTree(tree), "{\n  b = [\n    0: [0x0001:0]/1 0x1 (one)\n  ]/2\n}\n");
}

TEST(NonzeroTree, KeepsTheOutermostBracesOfAnAllZeroRecordAndToleratesStrayLines) {
  EXPECT_EQ(NonzeroTree("{\n  a = [0x0000:0]/1 0x0\n}\n"), "{\n}\n");
  EXPECT_EQ(NonzeroTree(""), "");
  EXPECT_EQ(NonzeroTree("}\n]\n  x = [0x0000:0]/1 0x5"), "  x = [0x0000:0]/1 0x5\n");
}

}  // namespace
}  // namespace archspec
