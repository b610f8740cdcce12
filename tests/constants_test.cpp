// The constants, features and constraints classes of every generation: inheritance, derived values,
// containers, failures, and a few answers of each table family.
#include <gtest/gtest.h>

#include <cstdint>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "compiler/arch_spec/gen/ArchGenerations.h"
#include "compiler/arch_spec/gen/GenerationTable.h"

namespace zu::spec {
namespace {

// One object of each generation, by name, and all of them in the order of the table of
// generations, which is the column order of `answered` in ArchConstantsIndex.inc.
struct Generations {
  Generations() {
    for (const GenerationRow& row : GenerationTable()) {
      if (row.has_answers()) owned.push_back(row.make_constants());
    }
    for (const auto& c : owned) all.push_back(c.get());
  }
  KoConstants ko;
  UkoConstants uko;
  RyConstants ry;
  RyeConstants rye;
  std::vector<std::unique_ptr<ArchConstants>> owned;
  std::vector<const ArchConstants*> all;
};

// The column of a generation in `answered`.
size_t Column(const char* code_name) {
  size_t column = 0;
  for (const GenerationRow& row : GenerationTable()) {
    if (!row.has_answers()) continue;
    if (std::string(row.code_name) == code_name) break;
    ++column;
  }
  return column;
}

template <class T>
bool SameAnswer(const T& a, const T& b) {
  return a == b;
}
template <class T>
bool SameAnswer(const std::vector<T>& a, const std::vector<T>& b) {
  return &a == &b;  // a container that is inherited is the very same object
}

// Every accessor of the constants classes with the generations that answer it, and a way to compare
// its answers in two objects. Enumerants all return BitsInteger<64>, so a member pointer serves
// them.
using CompareFn = bool (*)(const ArchConstants&, const ArchConstants&);
using EnumFn = BitsInteger<64> (ArchConstants::*)() const;
struct Entry {
  const char* kind;
  const char* type;
  const char* name;
  const char* answered;  // per generation with answers: '1' where it answers
  CompareFn compare;
  EnumFn code;
};

#define ZU_SPEC_CONSTANT(kind, type, accessor, answered) \
  {#kind,                                                \
   #type,                                                \
   #accessor,                                            \
   answered,                                             \
   ZU_TEST_COMPARE_##kind(accessor),                     \
   ZU_TEST_CODE_##kind(accessor)},
#define ZU_TEST_COMPARE_SCALAR(accessor)               \
  [](const ArchConstants& a, const ArchConstants& b) { \
    return SameAnswer(a.accessor(), b.accessor());     \
  }
#define ZU_TEST_COMPARE_CONTAINER(accessor) ZU_TEST_COMPARE_SCALAR(accessor)
#define ZU_TEST_COMPARE_ENUM(accessor) nullptr
#define ZU_TEST_CODE_SCALAR(accessor) nullptr
#define ZU_TEST_CODE_CONTAINER(accessor) nullptr
#define ZU_TEST_CODE_ENUM(accessor) &ArchConstants::accessor
const Entry kEntries[] = {
#include "compiler/arch_spec/gen/ArchConstantsIndex.inc"
};
#undef ZU_TEST_COMPARE_SCALAR
#undef ZU_TEST_COMPARE_CONTAINER
#undef ZU_TEST_COMPARE_ENUM
#undef ZU_TEST_CODE_SCALAR
#undef ZU_TEST_CODE_CONTAINER
#undef ZU_TEST_CODE_ENUM

bool Answers(const ArchConstants& c, const Entry& e) {
  return e.code != nullptr ? ((c.*e.code)(), true) : e.compare(c, c);
}

TEST(ConstantsTest, IndexListsTheInterfaceInBlocksSortedByName) {
  const std::vector<std::string> blocks = {"SCALAR", "ENUM", "CONTAINER"};
  size_t block = 0;
  std::string previous;
  for (const Entry& e : kEntries) {
    if (e.kind != blocks[block]) {
      ++block;
      ASSERT_LT(block, blocks.size()) << e.name;
      ASSERT_EQ(e.kind, blocks[block]) << e.name;
      previous.clear();
    }
    EXPECT_LT(previous, e.name);
    previous = e.name;
  }
  EXPECT_EQ(block, blocks.size() - 1);
}

TEST(ConstantsTest, EveryAnswerTheIndexPromisesIsGiven) {
  Generations g;
  for (const Entry& e : kEntries) {
    for (size_t i = 0; i < g.all.size(); ++i) {
      if (e.answered[i] == '1') {
        EXPECT_TRUE(Answers(*g.all[i], e)) << e.name;
      }
    }
  }
}

TEST(ConstantsTest, UkoAnswersAsKoButForThreePackagingParameters) {
  Generations g;
  std::vector<std::string> differing;
  for (const Entry& e : kEntries) {
    EXPECT_EQ(e.answered[Column("ko")], e.answered[Column("uko")]) << e.name;
    if (e.answered[Column("ko")] != '1') continue;
    const bool same = e.code != nullptr
                          ? (g.ko.*e.code)().ToNumber() == (g.uko.*e.code)().ToNumber()
                          : e.compare(g.ko, g.uko);
    if (!same) differing.push_back(e.name);
  }
  EXPECT_EQ(differing,
            (std::vector<std::string>{"ddr_bandwidth", "num_chips_per_host", "num_chips_per_mox"}));
  EXPECT_EQ(g.uko.ag_addr_width(), 52u);
  EXPECT_EQ(g.uko.num_chips_per_host(), 16);
  EXPECT_EQ(g.uko.ddr_bandwidth(), 71618579660.0);
}

TEST(ConstantsTest, OpcodesOfOneGenerationHaveDistinctCodes) {
  const std::set<std::string> opcode_types = {"agcu_opcode_t",   "pmu_opcode_t",
                                              "pmu_sm_opcode_t", "pmu_wr_special_opcode_t",
                                              "stage_opcode_t",  "tail_op_t"};
  Generations g;
  for (size_t i = 0; i < g.all.size(); ++i) {
    std::map<std::string, std::map<uint64_t, std::string>> seen;
    for (const Entry& e : kEntries) {
      if (e.code == nullptr || e.answered[i] != '1' || opcode_types.count(e.type) == 0) continue;
      const uint64_t code = (g.all[i]->*e.code)().ToNumber();
      const auto [it, fresh] = seen[e.type].emplace(code, e.name);
      EXPECT_TRUE(fresh) << e.name << " shares code " << code << " with " << it->second;
    }
    EXPECT_EQ(seen.size(), i < 3 ? 5u : 6u);  // only rye has small-memory opcodes
  }
}

TEST(ConstantsTest, EnumerantIsAFreshLeafHoldingItsCode) {
  KoConstants ko;
  BitsInteger<64> first = ko.agcu_rcf_enum_agcu_rcf_reg_agu0_vag0_ctrchain0_max();
  first = 99;
  EXPECT_EQ(ko.agcu_rcf_enum_agcu_rcf_reg_agu0_vag0_ctrchain0_max().ToNumber(), 0u);
  EXPECT_EQ(first.SizeInBits(), 64u);
  RyeConstants rye;
  EXPECT_EQ(rye.tail_op_tail_op_tanh().ToNumber(), KoConstants().tail_op_tail_op_tanh().ToNumber());
}

TEST(ConstantsDeathTest, EnumerantLeafHasNoUniqueId) {
  EXPECT_DEATH(KoConstants().agcu_opcode_agcu_alu_add().GetUniqueId(), "Unique ID not initialized");
}

// Widens the sources of the derived parameters, to show that the derived values follow them through
// the virtual table, with their 64-bit and 32-bit wrap-around.
class WideKoConstants : public KoConstants {
 public:
  arch_const_t pcu_ctrchain_ctr_width() const override { return 64; }
  arch_const_t pmu_ctr_stride_width() const override { return 32; }
  arch_const_t pmu_ctr_max_width() const override { return 40; }
  size_t pmu_datapath_bits() const override { return 63; }
  arch_const_t pmu_regs() const override { return 10; }
};

TEST(ConstantsTest, DerivedParametersFollowTheirSource) {
  Generations g;
  for (const ArchConstants* c : g.all) {
    EXPECT_EQ(c->pcu_counter_stride_max(), 4294967295u);
    EXPECT_EQ(c->pcu_counter_max_max(), 4294967295u);
    EXPECT_EQ(c->pmu_counter_stride_max(), 16777215u);
    EXPECT_EQ(c->pmu_datapath_max_value(), 4294967295u);
    EXPECT_EQ(c->pmu_total_regs(), 8u);
  }
  const WideKoConstants wide;
  EXPECT_EQ(wide.pcu_counter_max_max(), 0u);     // 64 bits wrap to a shift of 0
  EXPECT_EQ(wide.pcu_counter_stride_max(), 0u);  // from the counter width, not a stride width
  EXPECT_EQ(wide.pmu_counter_stride_max(), 0u);  // 32-bit arithmetic
  EXPECT_EQ(wide.pmu_counter_max_max(), 0xffffffffffu);
  EXPECT_EQ(wide.pmu_datapath_max_value(), 0x7fffffffffffffffu);
  EXPECT_EQ(wide.pmu_total_regs(), 12u);
}

TEST(ConstantsTest, ContainersAreBuiltOnceAndShared) {
  Generations g;
  for (const ArchConstants* c : g.all) {
    EXPECT_EQ(&c->agcu_rows(), &c->agcu_rows());
    EXPECT_EQ(&c->pcu_macc_datatype(), &c->pcu_macc_datatype());
    ASSERT_EQ(c->parallel_bitfile_fcmu_padding_location().size(), 1u);
    EXPECT_TRUE(c->parallel_bitfile_fcmu_padding_location()[0].empty());
  }
  EXPECT_EQ(&g.uko.agcu_rows(), &g.ko.agcu_rows());
  EXPECT_NE(&g.ry.agcu_rows(), &g.rye.agcu_rows());
  EXPECT_EQ(g.ko.pcu_macc_datatype().size(), 18u);
  EXPECT_EQ(g.rye.pcu_macc_datatype().size(), 14u);
  EXPECT_EQ(g.rye.pcu_macc_datatype().back(), "FP32_2_BF16_RTZ");
  EXPECT_TRUE(g.ko.pcu_systolic_dotp_datatype().empty());
  EXPECT_EQ(g.ry.pcu_systolic_dotp_datatype(), (std::vector<std::string>{"INT8", "UINT8"}));
  EXPECT_EQ(g.rye.parallel_bitfile_fcmu_slices()[3], (std::vector<uint8_t>{18, 0, 24, 8}));
  EXPECT_EQ(g.ry.reduce_operand_to_hbm_submodule()[0], (std::vector<int8_t>{0, -1}));
  EXPECT_EQ(g.ry.d2d_pln_bandwidth().size(), 11u);
  EXPECT_EQ(g.ry.die_rotation(), (std::vector<bool>{false, true}));
}

TEST(ConstantsDeathTest, UnansweredAccessorFailsNamingItself) {
  EXPECT_DEATH(KoConstants().ag_chip_id_width(),
               "FATAL compiler/arch_spec/gen/ArchConstants.cpp:[0-9]+\\] Enum ag_chip_id_width not "
               "implemented for target architecture!");
  EXPECT_EQ(RyConstants().ag_chip_id_width(), 12u);
  EXPECT_DEATH(RyConstants().agcu_rcf_enum_agcu_rcf_reg_agu0_vag0_ctrchain0_max(),
               "Enum agcu_rcf_enum_agcu_rcf_reg_agu0_vag0_ctrchain0_max not implemented");
  EXPECT_DEATH(RyConstants().tile_non_master_program_control_agcu_indexes(),
               "Enum tile_non_master_program_control_agcu_indexes not implemented");
  EXPECT_DEATH(RyeConstants().pcu_afifo_depth(), "Enum pcu_afifo_depth not implemented");
}

TEST(ConstantsDeathTest, AccessorAnsweredByNoneFailsEverywhere) {
  Generations g;
  for (const ArchConstants* c : g.all) {
    EXPECT_DEATH(c->agu_pln_scalar_e2e_credit_limit(),
                 "Enum agu_pln_scalar_e2e_credit_limit not implemented for target architecture!");
  }
  EXPECT_DEATH(g.rye.parallel_bitfile_fgcmu_agcu_row_max(),
               "Enum parallel_bitfile_fgcmu_agcu_row_max not implemented");
}

TEST(ConstantsTest, ParametersKeepTheirTypesAndDigits) {
  Generations g;
  EXPECT_EQ(g.ko.ag_addr_width(), 52u);
  EXPECT_EQ(g.ry.ag_addr_width(), 55u);
  EXPECT_EQ(g.rye.ag_addr_width(), 58u);
  EXPECT_EQ(g.ko.cycle_time(), 7.1428571428e-10);
  EXPECT_EQ(g.rye.cycle_time(), 5.55556e-10);
  EXPECT_EQ(g.ry.p2p_per_link_bandwidth(), 15753846153.0);
  EXPECT_EQ(g.rye.pln_on_die_switch_bandwidth(), 1.555555556);
  EXPECT_EQ(g.ko.die_to_die_latency(), 0u);
  EXPECT_EQ(g.rye.p2p_framing_overhead(), 68);
  EXPECT_TRUE(g.ry.bitfile_blocks_column_major_layout());
  EXPECT_EQ(g.ry.power_domain_for_tiles(), 0x3210u);
  EXPECT_EQ(g.ko.pcu_seq_id_max(), 16382u);
  EXPECT_EQ(g.ry.num_fcmu_cols_per_tile(), 10);
}

TEST(ConstantsTest, EnumerantsAnswerTheirGenerationsCodes) {
  Generations g;
  EXPECT_EQ(g.ko.agcu_opcode_agcu_alu_add().ToNumber(), 0u);
  EXPECT_EQ(g.ry.agcu_opcode_agcu_alu_add3().ToNumber(), 1u);
  EXPECT_EQ(g.ko.agcu_rcf_enum_agcu_rcf_reg_agu0_vag0_ctrchain0_max().ToNumber(), 0u);
}

TEST(FeaturesTest, FlagsDefaultToFalseAndAreNotMonotonic) {
  const KoFeatures ko;
  const UkoFeatures uko;
  const RyFeatures ry;
  const RyeFeatures rye;
  for (const ArchFeatures* f :
       {static_cast<const ArchFeatures*>(&ko), static_cast<const ArchFeatures*>(&uko),
        static_cast<const ArchFeatures*>(&ry), static_cast<const ArchFeatures*>(&rye)}) {
    EXPECT_FALSE(f->agcu_has_p_scts());
    EXPECT_FALSE(f->hw_rob_support());
    EXPECT_FALSE(f->agcu_auto_decrement_udc());
    EXPECT_FALSE(f->agcu_vag_throttling().has_value());
  }
  EXPECT_TRUE(ry.has_die_to_die_interconnect());
  EXPECT_FALSE(rye.has_die_to_die_interconnect());
  EXPECT_TRUE(rye.has_ethernet_interconnect());
  EXPECT_TRUE(uko.pmu_fifo_chaining());
  EXPECT_FALSE(ry.pmu_fifo_chaining());
  EXPECT_TRUE(uko.enable_auto_ramp_control());
  EXPECT_FALSE(rye.pcu_fast_bypass());
  EXPECT_TRUE(rye.pmu_has_rye_34());
  EXPECT_EQ(uko.agcu_alu_opcode_set(), 0);
  EXPECT_EQ(ry.agcu_alu_opcode_set(), 1);
  EXPECT_EQ(rye.pmu_alu_opcode_set(), 2);
  EXPECT_EQ(ko.num_dotp_accumulators(), 0);
  EXPECT_EQ(rye.num_dotp_accumulators(), 8);
}

TEST(FeaturesTest, OptionalAggregates) {
  EXPECT_FALSE(KoFeatures().pcu_output_throttle().has_value());
  EXPECT_EQ(RyeFeatures().pcu_output_throttle(), zu::optional<int>(255));
  EXPECT_FALSE(RyFeatures().dotp_accumulation().has_value());
  EXPECT_EQ(RyeFeatures().dotp_accumulation(), zu::optional<Int64Pair>(Int64Pair{2, 4}));

  EXPECT_FALSE(UkoFeatures().hbm_support().has_value());
  const zu::optional<HbmSupportInfo> ry = RyFeatures().hbm_support();
  ASSERT_TRUE(ry.has_value());
  EXPECT_EQ(ry->rates, (std::vector<double>{1843200000000.0, 1382400000000.0}));
  EXPECT_EQ(ry->count, 4);
  EXPECT_EQ(ry->cycles, 240u);
  EXPECT_EQ(ry->rate, 115200000000.0);
  EXPECT_EQ(ry->first_code, 0);
  EXPECT_EQ(ry->second_code, 1);
  EXPECT_EQ(ry->third_code, 2);
  EXPECT_EQ(ry->fourth_code, 4);
  const zu::optional<HbmSupportInfo> rye = RyeFeatures().hbm_support();
  ASSERT_TRUE(rye.has_value());
  EXPECT_EQ(rye->rates.size(), 3u);
  EXPECT_EQ(rye->count, 8);
}

TEST(ConstraintsTest, DefaultsAndGenerationAnswers) {
  const KoConstraints ko;
  const UkoConstraints uko;
  const RyConstraints ry;
  const RyeConstraints rye;
  EXPECT_TRUE(uko.ko_997());
  EXPECT_FALSE(ry.ko_997());
  EXPECT_TRUE(uko.pcu_seq_counter_max_does_not_trigger_done());
  EXPECT_TRUE(ry.pcu_stage0_corruption_from_vestigial_pr());
  EXPECT_FALSE(rye.pcu_stage0_corruption_from_vestigial_pr());
  EXPECT_FALSE(rye.pcu_requires_context_done());
  EXPECT_FALSE(ko.disallow_short_blocking_done_with_vec_in_sw());
  EXPECT_TRUE(rye.pmu_ddid_not_allowed_with_e2e_cred_ret());
  EXPECT_EQ(ry.fp32_unaligned_macc_with_input_b_reuse_requires_padding(), 0);
  EXPECT_EQ(rye.fp32_unaligned_macc_with_input_b_reuse_requires_padding(), 16);
  EXPECT_FALSE(uko.pcu_ry_216_timing_flop().has_value());
  EXPECT_EQ(ry.pcu_ry_216_timing_flop(), zu::optional<int>(1));
  EXPECT_EQ(rye.pcu_ry_216_timing_flop(), zu::optional<int>(1));
}

}  // namespace
}  // namespace zu::spec
