// Where each bit of a tile lies, as `where` says it: for every bit of every tile's layout, the
// leaf, the register and the bit of that register that Layout::PlaceOfBit gives agree with the
// library's own account of the tile's register words (CollectFields: one part of at most 32 bits
// per register, its last bit at bit 0 of the register).
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "Tile.h"
#include "compiler/arch_spec/ArchSpec.h"
#include "compiler/arch_spec/Constructs.h"
#include "tile_cases.h"

namespace archspec {
namespace {

using zu::spec::BaseConstruct;
using zu::spec::FieldMetadata;

// Where the library puts one bit of the tile's bit string.
struct Expected {
  std::string path;
  uint32_t reg = 0;
  uint32_t register_bit = 0;
};

class PlacementTest : public testing::TestWithParam<TileCase> {
 protected:
  void SetUp() override { BaseConstruct::external_storage_.clear(); }
  void TearDown() override { BaseConstruct::external_storage_.clear(); }

  // Every bit of a fresh record of `record_class`, registered as a tile's record is.
  static std::vector<Expected> LibraryPlaces(const RecordClass& record_class) {
    const std::unique_ptr<BaseConstruct> root = record_class.make();
    zu::spec::UniqueId next = 0;
    root->SetUniqueId(next);
    uint32_t reg = 0;
    root->SetExternalStorage("", nullptr, 0, reg);
    std::vector<FieldMetadata> parts;
    root->CollectFields(parts, false, 0);
    std::vector<Expected> places(record_class.bits);
    for (const FieldMetadata& part : parts) {
      const size_t first = 512 * size_t{part.word} + part.bit;
      for (uint32_t k = 0; k < part.width; ++k) {
        places.at(first + k) = {part.name, part.reg, part.width - 1 - k};
      }
    }
    BaseConstruct::external_storage_.clear();
    return places;
  }
};

TEST_P(PlacementTest, EveryBitPlacesToItsRegisterAndRegisterBit) {
  std::string error;
  const zu::spec::ArchVersion version = zu::spec::ArchVersion::expect_parse(GetParam().arch, error);
  const std::unique_ptr<TileRecord> record = TileRecord::Create(version, *GetParam().tile);
  ASSERT_NE(record, nullptr) << error;
  const Layout& layout = record->layout();
  const std::vector<Expected> expected = LibraryPlaces(record->record_class());
  ASSERT_EQ(expected.size(), layout.bits());
  size_t wrong = 0;
  for (uint32_t bit = 0; bit < layout.bits() && wrong < 5; ++bit) {
    const std::optional<BitPlace> place = layout.PlaceOfBit(bit);
    ASSERT_TRUE(place.has_value()) << "bit " << bit;
    const Leaf& leaf = layout.leaves()[place->leaf];
    const Expected& want = expected[bit];
    if (leaf.path != want.path || place->reg != want.reg ||
        place->register_bit != want.register_bit) {
      ++wrong;
      ADD_FAILURE() << "bit " << bit << ": " << leaf.path << " register " << place->reg << " bit "
                    << place->register_bit << ", expected " << want.path << " register " << want.reg
                    << " bit " << want.register_bit;
    }
  }
  // One past the last bit lies outside the tile.
  EXPECT_FALSE(layout.PlaceOfBit(layout.bits()).has_value());
}

INSTANTIATE_TEST_SUITE_P(Tiles, PlacementTest, testing::ValuesIn(AllTileCases()), CaseName);

// The tiles hold leaves of more than 32 bits, whose value bit 32 is bit 0 of the high register:
// the test above reaches that case.
TEST(PlacementCoverage, SomeTileHasAWideLeaf) {
  size_t wide = 0;
  for (const TileCase& tile : AllTileCases()) {
    std::string error;
    const auto record =
        TileRecord::Create(zu::spec::ArchVersion::expect_parse(tile.arch, error), *tile.tile);
    ASSERT_NE(record, nullptr) << error;
    for (const Leaf& leaf : record->layout().leaves()) wide += leaf.reg_hi.has_value();
  }
  BaseConstruct::external_storage_.clear();
  EXPECT_GT(wide, 0u);
}

}  // namespace
}  // namespace archspec
