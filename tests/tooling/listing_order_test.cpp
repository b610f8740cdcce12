// The canonical listing as a person reads it: in the record's order (members as the record has
// them, arrays from index 0), with the named zeros of records that have another leaf set, and
// still lossless: read back, it gives the same bits.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "Configuration.h"
#include "PathForm.h"
#include "RecordOrder.h"
#include "tile_cases.h"

namespace archspec {
namespace {

// A few leaves set at random, so that most records stay all 0 and some have one leaf set.
Configuration Sparse(const char* arch, const TileType& tile, unsigned seed) {
  Configuration c = *Configuration::Zero(*FindGeneration(arch), tile);
  std::mt19937_64 random(seed);
  const size_t leaves = c.layout().leaves().size();
  for (int k = 0; k < 40; ++k) {
    const size_t i = random() % leaves;
    const Enumeration* type = c.naming().TypeOf(i);
    uint64_t value = (random() & MaxValue(c.layout().leaves()[i].width)) | 1;
    if (type != nullptr && !type->names().empty()) {
      value = type->names()[random() % type->names().size()].code;
    }
    c.SetValue(i, value);
  }
  return c;
}

// "a.b[3].c" as its steps: "a", "b", "[3]", "c".
std::vector<std::string> Steps(const std::string& path) {
  std::vector<std::string> steps;
  std::string step;
  for (char c : path) {
    if (c == '.' || c == '[') {
      if (!step.empty()) steps.push_back(step);
      step.clear();
      if (c == '[') step.push_back('[');
    } else {
      step += c;
      if (c == ']') {
        steps.push_back(step);
        step.clear();
      }
    }
  }
  if (!step.empty()) steps.push_back(step);
  return steps;
}

// Whether leaf `a` comes before leaf `b` as the record reads: at the first step where their paths
// part, a lower index first, or the member that the record holds first (its bits come first).
bool ReadsBefore(const Layout& layout, const std::string& a, const std::string& b) {
  const std::vector<std::string> sa = Steps(a), sb = Steps(b);
  std::string prefix;
  for (size_t k = 0; k < std::min(sa.size(), sb.size()); ++k) {
    if (sa[k] == sb[k]) {
      prefix += (sa[k][0] == '[' || prefix.empty() ? "" : ".") + sa[k];
      continue;
    }
    if (sa[k][0] == '[') return std::stoul(sa[k].substr(1)) < std::stoul(sb[k].substr(1));
    const auto first_bit = [&](const std::string& step) {
      const std::string path = prefix + (prefix.empty() ? "" : ".") + step;
      if (const Branch* branch = layout.FindBranch(path)) return branch->first_leaf;
      return *layout.Find(path);
    };
    return first_bit(sa[k]) < first_bit(sb[k]);
  }
  return false;
}

// The path of the nearest record above a leaf: before its last member's name.
std::string NearestRecord(const std::string& path) {
  const size_t dot = path.rfind('.');
  return dot == std::string::npos ? "" : path.substr(0, dot);
}

bool Below(const std::string& path, const std::string& record) {
  return record.empty() ||
         (path.size() > record.size() && path.compare(0, record.size(), record) == 0 &&
          (path[record.size()] == '.' || path[record.size()] == '['));
}

class ListingOrder : public testing::TestWithParam<TileCase> {};

TEST_P(ListingOrder, RunsInTheRecordsOrderWithItsNamedZerosAndReadsBackToTheSameBits) {
  const TileCase& param = GetParam();
  for (unsigned seed : {1u, 2u, 3u}) {
    const Configuration c = Sparse(param.arch, *param.tile, seed);
    const Layout& layout = c.layout();
    const std::string listing = c.ToListing();

    std::vector<std::string> paths;
    std::istringstream lines(listing);
    for (std::string line; std::getline(lines, line);) {
      if (line.empty() || line[0] == '#') continue;
      paths.push_back(line.substr(0, line.find(" = ")));
    }
    for (size_t k = 1; k < paths.size(); ++k) {
      ASSERT_TRUE(ReadsBefore(layout, paths[k - 1], paths[k])) << paths[k - 1] << " / " << paths[k];
    }

    // Every non-zero leaf, and exactly the named zeros: a typed leaf at 0 whose 0 has a name,
    // where another leaf below its nearest record is set.
    std::set<std::string> expected;
    const std::vector<Leaf>& leaves = layout.leaves();
    for (size_t i = 0; i < leaves.size(); ++i) {
      if (c.value(i) != 0) {
        expected.insert(leaves[i].path);
        continue;
      }
      if (c.naming().NamesOf(i, 0).empty()) continue;
      const std::string record = NearestRecord(leaves[i].path);
      for (size_t j = 0; j < leaves.size(); ++j) {
        if (c.value(j) != 0 && Below(leaves[j].path, record)) {
          expected.insert(leaves[i].path);
          break;
        }
      }
    }
    EXPECT_EQ(std::set<std::string>(paths.begin(), paths.end()), expected) << "seed " << seed;
    EXPECT_EQ(paths.size(), expected.size());

    ReadRequest request;
    const ReadResult read = Configuration::Read(listing, request);
    ASSERT_TRUE(read.ok()) << read.errors.front().message;
    EXPECT_EQ(read.configuration->ToBits(), c.ToBits());

    // In bit order: the same lines, in the layout's order.
    const std::string by_bits = c.ToListing(false, false, archspec::ListingOrder::kBit);
    std::vector<std::string> sorted_lines, bit_lines;
    std::istringstream a(listing), b(by_bits);
    for (std::string line; std::getline(a, line);) sorted_lines.push_back(line);
    for (std::string line; std::getline(b, line);) bit_lines.push_back(line);
    std::vector<std::string> x = sorted_lines, y = bit_lines;
    std::sort(x.begin(), x.end());
    std::sort(y.begin(), y.end());
    EXPECT_EQ(x, y);
    size_t last = 0;
    for (size_t k = 1; k < bit_lines.size(); ++k) {
      const size_t leaf = *layout.Find(bit_lines[k].substr(0, bit_lines[k].find(" = ")));
      EXPECT_TRUE(k == 1 || leaf > last);
      last = leaf;
    }
  }
}

INSTANTIATE_TEST_SUITE_P(AllTiles, ListingOrder, testing::ValuesIn(AllTileCases()), CaseName);

TEST(ListingOrderOfAStage, Stage0ComesFirstAndItsOperationOfCode0IsShown) {
  Configuration c = *Configuration::Zero(*FindGeneration("mk43"), *FindTileType("pcu"));
  const Layout& layout = c.layout();
  c.SetValue(*layout.Find("simd_structIn[0][1].stage_result[0]"), 1);
  c.SetValue(*layout.Find("simd_structIn[0][0].stage_result[0]"), 1);
  const std::string listing = c.ToListing();
  const size_t madd = listing.find("simd_structIn[0][0].stage_opcode = stage_opcode_alu_op_madd\n");
  const size_t stage1 = listing.find("simd_structIn[0][1].stage_result[0] = 0x1\n");
  ASSERT_NE(madd, std::string::npos) << listing;
  ASSERT_NE(stage1, std::string::npos);
  EXPECT_LT(madd, stage1);
  // A stage left all 0 has no line.
  EXPECT_EQ(listing.find("simd_structIn[0][2]."), std::string::npos);
  // Without names, a listing holds the non-zero leaves only.
  EXPECT_EQ(c.ToListing(false, true).find("stage_opcode"), std::string::npos);
}

TEST(ListingOrderOfAStage, ComparisonsAndFindingsRunInTheRecordsOrder) {
  const Configuration a = *Configuration::Zero(*FindGeneration("mk44"), *FindTileType("pcu"));
  Configuration b = a;
  const Layout& layout = a.layout();
  const size_t first = *layout.Find("simd_structIn[0][0].stage_opcode");
  const size_t second = *layout.Find("simd_structIn[0][1].stage_opcode");
  b.SetValue(second, 6);  // no code of stage_opcode_t on mk44
  b.SetValue(first, 6);
  const std::vector<LeafChange> changes = a.Compare(b);
  ASSERT_EQ(changes.size(), 2u);
  EXPECT_EQ(changes[0].leaf, first);
  const std::vector<Finding> findings = b.Check();
  ASSERT_EQ(findings.size(), 2u);
  EXPECT_EQ(findings[0].leaf, first);
  EXPECT_GT(first, second);  // in bit order, stage 1 comes first
  EXPECT_EQ(RecordOrder(layout).size(), layout.leaves().size());
}

}  // namespace
}  // namespace archspec
