// The sparse listing and the bit-string readers, on small hand-made layouts: what they accept,
// the canonical form they write, and the words of every refusal.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "BitText.h"
#include "Layout.h"
#include "Nearest.h"
#include "Sparse.h"
#include "small_layout.h"

namespace archspec {
namespace {

TEST(SparseRead, TakesAssignmentsInAnyOrderWithCommentsAndBlankLines) {
  const Layout layout = SmallLayout();
  const SparseResult result = ReadSparse(
      "# a program\n"
      "\n"
      "tail = 2   # last leaf\n"
      "  base=0xFFFFFFFFFFFFFFFF\n"
      "mask[1] = 1\r\n"
      "stage_opcode = op_add\n"
      "lanes[0][1].sel = 0x2a",
      layout, Names);
  ASSERT_TRUE(result.ok()) << Errors(result);
  EXPECT_EQ(result.values, (std::vector<uint64_t>{3, 42, 0, 1, 0, ~uint64_t{0}, 2}));
}

TEST(SparseRead, EmptyTextIsTheZeroConfiguration) {
  const Layout layout = SmallLayout();
  const SparseResult result = ReadSparse("# nothing set\n\n", layout, Names);
  ASSERT_TRUE(result.ok());
  EXPECT_EQ(result.values, std::vector<uint64_t>(7, 0));
}

TEST(SparseWrite, IsCanonicalAndReadsBack) {
  const Layout layout = SmallLayout();
  const std::vector<uint64_t> values = {3, 0, 1, 0, 1, 0x123456789abcdef0, 0};
  const std::string text = WriteSparse(layout, values, {"small_struct of test"});
  EXPECT_EQ(text,
            "# small_struct of test\n"
            "stage_opcode = 0x3\n"
            "mask[0] = 0x1\n"
            "mask[2] = 0x1\n"
            "base = 0x123456789abcdef0\n");
  const SparseResult back = ReadSparse(text, layout, Names);
  ASSERT_TRUE(back.ok()) << Errors(back);
  EXPECT_EQ(back.values, values);
  // Two spellings of one configuration give one listing.
  const SparseResult other =
      ReadSparse("base = 1311768467463790320\nmask[0]=1\nmask[2] = 0x01\nstage_opcode = op_add\n",
                 layout, Names);
  ASSERT_TRUE(other.ok()) << Errors(other);
  EXPECT_EQ(WriteSparse(layout, other.values, {"small_struct of test"}), text);
}

TEST(SparseWrite, AllListsZeroLeavesToo) {
  const Layout layout = SmallLayout();
  const std::string text = WriteSparse(layout, std::vector<uint64_t>(7, 0), {}, true);
  EXPECT_EQ(text.find("stage_opcode = 0x0\n"), 0u);
  EXPECT_NE(text.find("tail = 0x0\n"), std::string::npos);
}

struct BadLine {
  const char* text;
  const char* message;  // the whole diagnostic, file and line included
};

class SparseRefusal : public testing::TestWithParam<BadLine> {};

TEST_P(SparseRefusal, NamesTheLineAndTheFault) {
  const Layout layout = SmallLayout();
  const SparseResult result = ReadSparse(GetParam().text, layout, Names);
  ASSERT_EQ(result.errors.size(), 1u) << Errors(result);
  EXPECT_EQ(FormatDiagnostic("t.sparse", result.errors[0]), GetParam().message);
  EXPECT_EQ(result.values, std::vector<uint64_t>(7, 0)) << "a refused listing yields nothing";
}

INSTANTIATE_TEST_SUITE_P(
    Faults, SparseRefusal,
    testing::Values(
        BadLine{"tail = 1\nstage_opcode = 32\n",
                "t.sparse:2: error: value 32 does not fit in 5 bits of stage_opcode"},
        BadLine{"stage_opcode = 0x20",
                "t.sparse:1: error: value 0x20 does not fit in 5 bits of stage_opcode"},
        BadLine{"lanes[0][1].sel = op_wide",
                "t.sparse:1: error: value op_wide = 64 does not fit in 6 bits of lanes[0][1].sel"},
        BadLine{"base = 18446744073709551616",
                "t.sparse:1: error: value 18446744073709551616 does not fit in 64 bits of base"},
        BadLine{"\n\nstage_opcde = 1",
                "t.sparse:3: error: unknown path stage_opcde in small_struct; did you mean "
                "stage_opcode?"},
        BadLine{"mask[3] = 1",
                "t.sparse:1: error: unknown path mask[3] in small_struct; did you mean mask[2]?"},
        BadLine{"completely_different_name = 1",
                "t.sparse:1: error: unknown path completely_different_name in small_struct"},
        BadLine{"mask[0] = 1\n# again\nmask[0] = 1\n",
                "t.sparse:3: error: duplicate assignment to mask[0] (first assigned on line 1)"},
        BadLine{"tail = op_sub", "t.sparse:1: error: tail = op_sub: no enumerant named op_sub"},
        BadLine{"tail = 2 3", "t.sparse:1: error: unexpected text after the value of tail: '2 3'"},
        BadLine{"tail = 1 = 2",
                "t.sparse:1: error: unexpected text after the value of tail: '1 = 2'"},
        BadLine{"tail = -1",
                "t.sparse:1: error: value -1 of tail is negative; fields hold unsigned numbers"},
        BadLine{"tail = 0x",
                "t.sparse:1: error: value 0x of tail is neither a number (decimal or 0x "
                "hexadecimal) nor an enumerant name"},
        BadLine{"tail = 12ab",
                "t.sparse:1: error: value 12ab of tail is neither a number (decimal or 0x "
                "hexadecimal) nor an enumerant name"},
        BadLine{"tail 1", "t.sparse:1: error: expected 'path = value', found 'tail 1'"},
        // A record or an array is no leaf: the message names one below it.
        BadLine{"lanes[0][1] = 1",
                "t.sparse:1: error: lanes[0][1] is a record in small_struct, not a leaf: assign "
                "its leaves, such as lanes[0][1].sel"},
        BadLine{"mask = 1",
                "t.sparse:1: error: mask is an array of 3 elements in small_struct, not a leaf: "
                "assign its leaves, such as mask[2]"},
        BadLine{"lanes = 0",
                "t.sparse:1: error: lanes is an array of 1 element in small_struct, not a leaf: "
                "assign its leaves, such as lanes[0][1].sel"},
        // Echoed text shows what was read, control bytes included.
        BadLine{"ta\x01il = 1",
                "t.sparse:1: error: unknown path ta\\x01il in small_struct; did you mean tail?"},
        BadLine{"tail = 1\t2",
                "t.sparse:1: error: unexpected text after the value of tail: '1\\t2'"},
        BadLine{"= 1", "t.sparse:1: error: missing the path before '='"},
        BadLine{"tail =  # to do", "t.sparse:1: error: missing the value after '=' for tail"}));

TEST(SparseRead, ReportsEveryFaultUpToTheLimit) {
  const Layout layout = SmallLayout();
  std::string text;
  for (int i = 0; i < 30; ++i) text += "nowhere = 1\n";
  const SparseResult result = ReadSparse(text, layout, Names, 5);
  ASSERT_EQ(result.errors.size(), 6u);
  EXPECT_EQ(result.errors[4].line, 5u);
  EXPECT_EQ(result.errors[5].message, "too many errors; stopping here");
}

TEST(SparseRead, SaysWhichLeavesALineAssignsZeroIncluded) {
  const Layout layout = SmallLayout();
  const SparseResult result = ReadSparse("mask[1] = 0\ntail = 2\n", layout, Names);
  ASSERT_TRUE(result.ok()) << Errors(result);
  EXPECT_EQ(result.assigned, (std::vector<bool>{false, false, false, true, false, false, true}));
  const SparseResult refused = ReadSparse("mask[1] = 0\ntail = 9\n", layout, Names);
  EXPECT_EQ(refused.assigned, std::vector<bool>(7, false)) << "a refused listing assigns nothing";
}

TEST(SparseRead, SkipsAByteOrderMarkBeforeTheFirstLineOnly) {
  const Layout layout = SmallLayout();
  const SparseResult first = ReadSparse("\xEF\xBB\xBFtail = 1\n", layout, Names);
  ASSERT_TRUE(first.ok()) << Errors(first);
  EXPECT_EQ(first.values.back(), 1u);
  // Elsewhere the mark is part of the path, and shown so that the path does not look right.
  const SparseResult later = ReadSparse(
      "tail = 1\n\xEF\xBB\xBF"
      "base = 1\n",
      layout, Names);
  ASSERT_EQ(later.errors.size(), 1u);
  EXPECT_EQ(later.errors[0].message,
            "unknown path \\u{feff}base in small_struct; did you mean base?");
}

TEST(SparseRead, HintsOnlyTheFirstUnknownPathsAndNames) {
  const Layout layout = SmallLayout();
  int searches = 0;
  const NameResolver counting = [&](std::string_view name, size_t) {
    NamedValue out{std::nullopt, "no enumerant named " + std::string(name)};
    out.nearest = [&searches] {
      ++searches;
      return std::string("op_add");
    };
    return out;
  };
  ReportLimits limits;
  limits.max_hints = 2;
  const SparseResult result = ReadSparse(
      "stage_opcde = 1\ntail = op_ad\nbse = 1\nmask[0] = op_ad\n", layout, counting, limits);
  ASSERT_EQ(result.errors.size(), 4u);
  EXPECT_EQ(result.errors[0].message,
            "unknown path stage_opcde in small_struct; did you mean stage_opcode?");
  EXPECT_EQ(result.errors[1].message,
            "tail = op_ad: no enumerant named op_ad; did you mean op_add?");
  EXPECT_EQ(result.errors[2].message, "unknown path bse in small_struct");
  EXPECT_EQ(result.errors[3].message, "mask[0] = op_ad: no enumerant named op_ad");
  EXPECT_EQ(searches, 1) << "a name past the budget is not searched for";
}

TEST(ListingHeader, IsTheFirstLineNamingAGenerationAndATile) {
  struct Case {
    const char* text;
    const char* generation;  // null: no header
    const char* tile;
  };
  const Case cases[] = {
      {"# archspec mk43 pcu\nx = 1\n", "mk43", "pcu"},
      {"\xEF\xBB\xBF#archspec  MK44\tswitch  \r\n", "MK44", "switch"},
      {"# archspec mk43 pcu", "mk43", "pcu"},
      {"# archspec mk43\n", nullptr, nullptr},
      {"# archspec mk43 pcu and more\n", nullptr, nullptr},
      {"\n# archspec mk43 pcu\n", nullptr, nullptr},
      {"# archspecs mk43 pcu\n", nullptr, nullptr},
      {"archspec mk43 pcu\n", nullptr, nullptr},
      {"# PCU program for mk43\n", nullptr, nullptr},
      {"", nullptr, nullptr},
  };
  for (const Case& c : cases) {
    const std::optional<ListingHeader> header = ReadListingHeader(c.text);
    if (c.generation == nullptr) {
      EXPECT_FALSE(header.has_value()) << c.text;
      continue;
    }
    ASSERT_TRUE(header.has_value()) << c.text;
    EXPECT_EQ(header->generation, c.generation);
    EXPECT_EQ(header->tile, c.tile);
  }
}

TEST(ListingHeader, IsWrittenReadAndCheckedInAnyCase) {
  const Layout layout = SmallLayout();
  const std::string text =
      WriteSparse(layout, {0, 0, 0, 0, 0, 0, 1}, {ListingHeaderText("mk43", "pcu")});
  EXPECT_EQ(text, "# archspec mk43 pcu\ntail = 0x1\n");
  const SparseResult read = ReadSparse(text, layout, Names);
  ASSERT_TRUE(read.ok()) << Errors(read);
  ASSERT_TRUE(read.header.has_value());
  EXPECT_FALSE(CheckListingHeader(read.header, "MK43", "PCU").has_value());
  EXPECT_FALSE(CheckListingHeader(std::nullopt, "mk43", "pcu").has_value());

  const std::optional<Diagnostic> generation = CheckListingHeader(read.header, "mk44", "pcu");
  ASSERT_TRUE(generation.has_value());
  EXPECT_EQ(FormatDiagnostic("d.sparse", *generation),
            "d.sparse:1: error: the listing is for mk43 pcu (its header says so), not for mk44 "
            "pcu");
  EXPECT_TRUE(CheckListingHeader(read.header, "mk43", "pmu").has_value());
}

TEST(SparseRead, WithoutResolverRefusesNames) {
  const Layout layout = SmallLayout();
  const SparseResult result = ReadSparse("tail = op_add", layout, nullptr);
  ASSERT_EQ(result.errors.size(), 1u);
  EXPECT_EQ(result.errors[0].message, "no enumerant names are known here, found op_add for tail");
}

TEST(SparseRead, AResolverThatThrowsBecomesAnError) {
  const Layout layout = SmallLayout();
  const NameResolver throwing = [](std::string_view, size_t) -> NamedValue {
    throw std::runtime_error("lookup failed");
  };
  const SparseResult result = ReadSparse("tail = 1\nbase = op_add\n", layout, throwing);
  ASSERT_EQ(result.errors.size(), 1u);
  EXPECT_EQ(result.errors[0].line, 2u);
  EXPECT_EQ(result.errors[0].message, "cannot read the listing: lookup failed");
}

TEST(SparseRead, SurvivesArbitraryBytes) {
  const Layout layout = SmallLayout();
  std::string text;
  for (int i = 0; i < 4096; ++i) text += static_cast<char>((i * 7919) % 256);
  const SparseResult result = ReadSparse(text, layout, Names);
  EXPECT_FALSE(result.ok());
}

TEST(Hex, IsLowerCaseWithoutPadding) {
  EXPECT_EQ(Hex(0), "0x0");
  EXPECT_EQ(Hex(0xABC), "0xabc");
  EXPECT_EQ(Hex(~uint64_t{0}), "0xffffffffffffffff");
}

TEST(LayoutLookup, FindsTheLeafOfEveryBitAndNoneOutside) {
  const Layout layout = SmallLayout();
  for (uint32_t bit = 0; bit < layout.bits(); ++bit) {
    const std::optional<size_t> index = layout.LeafAtBit(bit);
    ASSERT_TRUE(index.has_value()) << bit;
    const Leaf& leaf = layout.leaves()[*index];
    EXPECT_LE(leaf.offset, bit);
    EXPECT_LT(bit, leaf.offset + leaf.width);
  }
  EXPECT_FALSE(layout.LeafAtBit(80).has_value());
  EXPECT_EQ(Registers(layout.leaves()[5]), "5-6");
}

// The plain table of edit distances, for comparison with the one that stops at a limit.
size_t FullEditDistance(const std::string& a, const std::string& b) {
  std::vector<std::vector<size_t>> d(a.size() + 1, std::vector<size_t>(b.size() + 1));
  for (size_t i = 0; i <= a.size(); ++i) d[i][0] = i;
  for (size_t j = 0; j <= b.size(); ++j) d[0][j] = j;
  for (size_t i = 1; i <= a.size(); ++i) {
    for (size_t j = 1; j <= b.size(); ++j) {
      d[i][j] = std::min(
          {d[i - 1][j] + 1, d[i][j - 1] + 1, d[i - 1][j - 1] + (a[i - 1] == b[j - 1] ? 0 : 1)});
    }
  }
  return d[a.size()][b.size()];
}

TEST(Nearest, EditDistanceIsExactUpToTheLimitAndOverItPast) {
  std::mt19937 random(11);
  const auto word = [&] {
    std::string out(random() % 12, 'a');
    for (char& c : out) c = static_cast<char>('a' + random() % 3);
    return out;
  };
  for (int round = 0; round < 20000; ++round) {
    const std::string a = word();
    const std::string b = word();
    const size_t limit = random() % 8;
    const size_t full = FullEditDistance(a, b);
    const size_t bounded = EditDistance(a, b, limit);
    if (full <= limit) {
      ASSERT_EQ(bounded, full) << a << " " << b << " limit " << limit;
    } else {
      ASSERT_EQ(bounded, limit + 1) << a << " " << b << " limit " << limit;
    }
    ASSERT_EQ(EditDistance(a, b), full) << a << " " << b;
  }
}

TEST(Nearest, PrefersTheSmallestEditAndDropsFarGuesses) {
  EXPECT_EQ(EditDistance("kitten", "sitting"), 3u);
  NearestName nearest("stage_opcod");
  nearest.Offer("stage_opA_src");
  nearest.Offer("stage_opcode");
  EXPECT_EQ(nearest.Best(), "stage_opcode");
  NearestName far("xyz");
  far.Offer("stage_opcode");
  EXPECT_EQ(far.Best(), "");
}

TEST(BitText, SkipsLineBreaksAndBlanks) {
  const BitsResult result = ReadBitText("0101\n 10\t1\r\n", 7, "r");
  ASSERT_TRUE(result.ok());
  EXPECT_EQ(result.bits, "0101101");
}

TEST(BitText, NamesLineColumnAndBitOfABadCharacter) {
  const BitsResult result = ReadBitText("0101\n10x1\n", 8, "r of t");
  ASSERT_EQ(result.errors.size(), 1u);
  EXPECT_EQ(FormatDiagnostic("c.bits", result.errors[0]),
            "c.bits:2:3: error: character 'x' at bit 6 is not '0' or '1'");
  const BitsResult binary = ReadBitText(std::string("01\0", 3), 3, "r of t");
  ASSERT_EQ(binary.errors.size(), 1u);
  // Unprintable bytes suggest the packed form: each face says how its user asks for it.
  EXPECT_EQ(binary.errors[0].message, "byte 0x00 at bit 2 is not '0' or '1'");
  EXPECT_EQ(binary.errors[0].hint, Hint::kPackedBytes);
  EXPECT_EQ(result.errors[0].hint, Hint::kNone);
}

TEST(BitText, RefusesAWrongLength) {
  const BitsResult result = ReadBitText("0101\n", 9, "r of t");
  ASSERT_EQ(result.errors.size(), 1u);
  EXPECT_EQ(FormatDiagnostic("c.bits", result.errors[0]),
            "c.bits: error: 4 bits, but r of t has 9");
}

TEST(BitBytes, UnpacksMostSignificantFirstAndDropsPadding) {
  const BitsResult result = ReadBitBytes(std::string("\xA5\x80", 2), 9, "r");
  ASSERT_TRUE(result.ok());
  EXPECT_EQ(result.bits, "101001011");
}

TEST(BitBytes, RefusesAWrongSizeAndSetPadding) {
  const BitsResult size = ReadBitBytes(std::string("\xA5", 1), 9, "r of t");
  ASSERT_EQ(size.errors.size(), 1u);
  EXPECT_EQ(size.errors[0].message,
            "1 bytes, but r of t takes 2 (9 bits, the last byte padded with 7 zero bits)");
  const BitsResult padding = ReadBitBytes(std::string("\xA5\x81", 2), 9, "r of t");
  ASSERT_EQ(padding.errors.size(), 1u);
  EXPECT_EQ(padding.errors[0].message,
            "padding bit 15 in the last byte (byte 1) is 1; r of t ends at bit 8 and padding "
            "must be 0");
}

}  // namespace
}  // namespace archspec
