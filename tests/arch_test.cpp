// Naming, parsing and choosing a chip generation.
#include <gtest/gtest.h>

#include <string>

#include "compiler/arch_spec/ArchSpec.h"
#include "compiler/arch_spec/ArchVersion.h"
#include "compiler/arch_spec/gen/ArchGenerations.h"

namespace zu::spec {
namespace {

TEST(ArchVersionTest, ParsesProductNamesInAnyCase) {
  std::string error = "untouched";
  EXPECT_EQ(ArchVersion::expect_parse("mk41", error), ArchVersion::v2_0_0);
  EXPECT_EQ(ArchVersion::expect_parse("mk42", error), ArchVersion::v2_1_0);
  EXPECT_EQ(ArchVersion::expect_parse("MK43", error), ArchVersion::v3_0_0);
  EXPECT_EQ(ArchVersion::expect_parse("Mk44", error), ArchVersion::v4_0_0);
  EXPECT_EQ(error, "untouched");
  EXPECT_EQ(ArchVersion::parse("mk43"), ArchVersion::v3_0_0);
}

TEST(ArchVersionTest, RefusesWithTheExactReason) {
  struct Case {
    const char* name;
    const char* error;
  };
  const Case cases[] = {
      {"", "Can't determine target architecture version. Did you forget to specify --arch?"},
      {"native",
       "Architecture autodetection is not supported. Please specify --arch explicitly (e.g., "
       "--arch mk42, --arch mk43, etc.)"},
      {"Native", "Invalid architecture version in --arch: \"Native\""},
      {"ko", "Invalid architecture version in --arch: \"ko\""},
      {"mk45", "Invalid architecture version in --arch: \"mk45\""},
      {"mk43 ", "Invalid architecture version in --arch: \"mk43 \""},
  };
  for (const Case& c : cases) {
    std::string error = "previous text";
    const ArchVersion version = ArchVersion::expect_parse(c.name, error);
    EXPECT_EQ(version, ArchVersion::vUndefined) << c.name;
    EXPECT_EQ(error, c.error) << c.name;
  }
}

TEST(ArchVersionDeathTest, ParseLogsAndExitsWithStatusOne) {
  EXPECT_EXIT(ArchVersion::parse("mk99"), testing::ExitedWithCode(1),
              "ERROR .*Invalid architecture version in --arch: \"mk99\"");
  EXPECT_EXIT(ArchVersion::parse(""), testing::ExitedWithCode(1),
              "Did you forget to specify --arch");
}

TEST(ArchVersionTest, PrintsVersionsAndNames) {
  EXPECT_EQ(ArchVersion::vUndefined.to_string(), "0");
  EXPECT_EQ(ArchVersion::v2_0_0.to_string(), "2");
  EXPECT_EQ(ArchVersion::v2_1_0.to_string(), "2.1");
  EXPECT_EQ((ArchVersion{2, 0, 5}).to_string(), "2.0.5");
  EXPECT_EQ((ArchVersion{3, -1, -2}).to_string(), "3");
  EXPECT_EQ(ArchVersion::v3_0_0.to_product_name_string(), "mk43");
  EXPECT_EQ(ArchVersion::v2_1_0.to_code_name_string(), "uko");
  EXPECT_EQ(ArchVersion::v5_0_0.to_product_name_string(), "");
  EXPECT_EQ(ArchVersion::v5_0_0.to_code_name_string(), "vi");
  EXPECT_EQ(ArchVersion::v6_0_0.to_code_name_string(), "oz");
  const ArchVersion odd{2, 0, 3};
  EXPECT_FALSE(odd.validate());
  EXPECT_EQ(odd.to_string(), "2.0.3");
  EXPECT_EQ(odd.to_product_name_string(), "");
  EXPECT_EQ(odd.to_code_name_string(), "");
}

TEST(ArchVersionTest, SupportedSetAndValidation) {
  const std::set<ArchVersion> supported = ArchVersion::supported_archs();
  EXPECT_EQ(supported.size(), 4u);
  EXPECT_TRUE(ArchVersion::v4_0_0.validate());
  EXPECT_FALSE(ArchVersion::v5_0_0.validate());
  EXPECT_FALSE(ArchVersion::vUndefined.validate());
  EXPECT_EQ(ArchVersion::product_name_to_version_.size(), 4u);
  EXPECT_EQ(ArchVersion::code_name_to_version_.size(), 6u);
  EXPECT_EQ(ArchVersion::code_name_to_version_.at("oz"), ArchVersion::v6_0_0);
}

TEST(ArchVersionTest, HashWrapsIn32Bits) {
  EXPECT_EQ(ArchVersion::v2_1_0(), (2 * 31 + 1) * 31);
  const ArchVersion big{70000000, 5, 7};
  const uint32_t wrapped = (70000000u * 31u + 5u) * 31u + 7u;
  EXPECT_EQ(big(), static_cast<int64_t>(static_cast<int32_t>(wrapped)));
  EXPECT_LT(big(), 0);  // sign-extended
}

class ArchSpecTest : public testing::Test {
 protected:
  void SetUp() override { ArchSpec::reset(); }
  void TearDown() override { ArchSpec::reset(); }
};

TEST_F(ArchSpecTest, NothingIsChosenAtStart) {
  EXPECT_FALSE(ArchSpec::is_arch_set());
  EXPECT_EQ(ArchSpec::arch(), ArchVersion::vUndefined);
}

TEST_F(ArchSpecTest, EachGenerationGetsItsClasses) {
  ArchSpec::set_arch(ArchVersion::v2_1_0);
  EXPECT_NE(dynamic_cast<const UkoConstants*>(arch_constants()), nullptr);
  EXPECT_NE(dynamic_cast<const UkoFeatures*>(arch_features()), nullptr);
  EXPECT_NE(dynamic_cast<const UkoConstraints*>(arch_constraints()), nullptr);
  EXPECT_EQ(arch_version(), ArchVersion::v2_1_0);
  ArchSpec::reset();

  ArchSpec::set_arch(ArchVersion::v2_0_0);
  EXPECT_NE(dynamic_cast<const KoConstants*>(arch_constants()), nullptr);
  EXPECT_EQ(dynamic_cast<const UkoConstants*>(arch_constants()), nullptr);
  ArchSpec::reset();

  // Only the major counts above generation 2.
  ArchSpec::set_arch(ArchVersion{4, 2, 0});
  EXPECT_NE(dynamic_cast<const RyeConstants*>(arch_constants()), nullptr);
}

TEST_F(ArchSpecTest, ResetAllowsAnotherGeneration) {
  ArchSpec::set_arch(ArchVersion::v4_0_0);
  ASSERT_NE(ArchSpec::get(), nullptr);
  ArchSpec::reset();
  EXPECT_FALSE(ArchSpec::is_arch_set());
  ArchSpec::set_arch(ArchVersion::v3_0_0);
  EXPECT_NE(dynamic_cast<const RyConstants*>(ArchSpec::get()->constants()), nullptr);
  EXPECT_NE(dynamic_cast<const RyFeatures*>(arch_features()), nullptr);
}

TEST_F(ArchSpecTest, SameVersionAgainKeepsTheDescription) {
  ArchSpec::set_arch(ArchVersion::v3_0_0);
  ArchSpec* built = ArchSpec::get();
  const ArchConstants* constants = arch_constants();
  ArchSpec::set_arch(ArchVersion::v3_0_0);
  EXPECT_EQ(ArchSpec::get(), built);
  EXPECT_EQ(arch_constants(), constants);
}

TEST_F(ArchSpecTest, UnknownMinorOfGenerationTwoBuildsNothing) {
  ArchSpec::set_arch(ArchVersion{2, 7, 0});
  EXPECT_TRUE(ArchSpec::is_arch_set());
  EXPECT_EQ(ArchSpec::get(), nullptr);
}

TEST_F(ArchSpecTest, FailuresSayWhatWentWrong) {
  ArchSpec::set_arch(ArchVersion::v2_1_0);
  EXPECT_DEATH(ArchSpec::set_arch(ArchVersion::v3_0_0),
               "check-fail: Can't set architecture version to \"3\" because it is already "
               "initialized to \"2.1\"");
  ArchSpec::reset();
  EXPECT_EXIT(ArchSpec::get(), testing::ExitedWithCode(1),
              "Architecture autodetection is not supported");
  EXPECT_EXIT(arch_constants(), testing::ExitedWithCode(1), "Please specify --arch explicitly");
  ArchSpec::set_arch(ArchVersion::v5_0_0);
  EXPECT_DEATH(arch_version(), "BUG: Invalid architecture version in \"5\"");
}

}  // namespace
}  // namespace zu::spec
