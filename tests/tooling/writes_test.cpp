// Run-time registers and the writes between configurations: the links against the generations'
// own answers and the layouts, the writes against the library's CollectPatches of a record
// registered with them, applying writes back, and every refusal of a list of writes.
#include <gtest/gtest.h>

#include <map>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "Accessors.h"
#include "Configuration.h"
#include "RuntimeRegisters.h"
#include "Writes.h"
#include "small_layout.h"
#include "tile_cases.h"

namespace archspec {
namespace {

using zu::spec::ArchVersion;

Configuration Zero(const TileCase& c) {
  return *Configuration::Zero(*FindGeneration(c.arch), *c.tile);
}

// The linked leaves of a configuration's layout.
std::vector<size_t> LinkedLeaves(const Configuration& config) {
  std::vector<size_t> out;
  const std::vector<Leaf>& leaves = config.layout().leaves();
  for (size_t i = 0; i < leaves.size(); ++i) {
    if (leaves[i].runtime()) out.push_back(i);
  }
  return out;
}

uint64_t RandomValue(std::mt19937_64& random, uint32_t width) { return random() & MaxValue(width); }

class RuntimeRegisters : public testing::TestWithParam<TileCase> {};

// Every linked register's number is the generation's answer of its enumerant, the register names
// a leaf of the layout, and a word register stands on a leaf above 32 bits; every register of
// the generation is in the rows, once.
TEST_P(RuntimeRegisters, LinksAgreeWithTheAnswersAndTheLayout) {
  const TileCase c = GetParam();
  const ArchVersion version = *FindGeneration(c.arch);
  const OwnedAnswers owned(*zu::spec::ServingGeneration(version));
  const Configuration config = Zero(c);
  std::set<uint32_t> numbers;
  size_t linked = 0;
  for (const RuntimeRegisterRow* row : RuntimeRegistersOf(version, *c.tile)) {
    const NamedValue answer = ResolveEnumerantOf(row->name, version, owned.answers());
    ASSERT_TRUE(answer.value.has_value()) << row->name;
    EXPECT_EQ(*answer.value, row->number) << row->name;
    const Accessor* accessor = FindAccessor(row->name);
    ASSERT_NE(accessor, nullptr);
    EXPECT_EQ(IsInferred(*accessor, version), row->inferred) << row->name;
    EXPECT_TRUE(numbers.insert(row->number).second) << row->name;
    if (!row->linked()) {
      EXPECT_FALSE(RuntimeRegisterNoteOf(*row).empty()) << row->name << ": no reason";
      continue;
    }
    ++linked;
    const std::optional<size_t> leaf = config.Find(row->path);
    ASSERT_TRUE(leaf.has_value()) << row->path;
    const Leaf& place = config.layout().leaves()[*leaf];
    EXPECT_EQ(row->word == RegisterWord::kWhole, place.width <= 32) << row->path;
    EXPECT_EQ(row->word == RegisterWord::kHigh ? place.runtime_hi : place.runtime_lo, row);
    const auto found = config.layout().FindRuntimeRegister(row->number);
    ASSERT_TRUE(found.has_value());
    EXPECT_EQ(found->first, *leaf);
  }
  // Every linked register writes a word of a leaf, and every word the layout links is one of them.
  size_t words = 0;
  for (const Leaf& leaf : config.layout().leaves())
    words += (leaf.runtime_lo != nullptr) + (leaf.runtime_hi != nullptr);
  EXPECT_EQ(linked, words);
  // Every tile has linked run-time registers on every generation.
  EXPECT_GT(linked, 0u);
}

// The writes between two configurations are the library's own patches: those that CollectPatches
// gives for the changed words of the record registered with its run-time registers, which
// CollectFields marks writable.
TEST_P(RuntimeRegisters, WritesAreTheLibrarysPatchesOfTheRegisteredRecord) {
  const TileCase c = GetParam();
  const Configuration zero = Zero(c);
  Configuration changed = zero;
  std::mt19937_64 random(7);
  for (size_t leaf : LinkedLeaves(zero))
    changed.SetValue(leaf, RandomValue(random, zero.layout().leaves()[leaf].width));
  const WriteOptions options{5, 100};
  const RegisterWrites writes = WritesBetween(zero, changed, options);
  EXPECT_TRUE(writes.reachable());

  std::vector<zu::spec::FieldMetadata> fields;
  std::vector<zu::spec::PatchMetadata> patches;
  TileRecord& record = *SharedTileRecord(changed.version(), changed.tile());
  record.UseRegistered(changed.values(), [&](const zu::spec::BaseConstruct& root) {
    root.CollectFields(fields, false, 0);
    root.CollectPatches(patches, options.id, zu::optional<uint32_t>(*options.base),
                        zu::optional<uint32_t>());
  });
  // Registered, every leaf above 32 bits has a high register: a field part and a patch per word,
  // in the same order. The writable parts whose word changed from 0 are the writes.
  ASSERT_EQ(fields.size(), patches.size());
  std::vector<zu::spec::PatchMetadata> expected;
  for (size_t i = 0; i < fields.size(); ++i) {
    if (fields[i].reg_flag && patches[i].value != 0) expected.push_back(patches[i]);
  }
  ASSERT_EQ(writes.writes.size(), expected.size());
  for (size_t i = 0; i < expected.size(); ++i) {
    EXPECT_EQ(writes.writes[i].patch.id, expected[i].id);
    EXPECT_EQ(writes.writes[i].patch.reg, expected[i].reg) << i;
    EXPECT_EQ(writes.writes[i].patch.value, expected[i].value) << i;
  }
}

// Random pairs that differ only in linked leaves are reached by their writes, in every form; one
// unlinked change besides is listed as needing a load, and only it.
TEST_P(RuntimeRegisters, WritesApplyBackAndUnreachedChangesAreListed) {
  const TileCase c = GetParam();
  const Configuration zero = Zero(c);
  const std::vector<size_t> linked = LinkedLeaves(zero);
  const std::vector<Leaf>& leaves = zero.layout().leaves();
  std::mt19937_64 random(11);
  for (int round = 0; round < 4; ++round) {
    Configuration from = zero, to = zero;
    for (size_t leaf : linked) {
      from.SetValue(leaf, RandomValue(random, leaves[leaf].width));
      if (random() % 3 == 0)
        to.SetValue(leaf, RandomValue(random, leaves[leaf].width));
      else
        to.SetValue(leaf, from.value(leaf));
    }
    for (const std::optional<uint32_t> base : {std::optional<uint32_t>(), std::optional(0x400u)}) {
      const WriteOptions options{0, base};
      const RegisterWrites writes = WritesBetween(from, to, options);
      ASSERT_TRUE(writes.reachable());
      for (const std::string& data : {WritesText(from, writes, options), WritesBinary(writes)}) {
        Configuration applied = from;
        const WritesInput read = ReadWrites(data, from);
        ASSERT_TRUE(read.errors.empty()) << read.errors.front().message;
        const std::vector<Diagnostic> errors = ApplyWrites(applied, read.writes, base);
        ASSERT_TRUE(errors.empty()) << errors.front().message;
        EXPECT_TRUE(applied == to);
      }
    }
    // One leaf that no register writes changes too: it alone needs a load.
    size_t unlinked = random() % leaves.size();
    while (leaves[unlinked].runtime()) unlinked = (unlinked + 1) % leaves.size();
    to.SetValue(unlinked, from.value(unlinked) ^ 1);
    const RegisterWrites writes = WritesBetween(from, to);
    EXPECT_EQ(writes.load, std::vector<size_t>{unlinked});
    Configuration applied = from;
    std::vector<ReadWrite> list;
    for (const RegisterWrite& write : writes.writes) {
      list.emplace_back();
      list.back().patch = write.patch;
    }
    ASSERT_TRUE(ApplyWrites(applied, list).empty());
    EXPECT_EQ(applied.Compare(to).size(), 1u);
  }
}

INSTANTIATE_TEST_SUITE_P(EveryTile, RuntimeRegisters, testing::ValuesIn(AllTileCases()), CaseName);

Configuration Tile(const char* arch, const char* tile) {
  return *Configuration::Zero(*FindGeneration(arch), *FindTileType(tile));
}

// A leaf above 32 bits is written a word at a time: both words where both change, the low word
// with the base and the high one without, and only the word that changed.
TEST(Writes, WideLeafWordsAndBase) {
  const Configuration from = Tile("mk44", "agcu");
  const std::string path = "AGCU_AGU_config[0].AGU_CSF_config.alu_imm_pool[1][2]";
  Configuration to = from;
  ASSERT_FALSE(to.Set(path, "0x500000009").has_value());
  const RegisterWrites both = WritesBetween(from, to, {3, 1000});
  ASSERT_EQ(both.writes.size(), 2u);
  EXPECT_EQ(both.writes[0].reg->name,
            std::string("agcu_rcf_enum_agcu_rcf_reg_agu0_imm_pool1_stage2_low"));
  EXPECT_EQ(both.writes[0].patch.reg, 394u + 1000u);
  EXPECT_EQ(both.writes[0].patch.value, 9u);
  EXPECT_EQ(both.writes[1].patch.reg, 458u);  // no base on the high word, as the library does
  EXPECT_EQ(both.writes[1].patch.value, 5u);
  EXPECT_EQ(both.writes[1].patch.id, 3u);

  Configuration high = from;
  ASSERT_FALSE(high.Set(path, "0x700000000").has_value());
  const RegisterWrites one = WritesBetween(from, high);
  ASSERT_EQ(one.writes.size(), 1u);
  EXPECT_EQ(one.writes[0].reg->word, RegisterWord::kHigh);
  EXPECT_EQ(one.writes[0].patch.value, 7u);
}

// A leaf above 32 bits of which only one word is linked: that word's change is written, the
// other's needs a load. A link of a whole register to a wide leaf is refused.
TEST(Writes, WideLeafWithOneWordLinked) {
  Layout layout = SmallLayout();
  const size_t base = *layout.Find("base");
  const RuntimeRegisterRow high{
      "ko", "small", "small_rcf_reg_base_hi", 40, false, "base", RegisterWord::kHigh, false, "t:1"};
  const RuntimeRegisterRow whole{
      "ko", "small", "small_rcf_reg_base", 41, false, "base", RegisterWord::kWhole, false, "t:2"};
  const RuntimeRegisterRow* wrong[] = {&whole};
  EXPECT_FALSE(layout.LinkRuntimeRegisters(wrong));
  EXPECT_FALSE(layout.leaves()[base].runtime());
  const RuntimeRegisterRow* rows[] = {&high};
  ASSERT_TRUE(layout.LinkRuntimeRegisters(rows));
  EXPECT_EQ(RuntimeRegisterNumbers(layout.leaves()[base]), "-+40");

  std::vector<uint64_t> from(layout.leaves().size()), both = from, low = from;
  both[base] = 0x700000009;
  low[base] = 0x9;
  const RegisterWrites two = WritesBetween(layout, from, both, {0, 100});
  ASSERT_EQ(two.writes.size(), 1u);
  EXPECT_EQ(two.writes[0].patch.reg, 40u);  // a high word's number takes no base
  EXPECT_EQ(two.writes[0].patch.value, 7u);
  EXPECT_EQ(two.load, std::vector<size_t>{base});
  const RegisterWrites one = WritesBetween(layout, from, low);
  EXPECT_TRUE(one.writes.empty());
  EXPECT_EQ(one.load, std::vector<size_t>{base});
}

// The text form names each register and its leaf, and lists the leaves that need a load.
TEST(Writes, TextForm) {
  const Configuration from = Tile("mk44", "pcu");
  Configuration to = from;
  ASSERT_FALSE(to.Set("CounterChain_structIn[0].counter_max_value[0]", "32").has_value());
  ASSERT_FALSE(to.Set("simd_structIn[0][0].stage_opcode", "2").has_value());
  EXPECT_EQ(WritesText(from, WritesBetween(from, to)),
            "# archspec mk44 pcu\n"
            "pcu_rcf_enum_pcu_rcf_reg_ctrchain0_max_ctxt0 = 0x20  # register 24: "
            "CounterChain_structIn[0].counter_max_value[0]\n"
            "# needs the configuration loaded: no run-time register writes these changed "
            "leaves\n"
            "#   simd_structIn[0][0].stage_opcode\n");
}

std::vector<std::string> Refusals(const char* arch, const char* tile, const std::string& data,
                                  std::optional<uint32_t> base = std::nullopt) {
  Configuration config = Tile(arch, tile);
  const Configuration before = config;
  const WritesInput read = ReadWrites(data, config);
  std::vector<Diagnostic> errors = read.errors;
  if (errors.empty()) errors = ApplyWrites(config, read.writes, base);
  EXPECT_TRUE(errors.empty() || config == before) << "a refused list changed the configuration";
  std::vector<std::string> out;
  for (const Diagnostic& d : errors) out.push_back(FormatDiagnostic("w", d));
  return out;
}

TEST(Writes, EveryRefusal) {
  using V = std::vector<std::string>;
  // A register the tile does not have, one whose field is not known, a value too wide for the
  // bits its register writes, two writes that disagree (the same twice is no fault).
  EXPECT_EQ(Refusals("mk44", "pcu",
                     "# archspec mk44 pcu\n999 = 1\n60 = 1\n"
                     "pcu_rcf_enum_pcu_rcf_reg_ctrchain0_max_ctxt0 = 3\n24 = 3\n24 = 4\n"),
            (V{"w:2: error: register 999 is no run-time register of the pcu on mk44 (rye)",
               "w:3: error: register 60 (pcu_rcf_enum_pcu_rcf_reg_seqid_write_params_ctxt0) "
               "writes no field that the tooling knows: a *_params register: several fields of "
               "SeqID_structIn at once",
               "w:6: error: register 24 (pcu_rcf_enum_pcu_rcf_reg_ctrchain0_max_ctxt0) is "
               "written 0x4 here and 0x3 at line 4"}));
  EXPECT_EQ(Refusals("mk43", "pmu", "# archspec mk43 pmu\n54 = 0x1000000\n"),
            (V{"w:2: error: value 0x1000000 of register 54 "
               "(pmu_rcf_enum_pmu_rcf_reg_ctrchain0_stride) does not fit the 24 bits it writes "
               "of PMU_shared.counterChain_stride_value[0]"}));
  // The text's own faults: a foreign header, a misspelt name, a value above 32 bits, no '='.
  EXPECT_EQ(Refusals("mk44", "pcu", "# archspec mk43 pcu\n24 = 1\n"),
            (V{"w:1: error: the listing is for mk43 pcu (its header says so), not for mk44 pcu "
               "(a list of writes)"}));
  EXPECT_EQ(Refusals("mk44", "pcu",
                     "pcu_rcf_enum_pcu_rcf_reg_ctrchain0_max_ctx0 = 1\n24 = 0x100000000\nx\n"),
            (V{"w:1: error: found pcu_rcf_enum_pcu_rcf_reg_ctrchain0_max_ctx0, expected a "
               "register number or the name of a run-time register of the pcu on mk44 (rye); "
               "did you mean pcu_rcf_enum_pcu_rcf_reg_ctrchain0_max_ctxt0?",
               "w:2: error: value 0x100000000 does not fit a register's 32 bits",
               "w:3: error: found x, expected 'REGISTER = VALUE'"}));
  // The binary form: whole records only; JSON: its writes' places.
  EXPECT_EQ(Refusals("mk44", "pcu", std::string("\x01\x00\x00", 3)),
            (V{"w: error: 3 bytes are no whole number of 12-byte writes (id, register, value)"}));
  EXPECT_EQ(Refusals("mk44", "pcu", R"({"arch": "mk44", "tile": "pcu", "writes": [{"register": 24,
               "value": 1}, {"register": 24}]})"),
            (V{"w: error: writes[1]: expected an object with \"register\" and \"value\", "
               "numbers of at most 32 bits"}));
  // With a base, a low word's number carries it, and a number without it is refused.
  EXPECT_EQ(Refusals("mk44", "pcu", "24 = 1\n", 100),
            (V{"w:1: error: register 24 (pcu_rcf_enum_pcu_rcf_reg_ctrchain0_max_ctxt0) writes "
               "CounterChain_structIn[0].counter_max_value[0], whose register takes the base 100: "
               "expected register 124"}));
  EXPECT_EQ(
      Refusals("mk44", "pcu", "124 = 1\npcu_rcf_enum_pcu_rcf_reg_ctrchain1_max_ctxt0 = 2\n", 100),
      V{});
}

}  // namespace
}  // namespace archspec
