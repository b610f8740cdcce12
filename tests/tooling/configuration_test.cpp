// A tile's configuration: every form written and read back, the telling of an input's form, the
// refusal of an input of another generation or tile, the JSON's own refusals, and the setting of
// a leaf from text.
#include "Configuration.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "ConfigurationJson.h"
#include "tile_cases.h"

namespace archspec {
namespace {

using zu::spec::ArchVersion;

Configuration Zero(const char* arch, const char* tile) {
  return *Configuration::Zero(*FindGeneration(arch), *FindTileType(tile));
}

// Every leaf drawn at random: a typed leaf from its type's names half the time, so that names are
// written and read too.
Configuration Random(const char* arch, const TileType& tile, unsigned seed) {
  Configuration c = *Configuration::Zero(*FindGeneration(arch), tile);
  std::mt19937_64 random(seed);
  for (size_t i = 0; i < c.layout().leaves().size(); ++i) {
    const Enumeration* type = c.naming().TypeOf(i);
    uint64_t value = random() & MaxValue(c.layout().leaves()[i].width);
    if (type != nullptr && random() % 2 == 0)
      value = type->names()[random() % type->names().size()].code;
    if (random() % 3 == 0) value = 0;
    c.SetValue(i, value);
  }
  return c;
}

ReadResult Read(std::string_view data, const std::string& arch = "", const std::string& tile = "",
                bool force = false) {
  ReadRequest request;
  request.generation = arch;
  request.tile = tile;
  request.force = force;
  return Configuration::Read(data, request);
}

class ConfigurationForms : public testing::TestWithParam<TileCase> {};

TEST_P(ConfigurationForms, EveryFormReadsBackToTheSameValues) {
  const TileCase& param = GetParam();
  const Configuration written = Random(param.arch, *param.tile, 17);
  const std::vector<uint8_t> packed = written.ToBytes();
  const std::vector<std::pair<std::string, std::string>> forms{
      {"bits", written.ToBits()},
      {"bytes", std::string(packed.begin(), packed.end())},
      {"listing", written.ToListing()},
      {"listing of codes", written.ToListing(false, true)},
      {"whole listing", written.ToListing(true)},
      {"json", written.ToJson()},
      {"json of codes", written.ToJson(false, true)},
      {"whole json", written.ToJson(true)}};
  for (const auto& [form, data] : forms) {
    SCOPED_TRACE(form);
    const ReadResult read = Read(data, param.arch, param.tile->name);
    ASSERT_TRUE(read.ok()) << read.errors.front().message;
    EXPECT_EQ(read.configuration->values(), written.values());
    // A listing and JSON name their generation and tile themselves.
    if (form.find("listing") != std::string::npos || form.find("json") != std::string::npos) {
      const ReadResult named = Read(data);
      ASSERT_TRUE(named.ok()) << named.errors.front().message;
      EXPECT_TRUE(*named.configuration == written);
    }
  }
}

TEST_P(ConfigurationForms, JsonAgreesWithTheLayoutFieldByField) {
  const TileCase& param = GetParam();
  const Configuration a = Random(param.arch, *param.tile, 3);
  const Configuration b = Random(param.arch, *param.tile, 4);
  const Layout& layout = a.layout();
  const nlohmann::json decoded = nlohmann::json::parse(a.ToJson(true));
  ASSERT_EQ(decoded["leaves"].size(), layout.leaves().size());
  std::vector<bool> seen(layout.leaves().size());
  for (const nlohmann::json& row : decoded["leaves"]) {
    const std::optional<size_t> i = layout.Find(row["path"].get<std::string>());
    ASSERT_TRUE(i.has_value() && !seen[*i]) << row["path"];
    seen[*i] = true;
    EXPECT_EQ(row["offset"], layout.leaves()[*i].offset);
    EXPECT_EQ(row["width"], layout.leaves()[*i].width);
    EXPECT_EQ(row["value"], Hex(a.value(*i)));
  }
  const nlohmann::json laid = nlohmann::json::parse(LayoutToJson(a).dump());
  for (size_t i = 0; i < layout.leaves().size(); ++i) {
    EXPECT_EQ(laid["leaves"][i]["registers"], Registers(layout.leaves()[i]));
  }
  // Every branch before what it holds, and as wide as its leaves.
  for (const nlohmann::json& branch : laid["branches"]) {
    const Branch* known = layout.FindBranch(branch["path"].get<std::string>());
    ASSERT_NE(known, nullptr);
    const Leaf& last = layout.leaves()[known->last_leaf];
    EXPECT_EQ(branch["offset"].get<uint32_t>() + branch["bits"].get<uint32_t>(),
              last.offset + last.width);
  }
  const std::vector<LeafChange> changes = a.Compare(b);
  const nlohmann::json compared =
      nlohmann::json::parse(ComparisonToJson(a, b, changes, "a", "b", false).dump());
  ASSERT_EQ(compared["differences"].size(), changes.size());
  for (const nlohmann::json& row : compared["differences"]) {
    const size_t i = *layout.Find(row["path"].get<std::string>());
    EXPECT_EQ(row["a"], Hex(a.value(i)));
    EXPECT_EQ(row["b"], Hex(b.value(i)));
  }
}

INSTANTIATE_TEST_SUITE_P(AllTiles, ConfigurationForms, testing::ValuesIn(AllTileCases()), CaseName);

TEST(InspectInput, TellsEachFormFromWhatItHolds) {
  const uint32_t bits = Zero("mk43", "pcu").layout().bits();  // 9793: 1225 bytes packed
  const std::string ones(1225, '1');
  struct Case {
    std::string data;
    uint32_t tile_bits;
    Form form;
  };
  const std::vector<Case> cases{
      {"# archspec mk43 pcu\n", 0, Form::kListing},
      {"\xef\xbb\xbf# archspec mk43 pcu\nx = 1\n", 0, Form::kListing},
      {"simd_structIn[0][0].stage_opcode = 1\n", 0, Form::kListing},
      {"# a comment\n", 0, Form::kListing},
      {"", 0, Form::kListing},
      {"  {\"arch\": \"mk43\"}", 0, Form::kJson},
      {"0101 1100\n0011\n", 0, Form::kBits},
      {"0101x0101", 0, Form::kBits},  // a stray character, reported where it stands
      {ones, 0, Form::kBits},
      {ones, bits, Form::kBytes},  // the packed length, not the length in bits
      {std::string(9793, '0'), bits, Form::kBits},
      {std::string("\0\0\x12\x80", 4), 0, Form::kBytes},
      {std::string(
           "# two lines, one with a stray NUL\nsimd_structIn[0][0].stage_opcode = 1\nb\0 = 2\n",
           72),
       0, Form::kListing},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.data.substr(0, 40));
    EXPECT_EQ(InspectInput(c.data, std::nullopt, c.tile_bits).form, c.form);
  }
  EXPECT_EQ(InspectInput("0101", Form::kListing).form, Form::kListing);
  const InputKind named = InspectInput("# archspec MK44 agcu\n");
  ASSERT_TRUE(named.names.has_value());
  EXPECT_EQ(named.names->generation, "MK44");
  EXPECT_EQ(named.names->tile, "agcu");
}

TEST(ConfigurationRead, AStrayCharacterInBitsIsReportedWhereItStands) {
  const ReadResult read = Read("0101\n01x1", "mk43", "pcu");
  ASSERT_EQ(read.errors.size(), 1u);
  EXPECT_EQ(read.errors[0].line, 2u);
  EXPECT_EQ(read.errors[0].column, 3u);
  EXPECT_EQ(read.errors[0].message, "character 'x' at bit 6 is not '0' or '1'");
}

TEST(ConfigurationRead, ALengthOfOneTileOnlySaysWhose) {
  const std::string rye_pcu = Zero("mk44", "pcu").ToBits();
  ReadResult read = Read(rye_pcu, "mk41", "pcu");
  ASSERT_FALSE(read.ok());
  EXPECT_EQ(read.errors[0].message,
            "8866 bits, but pcu_config_struct of mk41 (ko) has 8854 (8866 bits are the length of "
            "pcu_config_struct of mk44 (rye))");
  // mk41 and mk42 share their records: both are named.
  read = Read(Zero("mk41", "pcu").ToBits(), "mk43", "pcu");
  EXPECT_NE(read.errors[0].message.find("(8854 bits are the length of pcu_config_struct of "
                                        "mk41 (ko) and mk42 (uko))"),
            std::string::npos)
      << read.errors[0].message;
  // A length of no tile says nothing more.
  read = Read("0101", "mk43", "pcu");
  EXPECT_EQ(read.errors[0].message, "4 bits, but pcu_config_struct of mk43 (ry) has 9793");
  const std::vector<uint8_t> packed = Zero("mk44", "pcu").ToBytes();
  ReadRequest bytes;
  bytes.form = Form::kBytes;
  bytes.generation = "mk43";
  bytes.tile = "pcu";
  read = Configuration::Read(std::string(packed.begin(), packed.end()), bytes);
  EXPECT_NE(read.errors[0].message.find("(1109 bytes are the length of pcu_config_struct of "
                                        "mk44 (rye))"),
            std::string::npos)
      << read.errors[0].message;
}

TEST(ConfigurationRead, AnInputOfAnotherGenerationOrTileIsRefusedUnlessForced) {
  Configuration mk44 = Zero("mk44", "pcu");
  ASSERT_FALSE(mk44.Set("simd_structIn[0][0].stage_immediate", "5").has_value());
  for (const std::string& data : {mk44.ToListing(), mk44.ToJson()}) {
    const bool json = data[0] == '{';
    SCOPED_TRACE(json ? "json" : "listing");
    ReadResult read = Read(data, "mk43", "pcu");
    ASSERT_EQ(read.errors.size(), 1u);
    EXPECT_EQ(read.fault, Fault::kData);
    EXPECT_EQ(read.errors[0].hint, Hint::kForce);
    EXPECT_EQ(read.errors[0].line, json ? 2u : 1u);  // where "arch" stands, or the header
    EXPECT_EQ(read.errors[0].message,
              json ? "the configuration is for mk44 pcu (its \"arch\" and \"tile\" say so), not "
                     "for mk43 pcu"
                   : "the listing is for mk44 pcu (its header says so), not for mk43 pcu");
    read = Read(data, "mk44", "pmu");
    EXPECT_EQ(read.errors.at(0).hint, Hint::kForce);
    // Forced, a listing is read by its paths; JSON too, but its record and bits must agree.
    EXPECT_EQ(Read(data, "mk43", "pcu", true).ok(), !json);
    EXPECT_TRUE(Read(data, "mk44", "pcu").ok());
  }
}

TEST(ConfigurationRead, WhatTheInputNamesIsCheckedAsData) {
  ReadResult read = Read("# archspec mk99 pcu\n");
  EXPECT_EQ(read.fault, Fault::kData);
  EXPECT_EQ(read.errors.at(0).line, 1u);
  EXPECT_EQ(read.errors[0].message,
            "no generation is named 'mk99'; the generations are mk41, mk42, mk43 and mk44");
  read = Read("# archspec mk43 alu\n");
  EXPECT_EQ(read.errors.at(0).message,
            "no tile is named 'alu'; the tiles are pcu, pmu, switch and agcu");
  read = Read("0101");
  EXPECT_EQ(read.fault, Fault::kUsage);
  EXPECT_EQ(read.errors.at(0).hint, Hint::kNoGeneration);
  read = Read("0101", "mk43");
  EXPECT_EQ(read.errors.at(0).hint, Hint::kNoTile);
  read = Read("0101", "mk43", "alu");
  EXPECT_EQ(read.fault, Fault::kUsage);
}

TEST(ConfigurationRead, JsonOfAnotherKindOrWithFaultsIsRefusedWhereItIs) {
  const Configuration a = Zero("mk43", "pcu");
  const std::vector<std::pair<std::string, std::string>> others{
      {ComparisonToJson(a, a, {}, "a", "b", false).dump(2),
       "this is the JSON of a comparison of two configurations, not of a configuration"},
      {LayoutToJson(a).dump(2), "this is the JSON of a tile's layout, not of a configuration"},
      {FindingsToJson(a, {}, {}, "f").dump(2),
       "this is the JSON of the findings of a check, not of a configuration"}};
  for (const auto& [data, message] : others) {
    const ReadResult read = Read(data, "mk43", "pcu");
    ASSERT_EQ(read.errors.size(), 1u);
    EXPECT_EQ(read.errors[0].message, message);
  }
  const std::string head = "{\n\"arch\": \"mk43\",\n\"tile\": \"pcu\",\n\"leaves\": [\n";
  const auto leaf = [&](const std::string& fields) { return head + "{" + fields + "}\n]}\n"; };
  struct Case {
    std::string data;
    size_t line;
    std::string message;
  };
  const std::vector<Case> cases{
      {leaf(R"("path": "simd_structIn[0][4].stage_opcode", "value": "0x1a",
               "name": "stage_opcode_alu_op_min")"),
       5,
       "the name of simd_structIn[0][4].stage_opcode, stage_opcode_alu_op_min, is 0x19, but its "
       "value is 0x1a"},
      {leaf(R"("path": "simd_structIn[0][4].stage_opcode", "value": "0x100")"), 5,
       "value 0x100 does not fit in 5 bits of simd_structIn[0][4].stage_opcode"},
      {leaf(R"("path": "simd_structIn[0][4].stage_opcode")"), 5,
       "the leaf simd_structIn[0][4].stage_opcode has no \"value\""},
      {leaf(R"("path": "simd_structIn[0][4].stage_opcode", "value": "1", "colour": "red")"), 5,
       "a leaf of a configuration has no \"colour\""},
      {head + "{\"path\": \"x\", \"value\": 1,}\n]}", 5, ""},  // a syntax error: line and column
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.data);
    const ReadResult read = Read(c.data);
    ASSERT_FALSE(read.ok());
    EXPECT_EQ(read.errors[0].line, c.line);
    if (!c.message.empty()) {
      EXPECT_EQ(read.errors[0].message, c.message);
    }
  }
}

// Inputs cut, with bytes changed, put in or taken out, in every form: each read ends in a
// configuration or in complaints that show no raw control byte.
TEST(ConfigurationRead, SurvivesDamagedInputOfEveryForm) {
  const Configuration c = Random("mk44", *FindTileType("agcu"), 9);
  const std::vector<uint8_t> packed = c.ToBytes();
  const std::vector<std::string> inputs{c.ToJson(), c.ToListing(), c.ToBits(),
                                        std::string(packed.begin(), packed.end())};
  std::mt19937 random(5);
  static constexpr char kSpecials[] = "{}[]\",:\\u0123456789abcdefx-+.eE \n\t\x00\x80\xff";
  const std::string specials(kSpecials, sizeof kSpecials - 1);  // the NUL too
  for (int run = 0; run < 400; ++run) {
    std::string data = inputs[run % inputs.size()];
    for (int change = 0; change < 1 + run % 4; ++change) {
      const size_t at = random() % data.size();
      switch (random() % 4) {
        case 0:
          data[at] = specials[random() % specials.size()];
          break;
        case 1:
          data.insert(at, 1, specials[random() % specials.size()]);
          break;
        case 2:
          data.erase(at, 1 + random() % 8);
          break;
        default:
          data.resize(at);
      }
      if (data.empty()) data = "{";
    }
    const ReadResult read = Read(data, run % 2 == 0 ? "mk44" : "", run % 2 == 0 ? "agcu" : "");
    for (const Diagnostic& error : read.errors) {
      for (char ch : error.message)
        ASSERT_GE(static_cast<unsigned char>(ch), 0x20u) << error.message;
    }
  }
}

TEST(ConfigurationSet, TakesNumbersAndNamesOfTheLeafsType) {
  Configuration c = Zero("mk43", "pcu");
  const std::string path = "simd_structIn[0][4].stage_opcode";
  EXPECT_FALSE(c.Set(path, "stage_opcode_alu_op_max").has_value());
  EXPECT_EQ(c.value(*c.Find(path)), 26u);
  EXPECT_FALSE(c.Set(path, "0x1f").has_value());
  EXPECT_EQ(c.value(*c.Find(path)), 31u);
  EXPECT_FALSE(c.Set(path, "3").has_value());
  EXPECT_EQ(c.value(*c.Find(path)), 3u);
  const std::vector<std::pair<std::string, std::string>> refused{
      {"32", "value 32 does not fit in 5 bits of " + path},
      {"-1", "value -1 of " + path + " is negative; fields hold unsigned numbers"},
      {"1 # 2", "value '1 # 2' of " + path +
                    " is neither a number (decimal or 0x hexadecimal) nor an enumerant name"},
  };
  for (const auto& [text, message] : refused) {
    EXPECT_EQ(c.Set(path, text).value_or(""), message);
    EXPECT_EQ(c.value(*c.Find(path)), 3u);  // nothing changed
  }
  // A name of another type, and a path of no leaf, say so.
  EXPECT_NE(c.Set(path, "pcu_ctloutxbar_enum_pcu_ctloutxbar_ctxt0_token_done")
                .value_or("")
                .find("stage_opcode_t"),
            std::string::npos);
  EXPECT_NE(c.Set("simd_structIn[0][4]", "1").value_or("").find("is a record"), std::string::npos);
}

TEST(ConfigurationCompare, OnlyConfigurationsOfOneTileClass) {
  const Configuration a = Zero("mk43", "pcu");
  EXPECT_FALSE(a.CanCompare(Random("mk43", *FindTileType("pcu"), 1)).has_value());
  EXPECT_EQ(a.CanCompare(Zero("mk44", "pcu")).value_or(""),
            "cannot compare pcu_config_struct of mk43 (ry) with pcu_config_struct of mk44 (rye)");
}

TEST(ConfigurationPlace, EveryBitInsideAndNoneOutside) {
  const Configuration c = Zero("mk44", "agcu");
  const uint32_t bits = c.layout().bits();
  EXPECT_TRUE(c.Place(0).has_value());
  EXPECT_TRUE(c.Place(bits - 1).has_value());
  EXPECT_FALSE(c.Place(bits).has_value());
  EXPECT_EQ(c.Outside("99999"),
            "bit 99999 lies outside AGCU_Config_struct of mk44 (rye), which "
            "has bits 0 to " +
                std::to_string(bits - 1));
}

}  // namespace
}  // namespace archspec
