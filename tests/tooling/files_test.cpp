// Reading and writing files with every failure reported, and how complaints echo input.
#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <string>

#include "Diagnostic.h"
#include "Files.h"

namespace archspec {
namespace {

namespace fs = std::filesystem;

class FilesTest : public testing::Test {
 protected:
  void SetUp() override {
    std::string pattern = testing::TempDir() + "/archspec_files_XXXXXX";
    ASSERT_NE(::mkdtemp(pattern.data()), nullptr);
    dir_ = pattern;
  }
  void TearDown() override { fs::remove_all(dir_); }

  std::string Path(const char* name) const { return (dir_ / name).string(); }
  static std::string Contents(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
  }
  static void Put(const std::string& path, const std::string& data) {
    std::ofstream(path, std::ios::binary) << data;
  }
  size_t Entries() const {
    return static_cast<size_t>(std::distance(fs::directory_iterator(dir_), {}));
  }

  fs::path dir_;
};

TEST_F(FilesTest, ReadsAFileUpToItsLimitAndNoFurther) {
  constexpr InputLimit kSixteen{16, "a test file"};
  Put(Path("exact"), std::string(16, 'x'));
  const InputResult exact = ReadInput(Path("exact"), kSixteen);
  ASSERT_TRUE(exact.ok()) << exact.error;
  EXPECT_EQ(exact.data, std::string(16, 'x'));

  Put(Path("over"), std::string(17, 'x'));
  const InputResult over = ReadInput(Path("over"), kSixteen);
  EXPECT_EQ(over.error, "cannot read " + Path("over") +
                            ": 17 bytes, more than the 16 that a test file may take");
  EXPECT_TRUE(over.data.empty());

  // Endless input ends at the limit.
  const InputResult endless = ReadInput("/dev/zero", kSixteen);
  EXPECT_EQ(endless.error,
            "cannot read /dev/zero: more than 16 bytes, the most a test file may take; stopped "
            "reading there");
}

TEST_F(FilesTest, ReportsWhatCannotBeReadAsAFile) {
  EXPECT_EQ(ReadInput(dir_.string(), kListingLimit).error,
            "cannot read " + dir_.string() + ": Is a directory");
  EXPECT_EQ(ReadInput(Path("missing"), kListingLimit).error,
            "cannot read " + Path("missing") + ": No such file or directory");
  EXPECT_EQ(InputName("-"), "<stdin>");
  EXPECT_EQ(InputName("a\nb"), "a\\nb");
}

TEST_F(FilesTest, WritesANewFileWithTheUsualModeAndLeavesNothingBeside) {
  const std::string out = Path("out.bits");
  ASSERT_EQ(WriteFileWhole(out, "0101\n"), std::nullopt);
  EXPECT_EQ(Contents(out), "0101\n");
  const mode_t mask = ::umask(0);
  ::umask(mask);
  struct stat status {};
  ASSERT_EQ(::stat(out.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777, 0666 & ~mask);
  EXPECT_EQ(Entries(), 1u);
}

TEST_F(FilesTest, ReplacesAFileKeepingItsModeAndWritesThroughALinkToIt) {
  const std::string target = Path("target.bits");
  Put(target, "old");
  ASSERT_EQ(::chmod(target.c_str(), 0640), 0);
  const std::string link = Path("link.bits");
  fs::create_symlink(target, link);
  ASSERT_EQ(WriteFileWhole(target, "newer"), std::nullopt);
  EXPECT_EQ(Contents(target), "newer");
  ASSERT_EQ(WriteFileWhole(link, "new"), std::nullopt);
  EXPECT_TRUE(fs::is_symlink(link));
  EXPECT_EQ(Contents(target), "new");
  EXPECT_EQ(fs::status(target).permissions(),
            fs::perms::owner_read | fs::perms::owner_write | fs::perms::group_read);
  EXPECT_EQ(Entries(), 2u);
}

TEST_F(FilesTest, WritesAFileWithOtherNamesWhereItIsAndKeepsItsNames) {
  const std::string first = Path("first.bits");
  const std::string second = Path("second.bits");
  Put(first, "old contents");
  ASSERT_EQ(::link(first.c_str(), second.c_str()), 0);
  ASSERT_EQ(WriteFileWhole(second, "new"), std::nullopt);
  EXPECT_EQ(Contents(first), "new");
  EXPECT_EQ(fs::hard_link_count(first), 2u);
  EXPECT_EQ(Entries(), 2u);
}

TEST_F(FilesTest, WritesToTheDescriptorThatAPathOfItsOwnNames) {
  // /dev/fd/N is descriptor N itself: a file opened for appending keeps what it held.
  const std::string log = Path("app.log");
  Put(log, "before\n");
  const int fd = ::open(log.c_str(), O_WRONLY | O_APPEND);
  ASSERT_GE(fd, 0);
  for (const std::string& name :
       {"/dev/fd/" + std::to_string(fd), "/proc/self/fd/" + std::to_string(fd)}) {
    ASSERT_EQ(WriteFileWhole(name, "output\n"), std::nullopt);
  }
  ::close(fd);
  EXPECT_EQ(Contents(log), "before\noutput\noutput\n");
  EXPECT_EQ(Entries(), 1u);
  EXPECT_EQ(WriteFileWhole("/dev/fd/999", "x"), "cannot write /dev/fd/999: Bad file descriptor");
}

TEST_F(FilesTest, TakesANameAtTheFileSystemsLimit) {
  const std::string out = Path(std::string(255, 'n').c_str());
  ASSERT_EQ(WriteFileWhole(out, "1"), std::nullopt);
  ASSERT_EQ(WriteFileWhole(out, "2"), std::nullopt);
  EXPECT_EQ(Contents(out), "2");
  EXPECT_EQ(Entries(), 1u);
}

TEST_F(FilesTest, RefusesAFileThatMayNotBeWritten) {
  if (::geteuid() == 0) GTEST_SKIP() << "root may write any file";
  const std::string out = Path("read_only.bits");
  Put(out, "old");
  ASSERT_EQ(::chmod(out.c_str(), 0444), 0);
  EXPECT_EQ(WriteFileWhole(out, "new"), "cannot write " + out + ": Permission denied");
  EXPECT_EQ(Contents(out), "old");
}

TEST_F(FilesTest, RefusesWhatCannotBeWrittenAndLeavesItAsItWas) {
  EXPECT_EQ(WriteFileWhole(dir_.string(), "x"),
            "cannot write " + dir_.string() + ": Is a directory");
  EXPECT_EQ(WriteFileWhole(Path("no_dir/out.bits"), "x"),
            "cannot write " + Path("no_dir/out.bits") + ": No such file or directory");
  EXPECT_EQ(Entries(), 0u);
  // A device is written, never replaced.
  ASSERT_EQ(WriteFileWhole("/dev/null", "x"), std::nullopt);
  EXPECT_TRUE(fs::is_character_file("/dev/null"));
  EXPECT_EQ(WriteFileWhole("/dev/full", "x"), "cannot write /dev/full: No space left on device");

  const int full = ::open("/dev/full", O_WRONLY);
  ASSERT_GE(full, 0);
  EXPECT_EQ(WriteAll(full, "x"), "No space left on device");
  ::close(full);
}

// The names in a directory at each step of a replacement, as an observer of the steps sees them.
class ReplacementStepsTest : public FilesTest {
 protected:
  void TearDown() override {
    files_testing::SetStepObserver(nullptr);
    files_testing::SetUnnamedFiles(true);
    FilesTest::TearDown();
  }
  static std::set<std::string> Names(const fs::path& dir) {
    std::set<std::string> names;
    for (const auto& entry : fs::directory_iterator(dir)) names.insert(entry.path().filename());
    return names;
  }
  // Whether the file system of the test's directory makes files without a name.
  bool UnnamedFilesHere() const {
    const int fd = ::open(dir_.c_str(), O_TMPFILE | O_WRONLY, 0600);
    if (fd >= 0) ::close(fd);
    return fd >= 0;
  }
  static size_t Temporaries(const fs::path& dir) {
    size_t count = 0;
    for (const std::string& name : Names(dir)) count += name.rfind(".archspec-", 0) == 0;
    return count;
  }
  // Replaces out.bits in a child process that SIGKILL ends at `step`; the temporary names it
  // leaves beside the output, which holds what it held before.
  size_t LeftByAKillAt(const char* step, bool unnamed) {
    const std::string out = Path("out.bits");
    Put(out, "old");
    static const char* kill_at;
    kill_at = step;
    const pid_t child = ::fork();
    if (child == 0) {
      files_testing::SetUnnamedFiles(unnamed);
      files_testing::SetStepObserver([](const char* now) {
        if (std::string_view(now) == kill_at) ::raise(SIGKILL);
      });
      (void)WriteFileWhole(out, "new");
      ::_exit(0);
    }
    int status = 0;
    EXPECT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL) << step;
    EXPECT_EQ(Contents(out), "old") << step;
    const size_t left = Temporaries(dir_);
    for (const std::string& name : Names(dir_)) {
      if (name != "out.bits") fs::remove(dir_ / name);
    }
    return left;
  }

  static inline fs::path watched_;
  static inline std::map<std::string, std::set<std::string>> seen_;
};

TEST_F(ReplacementStepsTest, NoTemporaryNameExistsWhileTheContentIsWritten) {
  const std::string out = Path("out.bits");
  Put(out, "old");
  watched_ = dir_;
  files_testing::SetStepObserver([](const char* step) { seen_[step] = Names(watched_); });
  for (const bool unnamed : {true, false}) {
    SCOPED_TRACE(unnamed ? "unnamed file" : "named from the start");
    seen_.clear();
    files_testing::SetUnnamedFiles(unnamed);
    ASSERT_EQ(WriteFileWhole(out, "new"), std::nullopt);
    EXPECT_EQ(Contents(out), "new");
    ASSERT_EQ(seen_.count("written"), 1u);
    ASSERT_EQ(seen_.count("named"), 1u);
    // Complete but unnamed where the file system allows: the directory holds the output alone.
    EXPECT_EQ(seen_["written"].size(), unnamed && UnnamedFilesHere() ? 1u : 2u);
    EXPECT_EQ(seen_["named"].size(), 2u);
    EXPECT_EQ(Temporaries(dir_), 0u);
    EXPECT_EQ(Names(dir_), std::set<std::string>{"out.bits"});
  }
}

TEST_F(ReplacementStepsTest, AProcessKilledBeforeTheLinkLeavesNothingBeside) {
  if (!UnnamedFilesHere()) GTEST_SKIP() << "the file system makes no file without a name";
  EXPECT_EQ(LeftByAKillAt("written", true), 0u);
  // What remains possible: a kill between the link and the rename, two system calls apart.
  EXPECT_EQ(LeftByAKillAt("named", true), 1u);
  // Without files of no name, the temporary name lasts as long as the writing.
  EXPECT_EQ(LeftByAKillAt("written", false), 1u);
}

TEST(EchoText, ShowsEveryByteThatWouldNotPrintAsAnEscape) {
  struct Case {
    std::string text;
    const char* shown;
  };
  const Case cases[] = {
      {"simd_structIn[0][4].stage_opcode", "simd_structIn[0][4].stage_opcode"},
      {std::string("a\0b", 3), "a\\x00b"},
      {"tab\there\r\n", "tab\\there\\r\\n"},
      {"\x1b[31mred\x7f", "\\x1b[31mred\\x7f"},
      {"caf\xc3\xa9 \xe2\x86\x92 ok", "caf\xc3\xa9 \xe2\x86\x92 ok"},
      {"\xef\xbb\xbfpath", "\\u{feff}path"},
      {"zero\xe2\x80\x8bwidth", "zero\\u{200b}width"},
      {"\xff\xfe bad \xc3", "\\xff\\xfe bad \\xc3"},
      {"\xc0\xaf overlong", "\\xc0\\xaf overlong"},
  };
  for (const Case& c : cases) EXPECT_EQ(EchoText(c.text), c.shown) << c.shown;
}

TEST(EchoText, CutsWhatItShowsAtACharacterAndSaysHowLongTheTextWas) {
  EXPECT_EQ(EchoText(std::string(1 << 20, 'a'), 8), "aaaaaaaa... (1048576 bytes)");
  // A two-byte character that does not fit whole is left out.
  EXPECT_EQ(EchoText("abcdefg\xc3\xa9xyz", 8), "abcdefg... (12 bytes)");
  EXPECT_EQ(EchoText("12345678", 8), "12345678");
  // The cut counts what is shown: escapes are longer than the bytes they stand for.
  EXPECT_EQ(EchoText(std::string(100, '\0'), 10), "\\x00\\x00... (100 bytes)");
}

}  // namespace
}  // namespace archspec
