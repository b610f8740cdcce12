// The tool's view of the library: tile layouts against what the records build, the three file
// forms, and accessors read without ever calling one a generation does not answer.
#include <gtest/gtest.h>

#include <memory>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "AccessorsJson.h"
#include "Sparse.h"
#include "Tile.h"
#include "compiler/arch_spec/ArchSpec.h"
#include "compiler/arch_spec/Constructs.h"
#include "compiler/arch_spec/gen/ArchConstants.h"
#include "tile_cases.h"

namespace archspec {
namespace {

using zu::spec::ArchSpec;
using zu::spec::ArchVersion;
using zu::spec::BaseConstruct;

// Each test registers one record from id 0; the table of field locations is process-wide, so it
// is emptied first (the records of earlier tests are gone by then).
class TileTest : public testing::TestWithParam<TileCase> {
 protected:
  void SetUp() override {
    BaseConstruct::external_storage_.clear();
    std::string error;
    version_ = ArchVersion::expect_parse(GetParam().arch, error);
    ASSERT_NE(version_.major, 0) << error;
    record_ = TileRecord::Create(version_, *GetParam().tile);
    ASSERT_NE(record_, nullptr);
  }
  void TearDown() override {
    record_.reset();
    BaseConstruct::external_storage_.clear();
  }

  // Values that differ leaf to leaf and fill each leaf's width.
  std::vector<uint64_t> RandomValues(unsigned seed) const {
    std::mt19937_64 random(seed);
    std::vector<uint64_t> values;
    for (const Leaf& leaf : record_->layout().leaves())
      values.push_back(random() & MaxValue(leaf.width));
    return values;
  }

  ArchVersion version_;
  std::unique_ptr<TileRecord> record_;
};

TEST_P(TileTest, LeavesTileTheRecordInBitOrderWithUniquePathsAndRegisters) {
  const Layout& layout = record_->layout();
  uint32_t next_bit = 0;
  uint32_t next_reg = 0;
  std::set<std::string> paths;
  for (const Leaf& leaf : layout.leaves()) {
    ASSERT_EQ(leaf.offset, next_bit) << leaf.path;
    ASSERT_GE(leaf.width, 1u);
    ASSERT_LE(leaf.width, 64u);
    next_bit += leaf.width;
    // Registers run in bit order; a leaf above 32 bits takes two, low word first.
    ASSERT_EQ(leaf.reg_lo, next_reg) << leaf.path;
    ASSERT_EQ(leaf.reg_hi.has_value(), leaf.width > 32) << leaf.path;
    next_reg += leaf.reg_hi.has_value() ? 2 : 1;
    if (leaf.reg_hi.has_value()) {
      ASSERT_EQ(*leaf.reg_hi, leaf.reg_lo + 1);
    }
    // Paths start at the first field: the root has no name.
    ASSERT_FALSE(leaf.path.empty());
    ASSERT_NE(leaf.path.front(), '.') << leaf.path;
    ASSERT_TRUE(paths.insert(leaf.path).second) << "two leaves named " << leaf.path;
  }
  EXPECT_EQ(next_bit, layout.bits());
}

// From the tile's record down through records' members and arrays' elements, the branches reach
// every leaf once, and nothing else.
TEST_P(TileTest, BranchesLeadToEveryLeaf) {
  const Layout& layout = record_->layout();
  std::vector<std::string> open = {""};
  size_t leaves = 0;
  while (!open.empty()) {
    const std::string path = open.back();
    open.pop_back();
    const Branch* branch = layout.FindBranch(path);
    ASSERT_NE(branch, nullptr) << path;
    EXPECT_EQ(layout.leaves()[branch->first_leaf].path.rfind(path, 0), 0u) << path;
    std::vector<std::string> members;
    if (branch->array) {
      EXPECT_TRUE(branch->members.empty()) << path;
      for (uint32_t i = 0; i < branch->elements; ++i) {
        members.push_back(path + "[" + std::to_string(i) + "]");
      }
    } else {
      for (const std::string& m : branch->members)
        members.push_back(path.empty() ? m : path + "." + m);
    }
    for (const std::string& member : members) {
      if (layout.Find(member).has_value()) {
        ++leaves;
        EXPECT_EQ(layout.FindBranch(member), nullptr) << member;
      } else {
        open.push_back(member);
      }
    }
  }
  EXPECT_EQ(leaves, layout.leaves().size());
}

TEST_P(TileTest, EachLeafHoldsItsValueAtItsOffsetMostSignificantFirst) {
  const std::vector<uint64_t> values = RandomValues(1);
  const std::string bits = record_->WriteBits(values);
  ASSERT_EQ(bits.size(), record_->layout().bits());
  const std::vector<Leaf>& leaves = record_->layout().leaves();
  for (size_t i = 0; i < leaves.size(); ++i) {
    uint64_t seen = 0;
    for (uint32_t k = 0; k < leaves[i].width; ++k)
      seen = seen << 1 | (bits[leaves[i].offset + k] == '1');
    ASSERT_EQ(seen, values[i]) << leaves[i].path;
  }
}

// The tile's values move through its layout; the record's own Parse, Walk and Build agree.
TEST_P(TileTest, ValuesMoveAsTheRecordMovesThem) {
  const std::vector<uint64_t> values = RandomValues(3);
  const std::string bits = record_->WriteBits(values);
  std::unique_ptr<BaseConstruct> record = record_->record_class().make();
  size_t position = 0;
  record->Parse(bits, &position);
  std::vector<uint64_t> walked;
  const BaseConstruct& view = *record;
  view.Walk(
      [&walked](const zu::spec::BitsIntegerBase& leaf) { walked.push_back(leaf.ToNumber()); });
  EXPECT_EQ(walked, values);
  zu::spec::ConfigBuilder built;
  record->Build(built);
  EXPECT_EQ(built.to_string(), bits);
  EXPECT_EQ(record_->ReadBits(bits), values);
}

TEST_P(TileTest, BitsBytesAndListingsRoundTrip) {
  const std::vector<uint64_t> values = RandomValues(2);
  const std::string bits = record_->WriteBits(values);
  EXPECT_EQ(record_->ReadBits(bits), values);

  // Bytes are the bits packed eight to a byte, the last one padded with zeros.
  const std::vector<uint8_t> bytes = record_->WriteBytes(values);
  ASSERT_EQ(bytes.size(), (bits.size() + 7) / 8);
  std::string unpacked;
  zu::spec::bytes2bits(bytes, &unpacked);
  EXPECT_EQ(unpacked.substr(0, bits.size()), bits);
  EXPECT_EQ(unpacked.substr(bits.size()), std::string(unpacked.size() - bits.size(), '0'));

  const std::string listing =
      WriteSparse(record_->layout(), values, {record_->ListingHeaderLine()});
  const SparseResult back = ReadSparse(listing, record_->layout(), nullptr);
  ASSERT_TRUE(back.ok());
  EXPECT_EQ(back.values, values);
  // The header names this tile and generation, and no other.
  EXPECT_FALSE(CheckListingHeader(back.header, GetParam().arch, GetParam().tile->name).has_value());
  EXPECT_TRUE(CheckListingHeader(back.header, GetParam().arch, "no_tile").has_value());
}

TEST_P(TileTest, TreeIsTheLibrarysPrintedFormOfTheRegisteredRecord) {
  std::vector<uint64_t> values(record_->layout().leaves().size(), 0);
  values.back() = 1;
  const std::string tree = record_->WriteTree(values);
  EXPECT_EQ(tree.rfind("{\n", 0), 0u);
  EXPECT_EQ(tree.substr(tree.size() - 2), "}\n");
  // Registered leaves print their place; none falls back to the unregistered form.
  EXPECT_EQ(tree.find("[0x0000]/0 "), std::string::npos);
  const Leaf& last = record_->layout().leaves().back();
  char line[64];
  std::snprintf(line, sizeof line, "[0x%04x:%u]/%u 0x1\n", last.offset, last.reg_lo, last.width);
  EXPECT_NE(tree.find(line), std::string::npos) << line;
}

INSTANTIATE_TEST_SUITE_P(AllTiles, TileTest, testing::ValuesIn(AllTileCases()), CaseName);

TEST(TileNames, AcceptTheTilesInAnyCase) {
  ASSERT_NE(FindTileType("PCU"), nullptr);
  EXPECT_STREQ(FindTileType("PCU")->record, "pcu_config_struct");
  EXPECT_STREQ(FindTileType("switch")->name, "switch");
  EXPECT_EQ(FindTileType("agu"), nullptr);
  EXPECT_EQ(TileNames(), "pcu, pmu, switch and agcu");
  EXPECT_EQ(GenerationLabel(ArchVersion::v2_1_0), "mk42 (uko)");
  EXPECT_EQ(RecordNamespace(ArchVersion::v2_1_0), "ko");
  EXPECT_EQ(RecordNamespace(ArchVersion::v5_0_0), "");
}

// Accessors are read through the generation in force, which is chosen once per process.
class AccessorTest : public testing::TestWithParam<const char*> {
 protected:
  void SetUp() override {
    ArchSpec::reset();
    std::string error;
    version_ = ArchVersion::expect_parse(GetParam(), error);
    ArchSpec::set_arch(version_);
  }
  void TearDown() override { ArchSpec::reset(); }
  ArchVersion version_;
};

TEST_P(AccessorTest, EveryAnsweredAccessorReads) {
  // Reaching the end proves that no unanswered constants accessor was called: that would have
  // ended the process.
  size_t answered = 0;
  for (const Accessor& accessor : AllAccessors()) {
    if (!IsAnswered(accessor, version_)) continue;
    ++answered;
    const nlohmann::json value = ReadAccessor(accessor);
    if (accessor.kind == AccessorKind::kEnum || accessor.kind == AccessorKind::kScalar) {
      ASSERT_TRUE(value.is_number() || value.is_boolean()) << accessor.name;
    }
    // The forms of programs outside the project, which see no JSON value: the same value.
    const std::string json = ValueJson(accessor);
    ASSERT_EQ(nlohmann::json::parse(json), value) << accessor.name;
    ASSERT_EQ(ValueText(accessor), value.is_null() ? "none" : json) << accessor.name;
  }
  EXPECT_GT(answered, 3000u);
}

TEST_P(AccessorTest, ReadsByNameWhatTheInterfaceAnswers) {
  const Accessor& max = *FindAccessor("stage_opcode_alu_op_max");
  const uint64_t code = zu::spec::arch_constants()->stage_opcode_alu_op_max().ToNumber();
  EXPECT_EQ(ValueText(max), std::to_string(code));
  // Another generation's own objects answer beside the chosen one.
  for (const zu::spec::GenerationRow& row : zu::spec::GenerationTable()) {
    if (!row.has_answers() || row.version == version_) continue;
    const OwnedAnswers other(row);
    EXPECT_EQ(ValueText(max, other.answers()),
              std::to_string(other.answers().constants->stage_opcode_alu_op_max().ToNumber()))
        << row.product_name;
  }
  const Accessor& fp8 = *FindAccessor("fp8_support");
  EXPECT_EQ(ValueJson(fp8), zu::spec::arch_features()->fp8_support() ? "true" : "false");
}

TEST_P(AccessorTest, EnumerantNamesResolveToTheirCodesOrSayWhyNot) {
  const NamedValue madd = ResolveEnumerant("stage_opcode_alu_op_max");
  ASSERT_TRUE(madd.value.has_value()) << madd.error;
  EXPECT_EQ(*madd.value, zu::spec::arch_constants()->stage_opcode_alu_op_max().ToNumber());

  EXPECT_EQ(ResolveEnumerant("stage_opcode_alu_op_mx").error,
            "no enumerant named stage_opcode_alu_op_mx; did you mean stage_opcode_alu_op_max?");
  EXPECT_EQ(ResolveEnumerant("ag_addr_width").error,
            "ag_addr_width is a parameter, not an enumerant: write its value as a number");
  const NamedValue fp8 = ResolveEnumerant("alu_format_enum_fp8_143a");
  if (version_ == ArchVersion::v4_0_0) {
    EXPECT_TRUE(fp8.value.has_value());
  } else {
    EXPECT_EQ(fp8.error,
              "enumerant alu_format_enum_fp8_143a is not answered by " + GenerationLabel(version_));
  }
}

TEST_P(AccessorTest, ListingsSearchForHintsForTheFirstUnknownNamesOnly) {
  const NamedValue lazy = EnumerantResolver()("stage_opcode_alu_op_mx", 0);
  EXPECT_EQ(lazy.error, "no enumerant named stage_opcode_alu_op_mx");
  ASSERT_TRUE(lazy.nearest);
  EXPECT_EQ(lazy.nearest(), "stage_opcode_alu_op_max");

  // A thousand misspelt names and paths: the first few get hints, the reader stops at its limit.
  const std::unique_ptr<TileRecord> pcu = TileRecord::Create(version_, *FindTileType("pcu"));
  std::string text;
  for (int i = 0; i < 500; ++i) {
    text += "simd_structIn[0][0].stage_opcode = stage_opcode_alu_op_mx\n";
    text += "simd_structIn[0][0].stage_opcod = 1\n";
  }
  const SparseResult result = ReadSparse(text, pcu->layout(), EnumerantResolver(), ReportLimits{});
  ASSERT_EQ(result.errors.size(), ReportLimits{}.max_errors + 1);
  size_t hints = 0;
  for (const Diagnostic& error : result.errors) {
    hints += error.message.find("did you mean") != std::string::npos;
  }
  EXPECT_EQ(hints, ReportLimits{}.max_hints);
}

INSTANTIATE_TEST_SUITE_P(Generations, AccessorTest,
                         testing::Values("mk41", "mk42", "mk43", "mk44"));

TEST(AccessorTable, HasEveryAccessorOnceAndFindsByName) {
  std::set<std::string> names;
  for (const Accessor& accessor : AllAccessors()) {
    EXPECT_TRUE(names.insert(accessor.name).second) << accessor.name;
  }
  const Accessor* width = FindAccessor("ag_chip_id_width");
  ASSERT_NE(width, nullptr);
  EXPECT_FALSE(IsAnswered(*width, ArchVersion::v2_0_0));
  EXPECT_TRUE(IsAnswered(*width, ArchVersion::v3_0_0));
  EXPECT_EQ(FindAccessor("no_such_accessor"), nullptr);
  EXPECT_EQ(NearestAccessor("ag_adr_width"), "ag_addr_width");
}

}  // namespace
}  // namespace archspec
