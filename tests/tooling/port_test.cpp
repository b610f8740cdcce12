// Configurations moved between generations: each reason of the report from a configuration made
// for it, codes and named zeros carried by name, random configurations of every tile there and
// back, mk41 and mk42 bit for bit, and the comparison across generations.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "Configuration.h"
#include "Port.h"
#include "Sparse.h"

namespace archspec {
namespace {

using zu::spec::ArchVersion;

ArchVersion Version(const char* name) {
  const std::optional<ArchVersion> version = FindGeneration(name);
  EXPECT_TRUE(version.has_value()) << name;
  return *version;
}

Configuration Zero(const char* generation, const char* tile) {
  std::optional<Configuration> zero = Configuration::Zero(Version(generation), *FindTileType(tile));
  EXPECT_TRUE(zero.has_value());
  return std::move(*zero);
}

// A configuration of `tile` on `generation` with the leaves `lines` set ("path = value" each).
Configuration Made(const char* generation, const char* tile,
                   const std::vector<std::pair<std::string, std::string>>& lines) {
  Configuration configuration = Zero(generation, tile);
  for (const auto& [path, value] : lines) {
    const std::optional<std::string> error = configuration.Set(path, value);
    EXPECT_FALSE(error.has_value()) << path << " = " << value << ": " << *error;
  }
  return configuration;
}

PortResult Ported(const Configuration& source, const char* generation) {
  std::optional<PortResult> result = Port(source, Version(generation));
  EXPECT_TRUE(result.has_value());
  return std::move(*result);
}

uint64_t ValueAt(const Configuration& configuration, const std::string& path) {
  const std::optional<size_t> leaf = configuration.Find(path);
  EXPECT_TRUE(leaf.has_value()) << path;
  return leaf ? configuration.value(*leaf) : ~uint64_t{0};
}

uint64_t CodeOf(const Configuration& configuration, const std::string& path,
                const std::string& name) {
  const NamedValue code = configuration.naming().Resolve(*configuration.Find(path), name);
  EXPECT_TRUE(code.value.has_value()) << name << ": " << code.error;
  return code.value.value_or(~uint64_t{0});
}

// The one entry of `entries`, which must be of `path`.
const PortEntry& Only(const std::vector<PortEntry>& entries, const std::string& path) {
  EXPECT_EQ(entries.size(), 1u);
  static const PortEntry none{"", PortReason::kNoField, 0, ""};
  if (entries.size() != 1) return none;
  EXPECT_EQ(entries[0].path, path);
  return entries[0];
}

TEST(Port, EachReasonFromAConfigurationMadeForIt) {
  {
    SCOPED_TRACE("a field that the target lacks, with no hint of another");
    const PortResult port =
        Ported(Made("mk43", "pcu",
                    {{"output_structIn[0].vecdestPMU", "1"}, {"output_structIn[0].vecFlow", "1"}}),
               "mk44");
    const PortEntry& entry = Only(port.report.lost, "output_structIn[0].vecdestPMU");
    EXPECT_EQ(entry.reason, PortReason::kNoField);
    EXPECT_EQ(entry.value, 1u);
    EXPECT_EQ(PortEntryText(entry),
              "output_structIn[0].vecdestPMU = 0x1: the field does not exist on mk44");
    EXPECT_EQ(ValueAt(port.configuration, "output_structIn[0].vecFlow"), 1u);
  }
  {
    SCOPED_TRACE("an array of another shape");
    const PortResult port =
        Ported(Made("mk43", "pcu", {{"ecf_credRet_counterIn[1][3]", "5"}}), "mk44");
    const PortEntry& entry = Only(port.report.lost, "ecf_credRet_counterIn[1][3]");
    EXPECT_EQ(entry.reason, PortReason::kShape);
    EXPECT_EQ(entry.text,
              "the array's shape differs: 2 × 4 leaves of 7 bits on mk43, 4 leaves of 8 bits on "
              "mk44");
    EXPECT_EQ(port.configuration.values(), Zero("mk44", "pcu").values());
  }
  {
    SCOPED_TRACE("an index beyond the target's array; the last index that it has moves");
    const PortResult port = Ported(Made("mk43", "switch",
                                        {{"destport_config[7].hopCreditLimit[2]", "3"},
                                         {"destport_config[7].hopCreditLimit[1]", "2"}}),
                                   "mk44");
    const PortEntry& entry = Only(port.report.lost, "destport_config[7].hopCreditLimit[2]");
    EXPECT_EQ(entry.reason, PortReason::kBeyondArray);
    EXPECT_NE(entry.text.find("the index lies beyond the array on mk44"), std::string::npos);
    EXPECT_EQ(ValueAt(port.configuration, "destport_config[7].hopCreditLimit[1]"), 2u);
  }
  {
    SCOPED_TRACE("a value that does not fit the narrower leaf; one that just fits moves");
    const PortResult port = Ported(Made("mk43", "pmu",
                                        {{"PMU_datapath[2].alu_opA_value[11]", "8"},
                                         {"PMU_datapath[2].alu_opA_value[10]", "7"}}),
                                   "mk44");
    const PortEntry& entry = Only(port.report.lost, "PMU_datapath[2].alu_opA_value[11]");
    EXPECT_EQ(entry.reason, PortReason::kTooWide);
    EXPECT_EQ(entry.text,
              "value 0x8 does not fit in 3 bits of PMU_datapath[2].alu_opA_value[11] on mk44");
    EXPECT_EQ(ValueAt(port.configuration, "PMU_datapath[2].alu_opA_value[10]"), 7u);
  }
  {
    SCOPED_TRACE("a name that the target does not answer");
    const std::string path = "interface_struct.CtlOutXbar_sel[0]";
    const PortResult port = Ported(
        Made("mk43", "pcu", {{path, "pcu_ctloutxbar_enum_pcu_ctloutxbar_nw_ctxt1_se_scl_crdrtn"}}),
        "mk44");
    const PortEntry& entry = Only(port.report.lost, path);
    EXPECT_EQ(entry.reason, PortReason::kUnanswered);
    EXPECT_EQ(entry.text,
              "pcu_ctloutxbar_enum_pcu_ctloutxbar_nw_ctxt1_se_scl_crdrtn is not answered by mk44 "
              "for pcu_ctloutxbar_enum_t");
    EXPECT_EQ(ValueAt(port.configuration, path), 0u);
  }
  {
    SCOPED_TRACE("a field whose type is named otherwise on the target takes only names of it");
    const std::string path = "xbar_config.ctlMuxsel[0][1]";
    const PortResult port =
        Ported(Made("mk42", "switch", {{path, "switch_ctl_signal_or_token"}}), "mk43");
    const auto entry = std::find_if(port.report.lost.begin(), port.report.lost.end(),
                                    [&](const PortEntry& e) { return e.path == path; });
    ASSERT_NE(entry, port.report.lost.end());
    EXPECT_EQ(entry->reason, PortReason::kUnanswered);
    EXPECT_EQ(entry->text,
              "switch_ctl_signal_or_token is not answered by mk43 for "
              "switch_ctl_xbar_sel_t");
  }
  {
    SCOPED_TRACE("a code of no name moves as a number, reported");
    Configuration source = Zero("mk43", "pcu");
    const size_t leaf = *source.Find("simd_structIn[0][0].stage_opcode");
    uint64_t unnamed = 1;
    while (!source.naming().NamesOf(leaf, unnamed).empty()) ++unnamed;
    ASSERT_TRUE(source.SetValue(leaf, unnamed));
    const PortResult port = Ported(source, "mk44");
    const PortEntry& entry = Only(port.report.lost, "simd_structIn[0][0].stage_opcode");
    EXPECT_EQ(entry.reason, PortReason::kUnnamed);
    EXPECT_NE(entry.text.find("moved as a number, its meaning on mk44 may differ"),
              std::string::npos);
    EXPECT_EQ(ValueAt(port.configuration, "simd_structIn[0][0].stage_opcode"), unnamed);
  }
  {
    SCOPED_TRACE("an inferred code moves with a note, not a loss");
    const std::string path = "common_structIn.incrementXbar_sel[0]";
    const std::string name = "pcu_udcxbar_enum_pcu_udcxbar_ne_scalar_in_1";
    const Configuration source = Made("mk43", "pcu", {{path, name}});
    const PortResult port = Ported(source, "mk44");
    EXPECT_TRUE(port.report.exact());
    EXPECT_EQ(Only(port.report.notes, path).reason, PortReason::kInferred);
    EXPECT_NE(ValueAt(source, path), ValueAt(port.configuration, path));
    EXPECT_EQ(ValueAt(port.configuration, path), CodeOf(port.configuration, path, name));
  }
}

TEST(Port, CodesMoveByNameAndATypedZeroInUseByItsName) {
  // On mk41 the PMU's opcode 0 is nand; on mk43 0 is madd and nand is 7.
  const std::string opcode = "PMU_datapath[2].alu_opcode[0]";
  const Configuration in_use = Made("mk41", "pmu", {{"PMU_datapath[2].alu_opA_src[0]", "1"}});
  ASSERT_EQ(in_use.naming().ShownName(*in_use.Find(opcode), 0), "pmu_opcode_pmu_alu_nand");
  const PortResult port = Ported(in_use, "mk43");
  EXPECT_TRUE(port.report.exact());
  EXPECT_EQ(ValueAt(port.configuration, opcode),
            CodeOf(port.configuration, opcode, "pmu_opcode_pmu_alu_nand"));
  EXPECT_EQ(ValueAt(port.configuration, opcode), 7u);
  // A record wholly at 0 stays so.
  EXPECT_EQ(Ported(Zero("mk41", "pmu"), "mk43").configuration.values(),
            Zero("mk43", "pmu").values());
}

TEST(Port, TheTargetsNewTypedLeavesOfARecordInUseAreNamedForReview) {
  const PortResult port =
      Ported(Made("mk43", "pcu", {{"ControlBox_structIn[0].num_stages", "2"}}), "mk44");
  std::vector<std::string> paths;
  for (const PortReview& review : port.report.review) {
    paths.push_back(port.configuration.layout().leaves()[review.leaf].path);
    EXPECT_FALSE(review.name.empty());
    EXPECT_FALSE(Zero("mk43", "pcu").Find(paths.back()).has_value()) << paths.back();
  }
  EXPECT_NE(std::find(paths.begin(), paths.end(), "ControlBox_structIn[0].reshape0_fifo_src"),
            paths.end());
  // Nothing in use, nothing to look at.
  EXPECT_TRUE(Ported(Zero("mk43", "pcu"), "mk44").report.review.empty());
}

// A configuration of every leaf set at random, a typed leaf to one of its type's named codes.
Configuration Random(const char* generation, const char* tile, std::mt19937_64& random) {
  Configuration configuration = Zero(generation, tile);
  const std::vector<Leaf>& leaves = configuration.layout().leaves();
  for (size_t i = 0; i < leaves.size(); ++i) {
    if (random() % 3 != 0) continue;  // a third of the leaves set, so that records stay in use
    if (const Enumeration* type = configuration.naming().TypeOf(i)) {
      const EnumName& name = type->names()[random() % type->names().size()];
      configuration.SetValue(i, name.code);
    } else {
      configuration.SetValue(i, random() & MaxValue(leaves[i].width));
    }
  }
  return configuration;
}

bool Names(const std::vector<PortEntry>& entries, const std::string& path) {
  return std::any_of(entries.begin(), entries.end(),
                     [&](const PortEntry& entry) { return entry.path == path; });
}

TEST(Port, RandomConfigurationsThereAndBackComeBackOrAreReported) {
  std::mt19937_64 random(33);
  for (const auto& [from, to] : {std::pair{"mk43", "mk44"}, std::pair{"mk44", "mk43"}}) {
    for (const char* tile : {"pcu", "pmu", "switch", "agcu"}) {
      SCOPED_TRACE(std::string(from) + " " + tile);
      const Configuration source = Random(from, tile, random);
      const PortResult there = Ported(source, to);
      const PortResult back = Ported(there.configuration, from);
      size_t moved = 0;
      const std::vector<Leaf>& leaves = source.layout().leaves();
      for (size_t i = 0; i < leaves.size(); ++i) {
        const std::string& path = leaves[i].path;
        if (Names(there.report.lost, path) || Names(back.report.lost, path)) continue;
        EXPECT_EQ(back.configuration.value(i), source.value(i)) << path;
        ++moved;
      }
      EXPECT_GT(moved, leaves.size() / 2);
      // A port compares with its source by meaning: what differs is what the report lost.
      for (const CrossChange& change : CompareAcross(source, there.configuration)) {
        if (change.a.has_value()) {
          EXPECT_TRUE(Names(there.report.lost, leaves[*change.a].path)) << leaves[*change.a].path;
        }
      }
    }
  }
}

TEST(Port, Mk41AndMk42KeepEveryBit) {
  std::mt19937_64 random(41);
  for (const char* tile : {"pcu", "pmu", "switch", "agcu"}) {
    SCOPED_TRACE(tile);
    for (const auto& [from, to] : {std::pair{"mk41", "mk42"}, std::pair{"mk42", "mk41"}}) {
      Configuration source = Random(from, tile, random);
      // Every value, named or not, at every width.
      for (size_t i = 0; i < source.values().size(); i += 7) {
        source.SetValue(i, random() & MaxValue(source.layout().leaves()[i].width));
      }
      const PortResult port = Ported(source, to);
      EXPECT_EQ(port.configuration.ToBits(), source.ToBits());
      EXPECT_EQ(port.configuration.version(), Version(to));
      for (const PortEntry& entry : port.report.lost) {
        EXPECT_EQ(entry.reason, PortReason::kUnnamed) << PortEntryText(entry);
      }
    }
  }
}

TEST(CompareAcross, SameNameSameNumberOneSideAndChanged) {
  const Configuration a = Made("mk41", "pmu",
                               {{"PMU_datapath[2].alu_opA_src[0]", "1"},
                                {"PMU_datapath[2].alu_opcode[1]", "pmu_opcode_pmu_alu_xnor"}});
  Configuration b = Ported(a, "mk43").configuration;
  // The same names under other codes, and the same numbers: no difference.
  EXPECT_TRUE(CompareAcross(a, b).empty());
  ASSERT_FALSE(b.Set("PMU_datapath[2].alu_opcode[1]", "pmu_opcode_pmu_alu_madd").has_value());
  const std::vector<CrossChange> changes = CompareAcross(a, b);
  ASSERT_EQ(changes.size(), 1u);
  EXPECT_EQ(changes[0].a_value, 7u);  // xnor on mk41
  EXPECT_EQ(changes[0].b_value, 0u);  // madd on mk43
  // Of one generation, the leaves that Compare finds.
  EXPECT_EQ(CompareAcross(b, b).size(), 0u);
  const Configuration c = Made("mk43", "pcu", {{"output_structIn[0].vecdestPMU", "1"}});
  const std::vector<CrossChange> one_side = CompareAcross(c, Zero("mk44", "pcu"));
  ASSERT_EQ(one_side.size(), 1u);
  EXPECT_FALSE(one_side[0].b.has_value());
  EXPECT_EQ(c.layout().leaves()[*one_side[0].a].path, "output_structIn[0].vecdestPMU");
}

}  // namespace
}  // namespace archspec
