// The base library: formatting, quoting, the logger's filtering and the crash paths.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "compiler/arch_spec/Logging.h"
#include "zu/FnRef.h"
#include "zu/Format.h"
#include "zu/Logger.h"
#include "zu/Optional.h"
#include "zu/Span.h"

namespace {

// Keeps records instead of writing them; a fatal record returns, so that paths behind it can be
// seen.
class CapturingLogger : public zu::Logger {
 public:
  void log_impl(Record record) const override { records.push_back(std::move(record)); }
  mutable std::vector<Record> records;
};

class LoggerSwap {
 public:
  explicit LoggerSwap(zu::Logger* logger) : saved_(zu::log) { zu::log = logger; }
  ~LoggerSwap() { zu::log = saved_; }

 private:
  zu::Logger* saved_;
};

// An argument that counts how often it is formatted.
struct Counted {
  int* count;
};
void format_value(zu::format_internal::Buffer& out, Counted counted) {
  ++*counted.count;
  out.write("counted");
}

TEST(FormatTest, ExpandsPlaceholdersInOrder) {
  EXPECT_EQ(zu::format("{} of {} is {}", 3, std::string("x"), -7), "3 of x is -7");
  EXPECT_EQ(zu::format("no placeholders"), "no placeholders");
  EXPECT_EQ(zu::format("{{}} {}", true), "{} true");
  EXPECT_EQ(zu::format("{} {}", 1), "1 {?}");
  EXPECT_EQ(zu::format("{}", uint64_t{18446744073709551615u}), "18446744073709551615");
  EXPECT_EQ(zu::format("{}", int64_t{-9223372036854775807 - 1}), "-9223372036854775808");
}

TEST(FormatTest, QuotesWithTheListedEscapes) {
  const char kRaw[] = "a\0b\tc\nd\"e\\f\x01g\x1fh~\x7f";
  const std::string raw(kRaw, sizeof kRaw - 1);
  EXPECT_EQ(zu::format("{}", zu::quoted(raw)), "\"a\\0b\\tc\\nd\\\"e\\\\f\\x01g\\x1fh~\x7f\"");
  EXPECT_EQ(zu::format("{}", zu::quoted("2.1")), "\"2.1\"");
}

TEST(FormatTest, Num2StrPadsHexadecimal) {
  char digits[66];
  EXPECT_EQ(zu::format_internal::num2str(uint64_t{300}, {16, false, 4}, digits), "012c");
  EXPECT_EQ(zu::format_internal::num2str(uint64_t{0}, {}, digits), "0");
}

TEST(LoggerTest, DropsDisabledRecordsWithoutFormattingThem) {
  CapturingLogger logger;
  logger.set_level(zu::Logger::Level::error);
  int count = 0;
  logger(zu::Logger::Level::info).message("{}", Counted{&count});
  logger(zu::Logger::Level::trace).message("{}", Counted{&count});
  EXPECT_EQ(count, 0);
  EXPECT_TRUE(logger.records.empty());

  logger(zu::Logger::Level::error).message("kept {}", Counted{&count});
  EXPECT_EQ(count, 1);
  ASSERT_EQ(logger.records.size(), 1u);
  EXPECT_EQ(logger.records[0].text, "kept counted");
  EXPECT_EQ(logger.records[0].level, zu::Logger::Level::error);
}

TEST(LoggerTest, TracesOnlyEnabledGroups) {
  CapturingLogger logger;
  logger.set_trace("parse,build");
  zu::TraceGroup::current = zu::TraceGroup("build");
  logger(zu::Logger::Level::trace).message("in build");
  zu::TraceGroup::current = zu::TraceGroup("print");
  logger(zu::Logger::Level::trace).message("in print");
  zu::TraceGroup::current = zu::TraceGroup();
  ASSERT_EQ(logger.records.size(), 1u);
  EXPECT_EQ(logger.records[0].text, "in build");
}

TEST(LoggerTest, MovedFromBuilderWritesNothing) {
  CapturingLogger logger;
  {
    zu::Logger::Builder first = logger(zu::Logger::Level::error);
    first.add_message("once");
    zu::Logger::Builder second = std::move(first);
  }
  ASSERT_EQ(logger.records.size(), 1u);
  EXPECT_EQ(logger.records[0].text, "once");
}

TEST(LoggerTest, CheckFailTextsAndLevel) {
  CapturingLogger logger;
  LoggerSwap swap(&logger);
  zu::spec::check(true, "never written");
  EXPECT_TRUE(logger.records.empty());
  zu::spec::check(false, "Unique ID not initialized");
  zu::spec::check(false, "");
  zu::spec::check(false, "Size must be a multiple of 8, got {}", 7);
  ASSERT_EQ(logger.records.size(), 3u);
  EXPECT_EQ(logger.records[0].text, "check-fail: Unique ID not initialized");
  EXPECT_EQ(logger.records[0].level, zu::Logger::Level::fatal);
  EXPECT_EQ(logger.records[1].text, "check-fail");
  EXPECT_EQ(logger.records[2].text, "check-fail: Size must be a multiple of 8, got 7");
  EXPECT_NE(std::string(logger.records[2].location.file()).find("base_test.cpp"),
            std::string::npos);
}

TEST(LoggerTest, ErrorReturnsAndUsesTheUnknownLocationForNone) {
  CapturingLogger logger;
  LoggerSwap swap(&logger);
  zu::spec::error("plain {} text", zu::SourceLocation());
  ASSERT_EQ(logger.records.size(), 1u);
  EXPECT_EQ(logger.records[0].text, "plain {} text");
  EXPECT_EQ(logger.records[0].level, zu::Logger::Level::error);
  EXPECT_FALSE(logger.records[0].location.known());
  EXPECT_STREQ(logger.records[0].location.file(), "<unknown>");
  EXPECT_EQ(logger.records[0].location.line(), 0u);
}

TEST(LoggerDeathTest, FatalEndsTheProcess) {
  EXPECT_DEATH(zu::spec::check(false, "value will not fit in bit field"),
               "FATAL .*check-fail: value will not fit in bit field");
  EXPECT_DEATH(zu::spec::unreachable("gone"), "FATAL .*gone");
}

TEST(LoggerDeathTest, UnreachableTrapsEvenIfTheFatalRecordReturns) {
  EXPECT_DEATH(
      {
        CapturingLogger logger;
        zu::log = &logger;
        zu::spec::unreachable("still ends");
      },
      "");
}

TEST(OptionalTest, EmptyUntilGivenAValue) {
  zu::optional<short> id;
  EXPECT_FALSE(id.has_value());
  id = short{5};
  EXPECT_TRUE(id.has_value());
  EXPECT_EQ(*id, 5);
  EXPECT_EQ(sizeof(zu::optional<short>), 4u);
  EXPECT_EQ(sizeof(zu::optional<uint32_t>), 8u);
  EXPECT_DEATH((void)*zu::optional<uint32_t>(), "accessed empty zu::optional");
}

TEST(SpanTest, ChecksItsBounds) {
  int values[] = {1, 2, 3};
  zu::span<int> view(values);
  EXPECT_EQ(view.size(), 3u);
  EXPECT_EQ(view[2], 3);
  EXPECT_DEATH((void)view[3], "span index 3 out of bounds for size 3");
}

TEST(FnRefTest, CallsWithoutOwning) {
  int total = 0;
  auto add = [&total](int n) { total += n; };
  zu::FnRef<void(int)> ref = add;
  ref(2);
  ref(3);
  EXPECT_EQ(total, 5);
}

}  // namespace
