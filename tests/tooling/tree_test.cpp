// The printed tree written from a layout and values: the library's printed form of the registered
// record byte for byte, names beside codes, and the cut to what is set.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <memory>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "Names.h"
#include "PathForm.h"
#include "Tile.h"
#include "TreeText.h"
#include "compiler/arch_spec/Constructs.h"
#include "small_layout.h"
#include "tile_cases.h"

namespace archspec {
namespace {

using zu::spec::ArchVersion;
using zu::spec::BaseConstruct;

// The lines of `text`, each without its "\n".
std::vector<std::string_view> LinesOf(std::string_view text) {
  std::vector<std::string_view> lines;
  while (!text.empty()) {
    const size_t end = std::min(text.find('\n'), text.size());
    lines.push_back(text.substr(0, end));
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  return lines;
}

// The references the writer is held to, taken from the library's print of the registered record
// as the tool used to finish it: a leaf's line found by the offset it prints, and the cut made on
// the text, a record's or array's lines kept where a non-zero leaf's line below them is.
std::string NamedByOffset(std::string_view tree, const Naming& names,
                          const std::vector<uint64_t>& values) {
  std::string out;
  for (const std::string_view line : LinesOf(tree)) {
    out.append(line);
    const size_t at = line.rfind("[0x");
    if (at != std::string_view::npos) {
      const auto offset =
          static_cast<uint32_t>(std::stoul(std::string(line.substr(at + 3, 4)), nullptr, 16));
      const size_t leaf = names.layout().LeafAtBit(offset).value();
      const std::string_view name = names.ShownName(leaf, values[leaf]);
      if (!name.empty()) {
        out.append(" (").append(name).append(")");
      } else if (names.TypeOf(leaf) != nullptr && values[leaf] != 0) {
        out.append(" (not a code of ").append(names.TypeOf(leaf)->name()).append(")");
      }
    }
    out += '\n';
  }
  return out;
}

std::string CutByText(std::string_view tree) {
  std::string out;
  std::vector<std::pair<std::string_view, bool>> open;  // a line, and whether it is written
  for (const std::string_view line : LinesOf(tree)) {
    const std::string_view text = line.substr(line.find_first_not_of(' '));
    if (text.back() == '{' || text.back() == '[') {
      open.emplace_back(line, open.empty());
      if (open.size() == 1) out.append(line).append("\n");
    } else if (text.front() == '}' || text.front() == ']') {
      if (open.back().second) out.append(line).append("\n");
      open.pop_back();
    } else if (text.find(" 0x0 ") == std::string_view::npos && !text.ends_with(" 0x0")) {
      for (auto& [above, written] : open) {
        if (!written) out.append(above).append("\n");
        written = true;
      }
      out.append(line).append("\n");
    }
  }
  return out;
}

class TreeTest : public testing::TestWithParam<TileCase> {
 protected:
  void SetUp() override {
    BaseConstruct::external_storage_.clear();
    std::string error;
    record_ =
        TileRecord::Create(ArchVersion::expect_parse(GetParam().arch, error), *GetParam().tile);
    ASSERT_NE(record_, nullptr) << error;
    names_ = Naming::Of(*record_);
    ASSERT_NE(names_, nullptr);
  }
  void TearDown() override { BaseConstruct::external_storage_.clear(); }

  // Values of which one in `one_in` is not zero: half of those a code of the leaf's type, where
  // it has one that fits, the others any bits of its width.
  std::vector<uint64_t> RandomValues(uint64_t seed, unsigned one_in) const {
    std::mt19937_64 random(seed);
    const std::vector<Leaf>& leaves = record_->layout().leaves();
    std::vector<uint64_t> values(leaves.size(), 0);
    for (size_t i = 0; i < leaves.size(); ++i) {
      if (random() % one_in != 0) continue;
      values[i] = random() & MaxValue(leaves[i].width);
      const Enumeration* type = names_->TypeOf(i);
      if (type != nullptr && random() % 2 == 0) {
        const EnumName& name = type->names()[random() % type->names().size()];
        if (name.code <= MaxValue(leaves[i].width)) values[i] = name.code;
      }
    }
    return values;
  }

  std::unique_ptr<TileRecord> record_;
  const Naming* names_ = nullptr;
};

TEST_P(TreeTest, IsTheRegisteredPrintWithNamesBesideCodes) {
  for (const unsigned one_in : {1u, 8u}) {
    const std::vector<uint64_t> values = RandomValues(record_->layout().bits() + one_in, one_in);
    const std::string printed = record_->WriteTree(values);
    const Layout& layout = record_->layout();
    EXPECT_EQ(WriteTree(layout, values, nullptr, false), printed);
    const std::string named = NamedByOffset(printed, *names_, values);
    EXPECT_EQ(WriteTree(layout, values, names_, false), named);
    EXPECT_EQ(WriteTree(layout, values, nullptr, true), CutByText(printed));
    EXPECT_EQ(WriteTree(layout, values, names_, true), CutByText(named));
  }
}

INSTANTIATE_TEST_SUITE_P(AllTiles, TreeTest, testing::ValuesIn(AllTileCases()), CaseName);

// Element 0 of an array prints first though it lies last in the bits; a record in an array is
// labelled by its index; a wide leaf names both its registers.
TEST(WriteTree, PrintsArraysFromElementZeroAndCutsToWhatIsSet) {
  const Layout layout = SmallLayout();
  const std::vector<uint64_t> values = {0x1f, 0, 0, 1, 0, 0xfedcba9876543210, 0};
  EXPECT_EQ(WriteTree(layout, values, nullptr, false),
            "{\n"
            "  stage_opcode = [0x0000:0]/5 0x1f\n"
            "  lanes = [\n"
            "    0: [\n"
            "      1: {\n"
            "        sel = [0x0005:1]/6 0x0\n"
            "      }\n"
            "    ]/6\n"
            "  ]/6\n"
            "  mask = [\n"
            "    0: [0x000d:4]/1 0x0\n"
            "    1: [0x000c:3]/1 0x1\n"
            "    2: [0x000b:2]/1 0x0\n"
            "  ]/3\n"
            "  base = [0x000e:5-6]/64 0xfedcba9876543210\n"
            "  tail = [0x004e:7]/2 0x0\n"
            "}\n");
  EXPECT_EQ(WriteTree(layout, values, nullptr, true),
            "{\n"
            "  stage_opcode = [0x0000:0]/5 0x1f\n"
            "  mask = [\n"
            "    1: [0x000c:3]/1 0x1\n"
            "  ]/3\n"
            "  base = [0x000e:5-6]/64 0xfedcba9876543210\n"
            "}\n");
  // A missing value is 0; the tile record's braces stand when nothing else does.
  EXPECT_EQ(WriteTree(layout, {}, nullptr, true), "{\n}\n");
}

// The line of leaf `leaf` holding `value`, up to what follows the value: "<name> = " in a record,
// "<index>: " in an array, then its place.
std::string LineOf(const Layout& layout, size_t leaf, uint64_t value) {
  const Leaf& l = layout.leaves()[leaf];
  std::string step(SplitLast(l.path).second);
  step = step.front() == '[' ? step.substr(1, step.size() - 2) + ": " : step + " = ";
  char place[96];
  std::snprintf(place, sizeof place, "[0x%04x:%u]/%u 0x%llx", l.offset, l.reg_lo, l.width,
                static_cast<unsigned long long>(value));
  return step + place;
}

// A typed leaf shows the name of its value, or says that a non-zero value is no code of its type;
// an untyped leaf, and a zero that no name has, show nothing beside the code.
TEST(WriteTree, NamesBesideCodes) {
  std::string error;
  const auto record =
      TileRecord::Create(ArchVersion::expect_parse("mk44", error), *FindTileType("pcu"));
  ASSERT_NE(record, nullptr) << error;
  const Naming& names = *Naming::Of(*record);
  const Layout& layout = record->layout();
  const size_t opcode = layout.Find("simd_structIn[0][1].stage_opcode").value();
  const size_t immediate = layout.Find("simd_structIn[0][1].stage_immediate").value();
  ASSERT_NE(names.TypeOf(opcode), nullptr);
  ASSERT_EQ(names.TypeOf(immediate), nullptr);
  // The first code of the opcode's type that no name has.
  uint64_t stray = 1;
  while (!names.NamesOf(opcode, stray).empty()) ++stray;
  ASSERT_LE(stray, MaxValue(layout.leaves()[opcode].width));

  std::vector<uint64_t> values(layout.leaves().size(), 0);
  values[immediate] = 7;
  values[opcode] = stray;
  const std::string tree = WriteTree(layout, values, &names, false);
  EXPECT_NE(tree.find(LineOf(layout, immediate, 7) + "\n"), std::string::npos);
  const std::string not_a_code = LineOf(layout, opcode, stray) + " (not a code of " +
                                 std::string(names.TypeOf(opcode)->name()) + ")\n";
  EXPECT_NE(tree.find(not_a_code), std::string::npos) << not_a_code;
  EXPECT_NE(WriteTree(layout, values, &names, true).find(not_a_code), std::string::npos);
  // Every other leaf holds 0: named where its type names 0, bare where it does not.
  for (size_t leaf = 0; leaf < layout.leaves().size(); ++leaf) {
    if (leaf == opcode || leaf == immediate) continue;
    const std::string_view name = names.ShownName(leaf, 0);
    const std::string line =
        LineOf(layout, leaf, 0) + (name.empty() ? "" : " (" + std::string(name) + ")") + "\n";
    ASSERT_NE(tree.find(line), std::string::npos) << line;
  }
}

}  // namespace
}  // namespace archspec
