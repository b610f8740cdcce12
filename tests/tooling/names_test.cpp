// Codes by name: every name of every typed field round-trips through the listing, any bits do, a
// name of another type is refused, and check finds exactly the values of no name.
#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "Names.h"
#include "PathForm.h"
#include "Sparse.h"
#include "Tile.h"
#include "compiler/arch_spec/gen/GenerationTable.h"
#include "small_layout.h"
#include "tile_cases.h"

namespace archspec {
namespace {

using zu::spec::ArchVersion;

ArchVersion Version(const char* arch) {
  std::string error;
  return ArchVersion::expect_parse(arch, error);
}

// The value each line of a listing writes, by path.
std::map<std::string, std::string> ValuesOf(const std::string& listing) {
  std::map<std::string, std::string> out;
  size_t at = 0;
  while (at < listing.size()) {
    const size_t end = listing.find('\n', at);
    const std::string line = listing.substr(at, end - at);
    at = end == std::string::npos ? listing.size() : end + 1;
    const size_t equals = line.find(" = ");
    if (line.empty() || line[0] == '#' || equals == std::string::npos) continue;
    const std::string value = line.substr(equals + 3);
    out[line.substr(0, equals)] = value.substr(0, value.find("  #"));
  }
  return out;
}

class NamesTest : public testing::TestWithParam<TileCase> {
 protected:
  void SetUp() override {
    record_ = TileRecord::Create(Version(GetParam().arch), *GetParam().tile);
    ASSERT_NE(record_, nullptr);
    naming_ = Naming::Of(*record_);
    ASSERT_NE(naming_, nullptr);
  }

  // The first leaf of each typed field: one leaf of every path template.
  std::vector<size_t> OneLeafPerField() const {
    std::set<std::string> seen;
    std::vector<size_t> out;
    const std::vector<Leaf>& leaves = record_->layout().leaves();
    for (size_t i = 0; i < leaves.size(); ++i) {
      if (naming_->TypeOf(i) != nullptr && seen.insert(PathTemplate(leaves[i].path)).second) {
        out.push_back(i);
      }
    }
    return out;
  }

  SparseResult Read(const std::string& listing) const {
    return ReadSparse(listing, record_->layout(), naming_->Resolver());
  }

  std::unique_ptr<TileRecord> record_;
  const Naming* naming_ = nullptr;
};

// Round k writes each field's k-th name (of those its type has on the generation), reads it, and
// writes the listing again: the name comes back (or the name chosen for its code), and the bits
// of that listing are the bits of the first.
TEST_P(NamesTest, EveryNameOfEveryTypedFieldComesBackThroughTheListing) {
  const std::vector<size_t> fields = OneLeafPerField();
  ASSERT_FALSE(fields.empty());
  const std::vector<Leaf>& leaves = record_->layout().leaves();
  size_t rounds = 0;
  for (size_t leaf : fields) rounds = std::max(rounds, naming_->TypeOf(leaf)->names().size());
  for (size_t k = 0; k < rounds; ++k) {
    std::string listing;
    std::map<std::string, const EnumName*> written;
    for (size_t leaf : fields) {
      const std::vector<EnumName>& names = naming_->TypeOf(leaf)->names();
      const EnumName& name = names[k % names.size()];
      listing += leaves[leaf].path + " = " + std::string(name.name) + "\n";
      written[leaves[leaf].path] = &name;
    }
    const SparseResult read = Read(listing);
    ASSERT_TRUE(read.ok()) << Errors(read);
    const std::string named = WriteSparse(record_->layout(), read.values, {}, false, naming_);
    const std::map<std::string, std::string> back = ValuesOf(named);
    for (const auto& [path, name] : written) {
      const size_t leaf = *record_->layout().Find(path);
      EXPECT_EQ(read.values[leaf], name->code) << path << " = " << name->name;
      if (name->code == 0) continue;  // zero leaves are not listed
      ASSERT_EQ(back.count(path), 1u) << path;
      std::set<std::string> of_code;
      for (const EnumName& sibling : naming_->NamesOf(leaf, name->code)) {
        of_code.emplace(sibling.name);
      }
      EXPECT_EQ(back.at(path), std::string(naming_->NamesOf(leaf, name->code)[0].name)) << path;
      EXPECT_EQ(of_code.count(std::string(name->name)), 1u) << path << " = " << name->name;
    }
    const SparseResult again = Read(named);
    ASSERT_TRUE(again.ok()) << Errors(again);
    EXPECT_EQ(record_->WriteBits(again.values), record_->WriteBits(read.values)) << "round " << k;
  }
}

// Any bits: the named listing reads back to the same values, codes of no name included.
TEST_P(NamesTest, AnyBitsSurviveTheNamedListing) {
  std::mt19937_64 random(17);
  const std::vector<Leaf>& leaves = record_->layout().leaves();
  for (int trial = 0; trial < 3; ++trial) {
    std::vector<uint64_t> values(leaves.size());
    for (size_t i = 0; i < leaves.size(); ++i) {
      // Half the typed leaves take a code of a name, so that both kinds of line are written.
      const Enumeration* type = naming_->TypeOf(i);
      values[i] = random() & MaxValue(leaves[i].width);
      if (type != nullptr && (random() & 1)) {
        values[i] = type->names()[random() % type->names().size()].code;
      }
    }
    const std::string listing = WriteSparse(record_->layout(), values, {}, false, naming_);
    const SparseResult read = Read(listing);
    ASSERT_TRUE(read.ok()) << Errors(read);
    EXPECT_EQ(read.values, values);
  }
}

// Check reports exactly the typed leaves whose non-zero values have no name.
TEST_P(NamesTest, CheckFindsTheValuesOfNoName) {
  const std::vector<Leaf>& leaves = record_->layout().leaves();
  std::vector<uint64_t> values(leaves.size(), 0);
  std::set<size_t> expected;
  for (size_t leaf : OneLeafPerField()) {
    const Enumeration* type = naming_->TypeOf(leaf);
    for (uint64_t v = MaxValue(leaves[leaf].width); v > 0; --v) {
      if (type->NamesOf(v).empty()) {
        values[leaf] = v;
        expected.insert(leaf);
        break;
      }
    }
  }
  std::set<size_t> found;
  for (const Finding& finding : naming_->Check(values)) {
    found.insert(finding.leaf);
    EXPECT_EQ(finding.value, values[finding.leaf]);
    EXPECT_EQ(finding.type, naming_->TypeOf(finding.leaf));
    EXPECT_FALSE(finding.nearest.empty());
  }
  EXPECT_EQ(found, expected);
  EXPECT_TRUE(naming_->Check(std::vector<uint64_t>(leaves.size(), 0)).empty());
}

INSTANTIATE_TEST_SUITE_P(AllTiles, NamesTest, testing::ValuesIn(AllTileCases()), CaseName);

const Naming& PcuOf(const char* arch) {
  static std::map<std::string, std::unique_ptr<TileRecord>> records;
  std::unique_ptr<TileRecord>& record = records[arch];
  if (record == nullptr) record = TileRecord::Create(Version(arch), *FindTileType("pcu"));
  return *Naming::Of(*record);
}

TEST(Names, ANameOfAnotherTypeIsRefusedWithTheFieldsType) {
  const Naming& pcu = PcuOf("mk44");
  const SparseResult read = ReadSparse(
      "simd_structIn[0][1].stage_opcode = alu_format_enum_fp32\n"
      "simd_structIn[0][2].stage_opcode = stage_opcode_alu_op_max\n"
      "simd_structIn[0][3].stage_opcode = 31\n"
      "simd_structIn[0][1].stage_immediate = alu_format_enum_fp32\n",
      pcu.layout(), pcu.Resolver());
  ASSERT_EQ(read.errors.size(), 1u) << Errors(read);
  EXPECT_EQ(read.errors[0].line, 1u);
  EXPECT_EQ(read.errors[0].message.rfind(
                "simd_structIn[0][1].stage_opcode = alu_format_enum_fp32: stage_opcode takes "
                "stage_opcode_t; alu_format_enum_fp32 is an alu_format_enum_t; names of "
                "stage_opcode_t like it: ",
                0),
            0u)
      << read.errors[0].message;
}

TEST(Names, SharedCodesShowASignalBeforeMarkersAndNameTheOthers) {
  // On mk41 the switch's control signals share codes with the markers of their ranges.
  const std::unique_ptr<TileRecord> record =
      TileRecord::Create(Version("mk41"), *FindTileType("switch"));
  const Naming& names = *Naming::Of(*record);
  const std::optional<size_t> leaf = record->layout().Find("xbar_config.ctlMuxsel[0][0]");
  ASSERT_TRUE(leaf.has_value());
  std::string line;
  names.AppendValue(line, *leaf, 133);
  EXPECT_EQ(line,
            "switch_ctl_signal_barrier0_done  # also switch_ctl_signal_barrier_done_base, "
            "switch_ctl_signal_udc_gtz_end");
  line.clear();
  names.AppendValue(line, *leaf, 255);
  EXPECT_EQ(line, "0xff  # not a code of switch_ctl_signal_t on mk41");
}

TEST(Names, InferredCodesAreMarked) {
  const Naming& pcu = PcuOf("mk43");
  const std::optional<size_t> leaf = pcu.layout().Find("interface_struct.CtlOutXbar_sel[0]");
  ASSERT_TRUE(leaf.has_value());
  const Enumeration* type = pcu.TypeOf(*leaf);
  ASSERT_NE(type, nullptr);
  size_t inferred = 0;
  for (const EnumName& name : type->names()) {
    std::string line;
    pcu.AppendValue(line, *leaf, name.code);
    if (pcu.NamesOf(*leaf, name.code)[0].inferred) {
      ++inferred;
      EXPECT_NE(line.find("# inferred code 0x"), std::string::npos) << line;
    } else {
      EXPECT_EQ(line.find("inferred"), std::string::npos) << line;
    }
  }
  EXPECT_GT(inferred, 0u);
}

TEST(Names, PathTemplatesAndFieldNames) {
  EXPECT_EQ(PathTemplate("simd_structIn[0][4].stage_result[1]"),
            "simd_structIn[][].stage_result[]");
  EXPECT_EQ(FieldName("simd_structIn[0][4].stage_result[1]"), "stage_result");
  EXPECT_EQ(FieldName("ecf_udcIn[3]"), "ecf_udcIn");
  EXPECT_EQ(JoinPath("", "pmu"), "pmu");
  EXPECT_EQ(JoinPath("a[2]", "b"), "a[2].b");
  EXPECT_EQ(JoinPath("a", "[2]"), "a[2]");
  EXPECT_EQ(JoinPath("a", size_t{12}), "a[12]");
}

// A branch spans its leaves' registers, shown as every face shows registers; a path splits into the
// branch that holds what it names and its last step.
TEST(Names, BranchesAndTheirRegisters) {
  const Layout layout = SmallLayout();
  const auto span = [&](const char* path) {
    const Branch* branch = layout.FindBranch(path);
    return branch == nullptr ? std::string("none") : RegisterSpan(branch->reg_lo, branch->reg_hi);
  };
  EXPECT_EQ(span(""), "0-7");
  EXPECT_EQ(span("mask"), "2-4");
  EXPECT_EQ(span("lanes[0]"), "1");
  EXPECT_EQ(span("base"), "none");
  EXPECT_EQ(Registers(layout.leaves()[5]), "5-6");
  EXPECT_EQ(SplitLast("lanes[0][1].sel"),
            std::make_pair(std::string_view("lanes[0][1]"), std::string_view("sel")));
  EXPECT_EQ(SplitLast("mask[2]"),
            std::make_pair(std::string_view("mask"), std::string_view("[2]")));
  EXPECT_EQ(SplitLast("tail"), std::make_pair(std::string_view(""), std::string_view("tail")));
}

// The steps of every leaf's path, as the library wrote it, join back to the same path.
TEST_P(NamesTest, EveryPathIsItsSteps) {
  for (const Leaf& leaf : record_->layout().leaves()) {
    std::string joined;
    for (const std::string_view step : PathSteps(leaf.path)) joined = JoinPath(joined, step);
    ASSERT_EQ(joined, leaf.path);
  }
}

}  // namespace
}  // namespace archspec
