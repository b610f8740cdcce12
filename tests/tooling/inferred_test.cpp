// Inferred codes as the faces see them: IsInferred and the "inferred" of an accessor's entry, per
// generation, for codes the tables place within a span, stated codes and unanswered ones.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "Accessors.h"
#include "AccessorsJson.h"

namespace archspec {
namespace {

using zu::spec::ArchVersion;

ArchVersion Version(const char* name) {
  std::string error;
  const ArchVersion version = ArchVersion::expect_parse(name, error);
  EXPECT_NE(version.major, 0) << error;
  return version;
}

const Accessor& Named(const char* name) {
  const Accessor* accessor = FindAccessor(name);
  EXPECT_NE(accessor, nullptr) << name;
  return *accessor;
}

TEST(Inferred, IsAnsweredCodeByCodeAndGenerationByGeneration) {
  // A code re-placed from mk43 to mk44 within its span: inferred on both.
  const Accessor& moved = Named("pcu_udcxbar_enum_pcu_udcxbar_ne_scalar_in_1");
  // Answered by mk44 only: not inferred where it is not answered.
  const Accessor& late = Named("pcu_udcxbar_enum_pcu_udcxbar_ne_scl_crdrtn_0");
  const Accessor& stated = Named("stage_opcode_alu_op_srl");
  for (const char* product : {"mk43", "mk44"}) {
    SCOPED_TRACE(product);
    const ArchVersion version = Version(product);
    EXPECT_TRUE(IsInferred(moved, version));
    EXPECT_FALSE(IsInferred(stated, version));
    EXPECT_EQ(IsInferred(late, version), std::string(product) == "mk44");
    const OwnedAnswers owned(*zu::spec::ServingGeneration(version));
    const nlohmann::json entry = AccessorEntry(moved, version, owned.answers());
    EXPECT_EQ(entry["inferred"], true);
    EXPECT_EQ(entry["kind"], "enumerant");
    EXPECT_EQ(entry["answered"], true);
    EXPECT_EQ(entry["value"], std::string(product) == "mk43" ? 0x40 : 0x3c);
    EXPECT_EQ(AccessorEntry(stated, version, owned.answers())["inferred"], false);
    const nlohmann::json unanswered = AccessorEntry(late, version, owned.answers());
    EXPECT_EQ(unanswered["value"].is_null(), std::string(product) == "mk43");
  }
  // Only enumerants have codes, inferred or not.
  const ArchVersion mk44 = Version("mk44");
  const OwnedAnswers owned(*zu::spec::ServingGeneration(mk44));
  const auto parameter =
      std::find_if(AllAccessors().begin(), AllAccessors().end(),
                   [](const Accessor& a) { return a.kind == AccessorKind::kScalar; });
  ASSERT_NE(parameter, AllAccessors().end());
  EXPECT_FALSE(IsInferred(*parameter, mk44));
  EXPECT_FALSE(AccessorEntry(*parameter, mk44, owned.answers()).contains("inferred"));
}

}  // namespace
}  // namespace archspec
