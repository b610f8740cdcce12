// Leaves, packed arrays, construct arrays, the bit buffer, the table of field locations and the
// record rules, on small hand-written constructs.
#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "compiler/arch_spec/ConfigBuilder.h"
#include "compiler/arch_spec/Constructs.h"
#include "compiler/arch_spec/Paths.h"
#include "compiler/arch_spec/Record.h"

namespace zu::spec::testing_records {

struct TestGeneration {
  static constexpr int kMajor = 3;
  static constexpr int kMinors[] = {0};
};

// A record of four bits, for arrays of records.
class Nibble final : public Record<Nibble, TestGeneration> {
 public:
  static constexpr size_t kSizeInBits = 4;
  static constexpr size_t kFieldCount = 1;
  static constexpr int kUniqueIds = 2;
  BitsInteger<4> v;
  template <class Self, class Visit>
  static void Fields(Self& self, Visit&& visit) {
    visit("v", self.v);
  }
};

// Two leaves, a packed array, an array of records, a wide leaf.
class Sample final : public Record<Sample, TestGeneration> {
 public:
  static constexpr size_t kSizeInBits = 6 + 3 + 15 + 8 + 40;
  static constexpr size_t kFieldCount = 5;
  static constexpr int kUniqueIds = 1 + 1 + 1 + 4 + 5 + 1;
  BitsInteger<6> a;
  BitsInteger<3> b;
  PackedArray<3, 5> packed;
  ArrayLE<2, Nibble> nibbles;
  BitsInteger<40> wide;
  template <class Self, class Visit>
  static void Fields(Self& self, Visit&& visit) {
    visit("a", self.a);
    visit("b", self.b);
    visit("packed", self.packed);
    visit("nibbles", self.nibbles);
    visit("wide", self.wide);
  }
};

// Seventy leaf fields in a row, more than a record prints in one step; field 40's name is longer
// than a printed line holds.
class ManyLeaves final : public Record<ManyLeaves, TestGeneration> {
 public:
  static constexpr size_t kSizeInBits = 2 * 70;
  static constexpr size_t kFieldCount = 70;
  static constexpr int kUniqueIds = 71;
  static constexpr char kLongName[] =
      "a_field_name_far_longer_than_any_record_of_the_chips_has_it_ever_needed_to_have";
  std::array<BitsInteger<2>, 70> leaves;
  static const char* NameOf(size_t i) {
    // "f0" to "f69".
    static constexpr auto kNames = [] {
      std::array<std::array<char, 4>, 70> made{};
      for (size_t k = 0; k < made.size(); ++k) {
        made[k] = {'f', static_cast<char>(k < 10 ? '0' + k : '0' + k / 10),
                   static_cast<char>(k < 10 ? 0 : '0' + k % 10), 0};
      }
      return made;
    }();
    return i == 40 ? kLongName : kNames[i].data();
  }
  template <class Self, class Visit>
  static void Fields(Self& self, Visit&& visit) {
    for (size_t i = 0; i < kFieldCount; ++i) visit(NameOf(i), self.leaves[i]);
  }
};

}  // namespace zu::spec::testing_records

namespace zu::spec {
namespace {

using testing_records::ManyLeaves;
using testing_records::Nibble;
using testing_records::Sample;

std::string Built(const BaseConstruct& construct) {
  ConfigBuilder builder;
  construct.Build(builder);
  return builder.to_string();
}

std::string Printed(const BaseConstruct& construct) {
  std::string out;
  construct.ToString(0, &out);
  return out;
}

std::string RandomBits(size_t n, unsigned seed) {
  std::mt19937 random(seed);
  std::string bits(n, '0');
  for (char& c : bits) c = (random() & 1) ? '1' : '0';
  return bits;
}

// Ids are global to the process: each test numbers from its own range.
UniqueId FreshIds(int test_number) { return static_cast<UniqueId>(1000 * test_number); }

// Numbers `construct` from `first` and registers it as `name` at `offset`, with registers counted
// from `reg`; returns the register counter after it.
uint32_t Register(BaseConstruct& construct, UniqueId first, const std::string& name, size_t offset,
                  uint32_t reg = 0) {
  construct.SetUniqueId(first);
  construct.SetExternalStorage(name, nullptr, offset, reg);
  return reg;
}

TEST(LeafTest, ParsesMostSignificantFirst) {
  BitsInteger<3> three;
  size_t pos = 0;
  three.Parse("101", &pos);
  EXPECT_EQ(three.ToNumber(), 5u);
  EXPECT_EQ(pos, 3u);

  BitsInteger<1> one;
  pos = 0;
  one.Parse("1", &pos);
  EXPECT_EQ(one.ToNumber(), 1u);
  EXPECT_EQ(pos, 1u);

  // Past the end of the text, characters read as '0'.
  BitsInteger<8> eight;
  pos = 1;
  eight.Parse("0111", &pos);
  EXPECT_EQ(eight.ToNumber(), 0b11100000u);
  EXPECT_EQ(pos, 9u);
}

TEST(LeafTest, RangeChecksOnAssignment) {
  BitsInteger<6> six;
  six = 63;
  EXPECT_EQ(six.ToNumber(), 63u);
  EXPECT_DEATH(six = 64, "check-fail: value will not fit in bit field");
  BitsInteger<32> thirty_two;
  EXPECT_DEATH(thirty_two = 4294967296u, "value will not fit in bit field");
  BitsInteger<64> sixty_four;
  sixty_four = ~uint64_t{0};
  EXPECT_EQ(sixty_four.ToNumber(), ~uint64_t{0});
  EXPECT_DEATH(six.range_check(4, 4), "BitsIntegers of size 4 cannot be accessed at offset 4");
}

TEST(LeafTest, AssignmentKeepsTheTargetsId) {
  BitsInteger<5> field;
  UniqueId id = 7;
  field.SetUniqueId(id);
  BitsInteger<5> other(17);
  field = other;
  EXPECT_EQ(field.ToNumber(), 17u);
  EXPECT_EQ(field.GetUniqueId(), 7);
  field = BitsInteger<64>(9);  // an answer of the constants interface
  EXPECT_EQ(field.ToNumber(), 9u);
}

TEST(LeafTest, PrintsShortFormWithoutStorage) {
  BitsInteger<4> leaf(10);
  std::string out;
  leaf.ToString(3, &out);
  EXPECT_EQ(out, "[0x0000]/0 0xa\n");
}

// The printed form's writer: lines longer than its buffer, and more lines than it holds, come out
// whole and in order, and the widest numbers fit.
TEST(LinesTest, LongHeadsAndManyLinesComeOutWhole) {
  using constructs_internal::LeafLine;
  using constructs_internal::Lines;
  const std::string long_name(5000, 'n');
  std::string out;
  {
    Lines lines(&out);
    lines.Text(2, "{", "\n");
    const zu::optional<UniqueId> no_id;
    const LeafLine leaves[] = {{long_name.data(), long_name.size(), &no_id, 64, ~uint64_t{0}},
                               {"b", 1, &no_id, 3, 5}};
    lines.Leaves(6000, leaves, 2);
    for (size_t i = 0; i < 200; ++i) lines.Index(2, i, "x\n");
    lines.ArrayEnd(1, 18446744073709551615u);
  }
  std::string expected = "  {\n" + std::string(6000, ' ') + long_name +
                         " = [0x0000]/0 0xffffffffffffffff\n" + std::string(6000, ' ') +
                         "b = [0x0000]/0 0x5\n";
  for (size_t i = 0; i < 200; ++i) expected += "  " + std::to_string(i) + ": x\n";
  expected += "  ]/18446744073709551615\n";
  EXPECT_EQ(out, expected);
}

// The longest lines a leaf can take, many times over: each line's room is made sure of before it
// is written, so every line crosses the buffer's end whole (a write past the buffer is what the
// sanitizers would catch here).
TEST(LinesTest, TheWidestLinesCrossTheBufferWhole) {
  using constructs_internal::kRun;
  using constructs_internal::LeafLine;
  using constructs_internal::Lines;
  auto& table = BaseConstruct::external_storage_;
  constexpr UniqueId kLast = 32000;  // far above the ids the other tests give out
  const auto first = static_cast<UniqueId>(kLast - static_cast<UniqueId>(kRun - 1));
  for (UniqueId id = first; id <= kLast; ++id) {
    table[id] = {"w", {}, 0xffff, true, 4294967295u, zu::optional<uint32_t>(4294967295u)};
  }
  const std::string place = "[0xffff:4294967295-4294967295]/64 0xffffffffffffffff\n";
  std::vector<uint64_t> values(kRun, ~uint64_t{0});
  const size_t first_index = 18446744073709551615u - kRun;
  const zu::optional<UniqueId> last_id(kLast);
  const std::string name(40, 'n');
  std::string out;
  {
    Lines lines(&out);
    for (int round = 0; round < 100; ++round) {
      lines.Elements(14, first_index, values.data(), kRun, last_id, 64);
      const LeafLine leaf{name.data(), name.size(), &last_id, 64, ~uint64_t{0}};
      lines.Leaves(30, &leaf, 1);
    }
  }
  std::string round;
  for (size_t k = 0; k < kRun; ++k) {
    round += std::string(14, ' ') + std::to_string(first_index + k) + ": " + place;
  }
  round += std::string(30, ' ') + name + " = " + place;
  std::string expected;
  for (int k = 0; k < 100; ++k) expected += round;
  EXPECT_EQ(out, expected);
  for (UniqueId id = first; id <= kLast; ++id) table.erase(id);
}

TEST(PathsTest, TheFormOfAPath) {
  std::string path;
  AppendStep(path, "pmu");
  AppendStep(path, "");  // an array's own entry has no name
  AppendStep(path, ElementName("orMask0", 3));
  EXPECT_EQ(path, "pmu.orMask0[3]");
  EXPECT_EQ(ElementName("m", 12, 0), "m[12][0]");
  AppendIndex(path, 18446744073709551615u);
  EXPECT_EQ(path, "pmu.orMask0[3][18446744073709551615]");
}

// Name(): the names from the outermost construct to this one's own, each named ancestor followed
// by '.', empty names (arrays') adding nothing, whether or not a metadata pass keeps the paths.
TEST(NameTest, EveryClauseOfThePath) {
  Sample sample;
  Register(sample, FreshIds(30), "s", 0);
  for (const bool in_pass : {false, true}) {
    SCOPED_TRACE(in_pass ? "inside a metadata pass" : "outside a pass");
    std::optional<constructs_internal::MetadataPass> pass;
    if (in_pass) pass.emplace();
    EXPECT_EQ(sample.Name(), "s");
    EXPECT_EQ(sample.a.Name(), "s.a");
    EXPECT_EQ(sample.nibbles[1].Name(), "s.nibbles[1]");
    EXPECT_EQ(sample.nibbles[1].v.Name(), "s.nibbles[1].v");
    // Without a name of its own, the path ends with the '.' after its named ancestor.
    EXPECT_EQ(sample.nibbles.Name(), "s.");
    EXPECT_EQ(sample.packed.Name(), "s.");
  }

  // Arrays with no named ancestor have no path at all; their elements carry the name.
  ArrayLE<2, ArrayLE<2, Nibble>> grid;
  Register(grid, FreshIds(31), "g", 0);
  EXPECT_EQ(grid.Name(), "");
  EXPECT_EQ(grid[1].Name(), "");
  EXPECT_EQ(grid[1][0].Name(), "g[1][0]");
  EXPECT_EQ(grid[1][0].v.Name(), "g[1][0].v");

  // An id without an entry gets an empty one, which ends the walk without failure.
  BitsInteger<4> orphan;
  UniqueId id = FreshIds(32);
  orphan.SetUniqueId(id);
  ASSERT_EQ(BaseConstruct::FindEntry(id), nullptr);
  EXPECT_EQ(orphan.Name(), "");
  EXPECT_NE(BaseConstruct::FindEntry(id), nullptr);
  const UniqueId missing_parent = FreshIds(32) + 1;
  ExternalStorage& entry = BaseConstruct::external_storage_[id];
  entry.name = "leaf";
  entry.parent = missing_parent;
  EXPECT_EQ(orphan.Name(), "leaf");
  ASSERT_NE(BaseConstruct::FindEntry(missing_parent), nullptr);
  EXPECT_FALSE(BaseConstruct::FindEntry(missing_parent)->parent.has_value());

  BitsInteger<4> unnumbered;
  EXPECT_DEATH(unnumbered.Name(), "check-fail: Unique ID not initialized");
}

TEST(ConfigBuilderTest, WritesMostSignificantFirst) {
  ConfigBuilder builder;
  builder.set(5, 3);
  builder.set(1, 5);
  EXPECT_EQ(builder.to_string(), "10100001");
  EXPECT_EQ(builder.to_bytes(), std::vector<uint8_t>{0xa1});

  ConfigBuilder wide;
  wide.set(1, 70);
  EXPECT_EQ(wide.to_string(), std::string(69, '0') + "1");

  // A rewrite overwrites: set and clear every position.
  ConfigBuilder again;
  again.set(0xff, 8);
  again.set(-8, 0);
  again.advance(-8);
  again.set(0x0f, 8);
  EXPECT_EQ(again.to_string(), "00001111");
  EXPECT_TRUE(ConfigBuilder().to_bytes().empty());
}

TEST(ConfigBuilderTest, GuardsItsCapacity) {
  ConfigBuilder builder;
  builder.advance(49999);
  EXPECT_EQ(builder.cursor(), 49999);
  EXPECT_DEATH(ConfigBuilder().advance(50000),
               "check-fail: Can't advance offset to illegal position 50000");
  EXPECT_DEATH(ConfigBuilder().advance(-1), "Can't advance offset to illegal position -1");
  ConfigBuilder odd;
  odd.set(1, 3);
  EXPECT_DEATH(odd.to_bytes(), "check-fail: Size must be a multiple of 8, got 3");
  // Widths too large to add to the cursor stop before anything is written.
  EXPECT_DEATH(ConfigBuilder().set(0, INT64_MAX),
               "Can't advance offset to illegal position 9223372036854775807");
  ConfigBuilder near_end;
  near_end.advance(100);
  EXPECT_DEATH(near_end.set(1, INT64_MAX - 50), "illegal position 9223372036854775807");
  EXPECT_DEATH(near_end.advance(INT64_MAX), "illegal position 9223372036854775807");
  // A cursor moved below 0 is refused in the same words, not by the standard library.
  ConfigBuilder below;
  below.set(0, -8);
  EXPECT_DEATH(below.to_bytes(), "check-fail: Size must be a multiple of 8, got -8");
}

TEST(ConfigBuilderTest, AWriteMayEndAtTheLastBitAndNoFurther) {
  ConfigBuilder builder;
  builder.advance(ConfigBuilder::kCapacityBits - 10);
  builder.ensure_room(10);
  builder.set(0x201, 10);
  EXPECT_EQ(builder.cursor(), ConfigBuilder::kCapacityBits);
  EXPECT_TRUE(builder.bit(49990));
  EXPECT_FALSE(builder.bit(49991));
  EXPECT_TRUE(builder.bit(49999));
  // A whole word's write that ends there crosses a word boundary; a write wider than a value too.
  ConfigBuilder word;
  word.advance(ConfigBuilder::kCapacityBits - 64);
  word.set(~uint64_t{0}, 64);
  EXPECT_EQ(word.to_string().substr(49936), std::string(64, '1'));
  ConfigBuilder wider;
  wider.advance(ConfigBuilder::kCapacityBits - 100);
  wider.set(1, 100);
  EXPECT_EQ(wider.cursor(), ConfigBuilder::kCapacityBits);
  EXPECT_TRUE(wider.bit(49999));
  // One bit more is refused before anything is written.
  ConfigBuilder over;
  over.advance(ConfigBuilder::kCapacityBits - 10);
  EXPECT_DEATH(over.ensure_room(11), "Can't advance offset to illegal position 50001");
  EXPECT_DEATH(over.set(0, 11), "Can't advance offset to illegal position 50001");
}

TEST(ConfigBuilderTest, BytesToBitsAppends) {
  std::string out = "x";
  bytes2bits({0xff, 0x00}, &out);
  EXPECT_EQ(out, "x1111111100000000");
}

TEST(PackedArrayTest, ElementZeroIsLastInTheBits) {
  PackedArray<3, 5> packed;
  size_t pos = 0;
  packed.Parse("000010001000011", &pos);
  EXPECT_EQ(packed.get(2), 1u);
  EXPECT_EQ(packed.get(1), 2u);
  EXPECT_EQ(packed.get(0), 3u);
  EXPECT_EQ(pos, 15u);
  EXPECT_EQ(Built(packed), "000010001000011");
  EXPECT_DEATH(packed.get(3), "BitsIntegers of size 3 cannot be accessed at offset 3");
  EXPECT_DEATH(packed.set(0, 32), "value will not fit in bit field");
}

TEST(PackedArrayTest, StorageUnitsFollowTheElementWidth) {
  EXPECT_EQ(sizeof(PackedArray<156, 1>::Storage) * 20, 20u);
  static_assert(std::is_same_v<PackedArray<8, 4>::Storage, uint8_t>);
  static_assert(std::is_same_v<PackedArray<8, 5>::Storage, uint16_t>);
  static_assert(std::is_same_v<PackedArray<8, 10>::Storage, uint32_t>);
  static_assert(std::is_same_v<PackedArray<8, 20>::Storage, uint64_t>);
  static_assert(std::is_same_v<PackedArray<8, 48>::Storage, uint64_t>);
  // ArrayLE<3, PackedArray<2, 5>> keeps its six elements in two 16-bit units.
  ArrayLE<3, PackedArray<2, 5>> rows;
  EXPECT_EQ(rows.GetSize(), 6u);
  rows.set(2, 1, 31);
  EXPECT_EQ(rows.GetData()[1], 31u << 10);
}

TEST(PackedArrayTest, RoundTripsEveryStorageClass) {
  auto round_trip = [](auto array, unsigned seed) {
    const std::string bits = RandomBits(array.SizeInBits(), seed);
    size_t pos = 0;
    array.Parse(bits, &pos);
    EXPECT_EQ(pos, bits.size());
    EXPECT_EQ(Built(array), bits);
    std::string again;
    bytes2bits(
        [&] {
          ConfigBuilder builder;
          array.Build(builder);
          builder.advance(static_cast<int64_t>((8 - bits.size() % 8) % 8));
          return builder.to_bytes();
        }(),
        &again);
    EXPECT_EQ(again.substr(0, bits.size()), bits);
  };
  round_trip(PackedArray<156, 1>(), 1);
  round_trip(PackedArray<12, 2>(), 2);
  round_trip(PackedArray<24, 3>(), 3);
  round_trip(PackedArray<12, 5>(), 4);
  round_trip(PackedArray<64, 6>(), 5);
  round_trip(PackedArray<18, 7>(), 6);
  round_trip(PackedArray<12, 10>(), 7);
  round_trip(PackedArray<3, 11>(), 8);
  round_trip(PackedArray<24, 14>(), 9);
  round_trip(PackedArray<8, 20>(), 10);
  round_trip(PackedArray<18, 24>(), 11);
  round_trip(PackedArray<36, 32>(), 12);
  round_trip(PackedArray<8, 44>(), 13);
  round_trip(PackedArray<2, 48>(), 14);
  round_trip(ArrayLE<8, PackedArray<8, 58>>(), 15);
  round_trip(ArrayLE<3, PackedArray<52, 1>>(), 16);
  round_trip(ArrayLE<2, PackedArray<8, 32>>(), 17);
}

TEST(PackedArrayTest, WalkChangesOnlyThroughTheMutableForm) {
  PackedArray<4, 2> packed;
  packed.set(0, 1);
  packed.set(3, 2);
  std::vector<uint64_t> seen;
  packed.Walk([&seen](const BitsIntegerBase& leaf) { seen.push_back(leaf.ToNumber()); });
  EXPECT_EQ(seen, (std::vector<uint64_t>{2, 0, 0, 1}));
  packed.Walk([](BitsIntegerBase& leaf) { leaf = leaf.ToNumber() + 1; });
  EXPECT_EQ(packed.get(0), 2u);
  EXPECT_EQ(packed.get(3), 3u);
  EXPECT_DEATH(packed.Walk([](BitsIntegerBase& leaf) { leaf = 4; }),
               "value will not fit in bit field");
  EXPECT_THROW(packed.Walk(std::function<void(BitsIntegerBase&)>()), std::bad_function_call);
}

TEST(PackedArrayTest, PrintsElementZeroFirst) {
  PackedArray<2, 4> packed;
  packed.set(0, 1);
  packed.set(1, 2);
  EXPECT_EQ(Printed(packed), "[\n  0: [0x0000]/0 0x1\n  1: [0x0000]/0 0x2\n]/8\n");
}

TEST(PackedArrayTest, ElementIdsNamesAndOffsets) {
  PackedArray<4, 2> packed;
  UniqueId next = FreshIds(1);
  packed.SetUniqueId(next);
  EXPECT_EQ(next, FreshIds(1) + 4);
  std::vector<UniqueId> ids;
  packed.Walk([&ids](const BitsIntegerBase& leaf) { ids.push_back(leaf.GetUniqueId()); });
  const UniqueId c = FreshIds(1);
  EXPECT_EQ(ids, (std::vector<UniqueId>{UniqueId(c + 1), UniqueId(c + 2), UniqueId(c + 3),
                                        UniqueId(c + 4)}));

  uint32_t reg = 0;
  packed.SetExternalStorage("x", nullptr, 20, reg);
  std::vector<FieldMetadata> fields;
  packed.CollectFields(fields, false, 0);
  ASSERT_EQ(fields.size(), 4u);
  EXPECT_EQ(fields[0].name, "x[3]");
  EXPECT_EQ(fields[0].bit, 20u);
  EXPECT_EQ(fields[1].name, "x[2]");
  EXPECT_EQ(fields[1].bit, 22u);
  EXPECT_EQ(fields[3].reg, 3u);
  EXPECT_EQ(packed.Offset(), 20);
  EXPECT_EQ(reg, 4u);
}

// Long arrays hand their elements to the table in runs: results must not depend on where a run
// ends, and a missing entry must be found at its own element.
TEST(PackedArrayTest, LongArraysKeepBitOrderAcrossRuns) {
  PackedArray<150, 3> packed;
  for (size_t i = 0; i < 150; ++i) packed.set(i, i % 8);
  Register(packed, FreshIds(20), "x", 4);
  std::vector<FieldMetadata> fields;
  packed.CollectFields(fields, false, 0);
  std::vector<PatchMetadata> patches;
  packed.CollectPatches(patches, 1, zu::optional<uint32_t>(10), zu::optional<uint32_t>());
  ASSERT_EQ(fields.size(), 150u);
  ASSERT_EQ(patches.size(), 150u);
  for (size_t k = 0; k < 150; ++k) {
    const size_t i = 149 - k;
    EXPECT_EQ(fields[k].name, "x[" + std::to_string(i) + "]");
    EXPECT_EQ(fields[k].bit, 4 + 3 * k);
    EXPECT_EQ(fields[k].reg, k);
    EXPECT_EQ(patches[k].reg, 10 + k);
    EXPECT_EQ(patches[k].value, i % 8);
  }
  const std::string text = Printed(packed);
  EXPECT_NE(text.find("\n  63: [0x0106:86]/3 0x7\n  64: [0x0103:85]/3 0x0\n"), std::string::npos);
  EXPECT_NE(text.find("\n  149: [0x0004:0]/3 0x5\n]/450\n"), std::string::npos);

  // Element 80's entry is gone: a print shows it short and leaves an empty entry behind, and the
  // metadata operations stop at it.
  const UniqueId gone = static_cast<UniqueId>(FreshIds(20) + 150 - 80);
  BaseConstruct::external_storage_.erase(gone);
  EXPECT_NE(Printed(packed).find("\n  79: [0x00d6:70]/3 0x7\n  80: [0x0000]/0 0x0\n"),
            std::string::npos);
  EXPECT_NE(Printed(packed).find("\n  80: [0x0000:0]/3 0x0\n"), std::string::npos);
  BaseConstruct::external_storage_.erase(gone);
  EXPECT_DEATH(packed.CollectFields(fields, false, 0), "External storage not initialized");
  EXPECT_DEATH(
      packed.CollectPatches(patches, 1, zu::optional<uint32_t>(), zu::optional<uint32_t>()),
      "External storage not initialized");
}

// The elements' entries are found by id whatever the ids are: below zero, across zero, or far
// apart so that they share the table's buckets. Numbered differently, an array gives the same
// fields, patches and text.
TEST(PackedArrayTest, FindsEntriesWhateverTheIds) {
  const auto results = [](UniqueId first) {
    PackedArray<150, 3> packed;
    for (size_t i = 0; i < 150; ++i) packed.set(i, (i * 5) % 8);
    Register(packed, first, "x", 4);
    std::vector<FieldMetadata> fields;
    packed.CollectFields(fields, false, 0);
    std::vector<PatchMetadata> patches;
    packed.CollectPatches(patches, 1, zu::optional<uint32_t>(), zu::optional<uint32_t>());
    std::string text = Printed(packed);
    for (const FieldMetadata& field : fields) {
      text += field.name + " " + std::to_string(field.bit) + " " + std::to_string(field.reg) + "\n";
    }
    for (const PatchMetadata& patch : patches) {
      text += std::to_string(patch.reg) + "=" + std::to_string(patch.value) + "\n";
    }
    return text;
  };
  const std::string expected = results(FreshIds(22));
  EXPECT_EQ(results(static_cast<UniqueId>(-30000)), expected);
  EXPECT_EQ(results(static_cast<UniqueId>(-70)), expected);
  EXPECT_EQ(results(static_cast<UniqueId>(32600)), expected);
}

TEST(PackedArrayTest, WideElementsGiveTwoPatchesEach) {
  PackedArray<70, 40> packed;
  packed.set(0, (uint64_t{3} << 32) | 7);
  EXPECT_EQ(Register(packed, FreshIds(21), "w", 0), 140u);
  std::vector<PatchMetadata> patches;
  packed.CollectPatches(patches, 2, zu::optional<uint32_t>(100), zu::optional<uint32_t>());
  ASSERT_EQ(patches.size(), 140u);
  // Element 0 comes last: its low word takes the base, its high word does not.
  EXPECT_EQ(patches[138].reg, 100u + 138);
  EXPECT_EQ(patches[138].value, 7u);
  EXPECT_EQ(patches[139].reg, 139u);
  EXPECT_EQ(patches[139].value, 3u);
  patches.clear();
  packed.CollectPatches(patches, 2, zu::optional<uint32_t>(), zu::optional<uint32_t>(9));
  EXPECT_EQ(patches[139].value, 9u);
}

TEST(ArrayTest, ElementZeroIsLastInTheBitsAndFirstInPrint) {
  ArrayLE<2, Nibble> nibbles;
  size_t pos = 0;
  nibbles.Parse("00011010", &pos);
  EXPECT_EQ(nibbles[1].v.ToNumber(), 1u);
  EXPECT_EQ(nibbles[0].v.ToNumber(), 10u);
  EXPECT_EQ(Built(nibbles), "00011010");
  EXPECT_EQ(Printed(nibbles),
            "[\n  0: {\n    v = [0x0000]/0 0xa\n  }\n  1: {\n    v = [0x0000]/0 0x1\n  }\n]/8\n");
  EXPECT_DEATH(nibbles[2], "Index 2 out of range for an array of 2 elements");
}

TEST(ArrayTest, NestedArraysNumberAndNameInBitOrder) {
  ArrayLE<4, ArrayLE<5, Nibble>> grid;
  UniqueId next = FreshIds(2);
  grid.SetUniqueId(next);
  // 1 (outer) + 4 * (1 + 5 * 2) ids.
  EXPECT_EQ(next, FreshIds(2) + 44);
  uint32_t reg = 0;
  grid.SetExternalStorage("x", nullptr, 0, reg);
  std::vector<FieldMetadata> fields;
  grid.CollectFields(fields, false, 0);
  ASSERT_EQ(fields.size(), 20u);
  EXPECT_EQ(fields.front().name, "x[3][4].v");
  EXPECT_EQ(fields.front().bit, 0u);
  EXPECT_EQ(fields.back().name, "x[0][0].v");
  EXPECT_EQ(fields.back().bit, 76u);
  EXPECT_EQ(grid.Offset(), 0);
  EXPECT_EQ(grid[2][1].Name(), "x[2][1]");
}

TEST(ArrayTest, PackedRowsShareOneEntry) {
  ArrayLE<2, PackedArray<3, 4>> rows;
  UniqueId next = FreshIds(3);
  rows.SetUniqueId(next);
  EXPECT_EQ(next, FreshIds(3) + 6);
  uint32_t reg = 0;
  rows.SetExternalStorage("r", nullptr, 8, reg);
  std::vector<FieldMetadata> fields;
  rows.CollectFields(fields, false, 0);
  ASSERT_EQ(fields.size(), 6u);
  EXPECT_EQ(fields[0].name, "r[1][2]");
  EXPECT_EQ(fields[5].name, "r[0][0]");
  EXPECT_EQ(fields[5].bit, 28u);
  rows.set(1, 0, 9);
  EXPECT_EQ(Printed(rows),
            "[\n  0: [\n    0: [0x001c:5]/4 0x0\n    1: [0x0018:4]/4 0x0\n    2: [0x0014:3]/4 0x0\n"
            "  ]/12\n  1: [\n    0: [0x0010:2]/4 0x9\n    1: [0x000c:1]/4 0x0\n"
            "    2: [0x0008:0]/4 0x0\n  ]/12\n]/24\n");
}

TEST(RecordTest, RoundTripsAndBuildsZeroWhenFresh) {
  Sample fresh;
  EXPECT_EQ(Built(fresh), std::string(Sample::kSizeInBits, '0'));
  for (unsigned seed = 0; seed < 20; ++seed) {
    Sample sample;
    const std::string bits = RandomBits(Sample::kSizeInBits, seed);
    size_t pos = 0;
    sample.Parse(bits, &pos);
    EXPECT_EQ(pos, bits.size());
    EXPECT_EQ(Built(sample), bits);
  }
  // Parse stores every value: nothing is kept from before.
  Sample sample;
  sample.a = 63;
  size_t pos = 0;
  sample.Parse(std::string(Sample::kSizeInBits, '0'), &pos);
  EXPECT_EQ(sample.a.ToNumber(), 0u);
}

TEST(RecordTest, FieldsFollowOneAnotherWithoutPadding) {
  Sample sample;
  sample.a = 1;              // bits 0-5
  sample.b = 7;              // bits 6-8
  sample.packed.set(2, 1);   // element 2 first: bits 9-13
  sample.nibbles[1].v = 15;  // element 1 first: bits 24-27
  sample.wide = 1;           // bits 32-71
  EXPECT_EQ(Built(sample),
            "000001"
            "111"
            "00001"
            "00000"
            "00000"
            "1111"
            "0000" +
                std::string(39, '0') + "1");
}

TEST(RecordTest, IdsNamesOffsetsAndRegisters) {
  Sample sample;
  UniqueId next = FreshIds(4);
  sample.SetUniqueId(next);
  // record 1, a 1, b 1, packed 1+3, nibbles 1+2*2, wide 1
  EXPECT_EQ(next, FreshIds(4) + 12);
  EXPECT_EQ(sample.a.GetUniqueId(), FreshIds(4) + 1);
  uint32_t reg = 100;
  sample.SetExternalStorage("s", nullptr, 300, reg);
  EXPECT_EQ(reg, 100u + 1 + 1 + 3 + 2 + 2);
  EXPECT_EQ(sample.wide.Name(), "s.wide");
  EXPECT_EQ(sample.nibbles[0].v.Name(), "s.nibbles[0].v");
  EXPECT_EQ(sample.nibbles.Offset(), 300 + 24);
  EXPECT_EQ(sample.wide.RegisterLoImpl(), 107u);
  EXPECT_EQ(sample.wide.RegisterHiImpl(), 108u);
  EXPECT_DEATH(sample.a.RegisterHiImpl(), "check-fail: High register is uninitialized");

  sample.wide = 4660;
  std::string line;
  sample.wide.ToString(0, &line);
  EXPECT_EQ(line, "[0x014c:107-108]/40 0x1234\n");  // bit 332

  // A second registration changes nothing, registers included.
  reg = 500;
  sample.SetExternalStorage("other", nullptr, 0, reg);
  EXPECT_EQ(reg, 500u);
  EXPECT_EQ(sample.wide.Name(), "s.wide");
  EXPECT_TRUE(sample.IsSupportedVersion(3, 0));
  EXPECT_FALSE(sample.IsSupportedVersion(3, 1));
  EXPECT_FALSE(sample.IsSupportedVersion(2, 0));
}

TEST(RecordTest, PrintsNestedText) {
  Sample sample;
  sample.b = 2;
  sample.nibbles[0].v = 3;
  EXPECT_EQ(Printed(sample),
            "{\n"
            "  a = [0x0000]/0 0x0\n"
            "  b = [0x0000]/0 0x2\n"
            "  packed = [\n"
            "    0: [0x0000]/0 0x0\n"
            "    1: [0x0000]/0 0x0\n"
            "    2: [0x0000]/0 0x0\n"
            "  ]/15\n"
            "  nibbles = [\n"
            "    0: {\n"
            "      v = [0x0000]/0 0x3\n"
            "    }\n"
            "    1: {\n"
            "      v = [0x0000]/0 0x0\n"
            "    }\n"
            "  ]/8\n"
            "  wide = [0x0000]/0 0x0\n"
            "}\n");

  // However deep a record stands, every line is indented by its depth alone.
  const std::string shallow = Printed(sample);
  for (const size_t depth : {size_t{23}, size_t{24}, size_t{40}}) {
    std::string deep;
    sample.ToString(depth, &deep);
    std::string expected;
    size_t line_start = 0;
    for (size_t end = shallow.find('\n'); end != std::string::npos;
         line_start = end + 1, end = shallow.find('\n', line_start)) {
      // The first line follows the caller's text; the others move 2 * depth blanks to the right.
      if (line_start != 0) expected.append(2 * depth, ' ');
      expected.append(shallow, line_start, end + 1 - line_start);
    }
    EXPECT_EQ(deep, expected) << "depth " << depth;
  }
}

// A record prints its leaf fields several at a time: the lines come out whole and in order
// across those steps, and a name too long for a line still prints in full.
TEST(RecordTest, PrintsManyLeavesInOrder) {
  ManyLeaves many;
  for (size_t i = 0; i < 70; ++i) many.leaves[i] = i % 4;
  Register(many, FreshIds(9), "many", 0);
  std::string expected = "{\n";
  for (size_t i = 0; i < 70; ++i) {
    char offset[8];
    std::snprintf(offset, sizeof offset, "%04zx", 2 * i);
    expected.append("  ").append(ManyLeaves::NameOf(i)).append(" = [0x").append(offset);
    expected.append(":").append(std::to_string(i)).append("]/2 0x");
    expected.append(std::to_string(i % 4)).append("\n");
  }
  expected += "}\n";
  EXPECT_EQ(Printed(many), expected);
}

TEST(RecordTest, ALookupThatFailsLeavesAnEmptyEntryBehind) {
  BitsInteger<6> leaf(5);
  UniqueId id = FreshIds(5);
  leaf.SetUniqueId(id);
  std::string first, second;
  leaf.ToString(0, &first);
  leaf.ToString(0, &second);
  EXPECT_EQ(first, "[0x0000]/0 0x5\n");
  EXPECT_EQ(second, "[0x0000:0]/6 0x5\n");
}

TEST(MetadataTest, WideLeavesGiveTwoParts) {
  BitsInteger<40> wide(0x1234567890);
  EXPECT_EQ(Register(wide, FreshIds(6), "w", 100, 5), 7u);
  std::vector<FieldMetadata> fields;
  wide.CollectFields(fields, true, 0);
  ASSERT_EQ(fields.size(), 2u);
  EXPECT_EQ(fields[0].width, 32);
  EXPECT_EQ(fields[0].bit, 108u);
  EXPECT_EQ(fields[0].reg, 5u);
  EXPECT_TRUE(fields[0].flag);
  EXPECT_EQ(fields[1].width, 8);
  EXPECT_EQ(fields[1].bit, 100u);
  EXPECT_EQ(fields[1].reg, 6u);

  std::vector<PatchMetadata> patches;
  wide.CollectPatches(patches, 9, 100u, zu::optional<uint32_t>());
  ASSERT_EQ(patches.size(), 2u);
  EXPECT_EQ(patches[0].reg, 105u);
  EXPECT_EQ(patches[0].value, 0x34567890u);
  EXPECT_EQ(patches[1].reg, 6u);  // the high word takes no base
  EXPECT_EQ(patches[1].value, 0x12u);
  patches.clear();
  wide.CollectPatches(patches, 9, zu::optional<uint32_t>(), 7u);
  EXPECT_EQ(patches[0].value, 7u);
  EXPECT_EQ(patches[1].value, 7u);

  wide.SetRegisterHi(60, true);
  fields.clear();
  wide.CollectFields(fields, false, 512);
  EXPECT_EQ(fields[1].reg, 60u);
  EXPECT_EQ(fields[1].word, 1u);
  EXPECT_TRUE(fields[0].reg_flag);
}

TEST(MetadataTest, AFieldMayStraddleAWordBoundary) {
  BitsInteger<4> leaf;
  Register(leaf, FreshIds(7), "l", 510);
  std::vector<FieldMetadata> fields;
  leaf.CollectFields(fields, false, 0);
  ASSERT_EQ(fields.size(), 1u);
  EXPECT_EQ(fields[0].word, 0u);
  EXPECT_EQ(fields[0].bit, 510u);
}

TEST(StorageTest, FailuresSayWhatIsMissing) {
  BitsInteger<4> leaf;
  EXPECT_DEATH(leaf.GetUniqueId(), "check-fail: Unique ID not initialized");
  EXPECT_DEATH(leaf.Name(), "Unique ID not initialized");
  UniqueId id = FreshIds(8);
  leaf.SetUniqueId(id);
  EXPECT_DEATH(leaf.Offset(), "check-fail: External storage not initialized");
  std::vector<FieldMetadata> fields;
  EXPECT_DEATH(leaf.CollectFields(fields, false, 0), "External storage not initialized");
  uint32_t reg = 0;
  leaf.SetExternalStorage("ok", nullptr, 65535, reg);
  EXPECT_EQ(leaf.Offset(), 65535);
  EXPECT_DEATH(leaf.SetExternalStorage("far", nullptr, 65536, reg),
               "check-fail: Offset out of bounds \\(65536 > 65535\\)");
  Sample sample;
  EXPECT_DEATH(sample.SetExternalStorage("s", nullptr, 0, reg), "Unique ID not initialized");
}

TEST(StorageTest, ConstructsWithoutIdsStillWork) {
  Sample sample;
  sample.nibbles[1].v = 4;
  std::vector<uint64_t> values;
  sample.Walk([&values](const BitsIntegerBase& leaf) {
    EXPECT_FALSE(leaf.HasUniqueId());
    values.push_back(leaf.ToNumber());
  });
  EXPECT_EQ(values.size(), 1u + 1 + 3 + 2 + 1);
  EXPECT_EQ(values[5], 4u);  // nibbles[1] before nibbles[0]
}

}  // namespace
}  // namespace zu::spec
