// The generated records of every generation: sizes, id counts, round trips, printed forms and
// locations.
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "RecordCatalog.h"
#include "compiler/arch_spec/gen/GenerationTable.h"
#include "compiler/arch_spec/gen/KoConfig.h"
#include "compiler/arch_spec/gen/RyConfig.h"
#include "compiler/arch_spec/gen/RyeConfig.h"

namespace zu::spec {
namespace {

using archspec::RecordClass;
using archspec::RecordClasses;
using zu::spec::GenerationRow;
using zu::spec::GenerationTable;

std::string RandomBits(size_t n, unsigned seed) {
  std::mt19937_64 random(seed);
  std::string bits(n, '0');
  for (char& c : bits) c = (random() & 1) ? '1' : '0';
  return bits;
}

std::string Built(const BaseConstruct& record) {
  ConfigBuilder builder;
  record.Build(builder);
  return builder.to_string();
}

class RecordsTest : public testing::Test {
 protected:
  // Ids are keys of one process-wide table: every test starts from an empty one.
  void SetUp() override { BaseConstruct::external_storage_.clear(); }
};

TEST_F(RecordsTest, EveryRecordsNamespaceHasOneRecordPerTile) {
  std::set<std::string> namespaces;
  for (const GenerationRow& row : GenerationTable()) {
    if (*row.records != '\0') namespaces.insert(row.records);
  }
  std::set<std::string> tiles;
  for (const RecordClass& c : RecordClasses()) {
    EXPECT_EQ(namespaces.count(c.ns), 1u) << c.label();
    if (c.top_level) tiles.insert(c.label());
  }
  std::set<std::string> expected;
  for (const std::string& ns : namespaces) {
    for (const archspec::TileType& tile : archspec::TileTypes())
      expected.insert(ns + "/" + tile.record);
  }
  EXPECT_EQ(tiles, expected);
}

TEST_F(RecordsTest, EveryClassHasItsSizeIdsAndRoundTrips) {
  unsigned seed = 1;
  for (const RecordClass& c : RecordClasses()) {
    SCOPED_TRACE(c.label());
    std::unique_ptr<BaseConstruct> record = c.make();
    EXPECT_EQ(record->SizeInBits(), c.bits);
    EXPECT_EQ(Built(*record), std::string(c.bits, '0'));

    const std::string bits = RandomBits(c.bits, seed++);
    size_t position = 0;
    record->Parse(bits, &position);
    EXPECT_EQ(position, c.bits);
    EXPECT_EQ(Built(*record), bits);

    UniqueId next = 0;
    record->SetUniqueId(next);
    EXPECT_EQ(next + 1, c.unique_ids);
  }
}

TEST_F(RecordsTest, TopLevelRecordsRoundTripThroughBytes) {
  unsigned seed = 100;
  for (const RecordClass& c : RecordClasses()) {
    if (!c.top_level) continue;
    SCOPED_TRACE(c.label());
    std::unique_ptr<BaseConstruct> record = c.make();
    std::string bits = RandomBits(c.bits, seed++);
    // Parse from the middle of a longer text: the position moves by exactly the record's size.
    const std::string text = "01" + bits + "1";
    size_t position = 2;
    record->Parse(text, &position);
    EXPECT_EQ(position, 2 + c.bits);

    ConfigBuilder builder;
    record->Build(builder);
    builder.advance(static_cast<int64_t>((8 - c.bits % 8) % 8));
    std::string from_bytes;
    bytes2bits(builder.to_bytes(), &from_bytes);
    EXPECT_EQ(from_bytes.substr(0, c.bits), bits);
    EXPECT_EQ(from_bytes.substr(c.bits), std::string(from_bytes.size() - c.bits, '0'));

    std::unique_ptr<BaseConstruct> again = c.make();
    position = 0;
    again->Parse(from_bytes, &position);
    EXPECT_EQ(Built(*again), bits);

    // Registration covers every leaf, in bit order, without gaps.
    BaseConstruct::external_storage_.clear();
    UniqueId next = 0;
    record->SetUniqueId(next);
    uint32_t reg = 0;
    record->SetExternalStorage(c.name, nullptr, 0, reg);
    std::vector<FieldMetadata> fields;
    record->CollectFields(fields, false, 0);
    size_t leaves = 0;
    size_t leaf_bits = 0;
    record->Walk([&](const BitsIntegerBase& leaf) {
      ++leaves;
      leaf_bits += leaf.SizeInBits();
    });
    EXPECT_EQ(leaf_bits, c.bits);
    EXPECT_GE(fields.size(), leaves);
    EXPECT_EQ(reg, fields.size());
    EXPECT_EQ(record->Offset(), 0);
  }
}

// Registers the record under `name` from id 0 and returns the leaf metadata.
std::vector<FieldMetadata> Fields(BaseConstruct& record, const std::string& name) {
  UniqueId next = 0;
  record.SetUniqueId(next);
  uint32_t reg = 0;
  record.SetExternalStorage(name, nullptr, 0, reg);
  std::vector<FieldMetadata> fields;
  record.CollectFields(fields, false, 0);
  return fields;
}

TEST_F(RecordsTest, OffsetsFollowTheTables) {
  auto ko_pcu = std::make_unique<ko::pcu_config_struct>();
  Fields(*ko_pcu, "pcu");
  EXPECT_EQ(ko_pcu->interface_struct.Offset(), 64);
  BaseConstruct::external_storage_.clear();
  auto ry_pcu = std::make_unique<ry::pcu_config_struct>();
  Fields(*ry_pcu, "pcu");
  EXPECT_EQ(ry_pcu->interface_struct.Offset(), 92);
  BaseConstruct::external_storage_.clear();

  rye::PCU_tail_struct tail;
  Fields(tail, "tail");
  EXPECT_EQ(tail.regfileOutXbar_sel.Offset(), 22);
  EXPECT_EQ(tail.regfileOutXbar_sel.Name(), "tail.regfileOutXbar_sel");
}

TEST_F(RecordsTest, StagesOfTheLastContextComeFirst) {
  auto pcu = std::make_unique<rye::pcu_config_struct>();
  const std::vector<FieldMetadata> fields = Fields(*pcu, "pcu");
  auto first_of = [&fields](const std::string& prefix) -> const FieldMetadata* {
    for (const FieldMetadata& f : fields) {
      if (f.name.rfind(prefix, 0) == 0) return &f;
    }
    return nullptr;
  };
  const FieldMetadata* first_stage = first_of("pcu.simd_structIn[");
  ASSERT_NE(first_stage, nullptr);
  EXPECT_EQ(first_stage->name, "pcu.simd_structIn[3][4].stage_immediate");
  EXPECT_EQ(pcu->simd_structIn.Offset(), pcu->simd_structIn[3][4].Offset());
  EXPECT_LT(pcu->simd_structIn[3][4].Offset(), pcu->simd_structIn[0][0].Offset());
  EXPECT_EQ(pcu->simd_structIn[0][0].Offset() - pcu->simd_structIn.Offset(), 19 * 82);
  // The whole array is 4 * 5 * 82 bits.
  EXPECT_EQ(pcu->simd_structIn.SizeInBits(), 1640u);
}

TEST_F(RecordsTest, WideFieldsTakeTwoRegisters) {
  ko::AGU_Alu_struct alu;
  alu.alu_imm_value = (uint64_t{0xabcde} << 32) | 0x12345678;
  const std::vector<FieldMetadata> fields = Fields(alu, "alu");
  std::vector<const FieldMetadata*> parts;
  for (const FieldMetadata& f : fields) {
    if (f.name == "alu.alu_imm_value") parts.push_back(&f);
  }
  ASSERT_EQ(parts.size(), 2u);
  EXPECT_EQ(parts[0]->width, 32);
  EXPECT_EQ(parts[1]->width, 20);
  EXPECT_EQ(parts[1]->reg, parts[0]->reg + 1);
  EXPECT_EQ(parts[0]->bit, parts[1]->bit + 20);  // the low word stands behind the high part

  std::vector<PatchMetadata> patches;
  alu.alu_imm_value.CollectPatches(patches, 3, zu::optional<uint32_t>(), zu::optional<uint32_t>());
  ASSERT_EQ(patches.size(), 2u);
  EXPECT_EQ(patches[0].value, 0x12345678u);
  EXPECT_EQ(patches[1].value, 0xabcdeu);
  EXPECT_EQ(patches[0].reg, parts[0]->reg);
}

TEST_F(RecordsTest, PrintsTheSmallestRecordExactly) {
  ry::ContextConfiguration context;
  context.instr_ctxt = 2;
  context.seqID_ctxt = 3;
  std::string before;
  context.ToString(0, &before);
  EXPECT_EQ(before,
            "{\n"
            "  counter_ctxt = [0x0000]/0 0x0\n"
            "  instr_ctxt = [0x0000]/0 0x2\n"
            "  network_ctxt = [0x0000]/0 0x0\n"
            "  input_network_ctxt = [0x0000]/0 0x0\n"
            "  subcontext = [0x0000]/0 0x0\n"
            "  seqID_ctxt = [0x0000]/0 0x3\n"
            "}\n");
  UniqueId next = 0;
  context.SetUniqueId(next);
  uint32_t reg = 10;
  context.SetExternalStorage("ctx", nullptr, 300, reg);
  std::string after;
  context.ToString(0, &after);
  EXPECT_EQ(after,
            "{\n"
            "  counter_ctxt = [0x012c:10]/1 0x0\n"
            "  instr_ctxt = [0x012d:11]/2 0x2\n"
            "  network_ctxt = [0x012f:12]/1 0x0\n"
            "  input_network_ctxt = [0x0130:13]/1 0x0\n"
            "  subcontext = [0x0131:14]/1 0x0\n"
            "  seqID_ctxt = [0x0132:15]/2 0x3\n"
            "}\n");
}

TEST_F(RecordsTest, NestedRecordsPrintAtTheirDepth) {
  ry::PCU_header_struct header;
  std::string text;
  header.ToString(0, &text);
  EXPECT_EQ(text.rfind("{\n  header_lane_structIn = {\n    header_immediate = [0x0000]/0 0x0\n", 0),
            0u);
  EXPECT_NE(text.find("\n    headerSrc = [\n      0: [0x0000]/0 0x0\n"), std::string::npos);
  EXPECT_NE(text.find("\n    ]/24\n"), std::string::npos);
  EXPECT_NE(text.find("\n  }\n  data_format_sel = "), std::string::npos);
}

TEST_F(RecordsTest, ArrayOfPackedArraysChangesShapeInRye) {
  ko::pcu_config_struct ko_pcu;
  rye::pcu_config_struct rye_pcu;
  EXPECT_EQ(ko_pcu.ecf_credRet_counterIn.SizeInBits(), 56u);
  EXPECT_EQ(rye_pcu.ecf_credRet_counterIn.SizeInBits(), 32u);
  ko_pcu.ecf_credRet_counterIn.set(1, 3, 127);
  std::string text;
  ko_pcu.ecf_credRet_counterIn.ToString(0, &text);
  EXPECT_NE(text.find("  1: [\n    0: [0x0000]/0 0x0\n"), std::string::npos);
  EXPECT_NE(text.find("    3: [0x0000]/0 0x7f\n  ]/28\n]/56\n"), std::string::npos);
}

TEST_F(RecordsTest, EachNamespaceKnowsItsChipVersions) {
  ko::ContextConfiguration ko_record;
  ry::ContextConfiguration ry_record;
  rye::PCU_SIMD_gemm_stage_struct rye_record;
  EXPECT_TRUE(ko_record.IsSupportedVersion(2, 0));
  EXPECT_TRUE(ko_record.IsSupportedVersion(2, 1));
  EXPECT_FALSE(ko_record.IsSupportedVersion(2, 2));
  EXPECT_FALSE(ko_record.IsSupportedVersion(3, 0));
  EXPECT_TRUE(ry_record.IsSupportedVersion(3, 0));
  EXPECT_FALSE(rye_record.IsSupportedVersion(3, 0));
  EXPECT_TRUE(rye_record.IsSupportedVersion(4, 0));
}

TEST_F(RecordsTest, SecondRecordWithTheSameIdsSharesTheirEntries) {
  ry::ContextConfiguration first;
  ry::ContextConfiguration second;
  UniqueId next = 0;
  first.SetUniqueId(next);
  next = 0;
  second.SetUniqueId(next);
  uint32_t reg = 0;
  first.SetExternalStorage("first", nullptr, 0, reg);
  second.SetExternalStorage("second", nullptr, 100, reg);
  EXPECT_EQ(reg, 6u);
  EXPECT_EQ(second.seqID_ctxt.Name(), "first.seqID_ctxt");
  EXPECT_EQ(second.seqID_ctxt.Offset(), 6);
}

TEST_F(RecordsTest, RecordsCheckTheirStartOffset) {
  ry::ContextConfiguration context;
  UniqueId next = 0;
  context.SetUniqueId(next);
  uint32_t reg = 0;
  EXPECT_DEATH(context.SetExternalStorage("c", nullptr, 65536, reg),
               "check-fail: Offset out of bounds \\(65536 > 65535\\)");
  // Only the start is checked by the record; each leaf checks its own.
  EXPECT_DEATH(context.SetExternalStorage("c", nullptr, 65535, reg),
               "Offset out of bounds \\(65536 > 65535\\)");
}

}  // namespace
}  // namespace zu::spec
