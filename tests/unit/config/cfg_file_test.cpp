#include <dirent.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>
#include <climits>
#include <clocale>
#include <cstdlib>
#include <optional>
#include <string>
#include <vector>

#include "config/BtkCfgFile.h"
#include "testutil/Files.h"
#include "testutil/TempDir.h"

using namespace std::string_literals;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::internal::CaptureStderr;
using testing::internal::GetCapturedStderr;

namespace {

std::vector<std::string> allLines(BtkCfgFile& cfg, size_t size = BtkCfgFile::kLineSize) {
  std::vector<std::string> out;
  std::vector<char> buf(size);
  while (cfg.readLine(buf.data(), buf.size())) out.emplace_back(buf.data());
  return out;
}

int openDescriptors() {
  int count = 0;
  DIR* dir = opendir("/proc/self/fd");
  while (dirent* entry = readdir(dir)) count += entry->d_name[0] != '.';
  closedir(dir);
  return count;
}

std::string writeFile(const TempDir& tmp, const std::string& name, const std::string& text) {
  writeText(tmp.path(name), text);
  return tmp.path(name);
}

// A reader positioned on the first logical line of text, which is in line.
struct FileAtFirstLine {
  FileAtFirstLine(const TempDir& tmp, const std::string& text) : cfg(writeFile(tmp, "f.cfg", text)) {
    EXPECT_TRUE(cfg.readLine(line, sizeof line));
  }
  std::string next() { return cfg.readLine(line, sizeof line) ? line : "<end>"; }
  BtkCfgFile cfg;
  char line[BtkCfgFile::kLineSize] = "";
};

// What a value matcher stores for the key "k", or nothing when it does not match.
template <class T, bool (*Get)(const char*, const char*, T&)>
std::optional<T> valueOf(const char* line) {
  T value{};
  if (!Get(line, "k", value)) return std::nullopt;
  return value;
}
constexpr auto boolOf = valueOf<bool, BtkCfgFile::getBool>;
constexpr auto intOf = valueOf<int, BtkCfgFile::getInt>;
constexpr auto doubleOf = valueOf<double, BtkCfgFile::getDouble>;
constexpr auto stringOf = valueOf<std::string, BtkCfgFile::getString>;

TEST(CfgMatchKey, NeedsTheKeyAtLineStartOrAfterABlankAndABlankAfterIt) {
  EXPECT_TRUE(BtkCfgFile::matchKey(" \tspeed\t= 5", "speed"));
  EXPECT_FALSE(BtkCfgFile::matchKey("speed= 5", "speed"));
  EXPECT_FALSE(BtkCfgFile::matchKey("x = speed", "speed"));
  EXPECT_FALSE(BtkCfgFile::matchKey("airspeed = 5", "speed"));
  EXPECT_FALSE(BtkCfgFile::matchKey("flight_time = 5", "time"));
  EXPECT_FALSE(BtkCfgFile::matchKey("speed = 5", ""));
}

TEST(CfgMatchKey, LooksAtTheFirstOccurrenceOnly) {
  // The word inside the value is the first occurrence, so the line counts as assigning "speed".
  double value = 99.0;
  EXPECT_TRUE(BtkCfgFile::getDouble("mp_server_name = Go speed racer", "speed", value));
  EXPECT_EQ(value, 0.0);
  // A later, well-placed occurrence does not rescue a first one inside a longer word.
  EXPECT_FALSE(BtkCfgFile::matchKey("airspeed = 1 speed = 2", "speed"));
}

TEST(CfgValues, BooleansAreTrueOrFalseInAnyCase) {
  EXPECT_EQ(boolOf("k = TRUE"), true);
  EXPECT_EQ(boolOf("k = False # no engine"), false);
  EXPECT_EQ(boolOf("k = yes"), std::nullopt);
  EXPECT_EQ(boolOf("k = truest"), std::nullopt);
  EXPECT_EQ(boolOf("k =   "), std::nullopt);
  EXPECT_EQ(boolOf("k true"), std::nullopt);
}

TEST(CfgValues, IntegersReadLikeAtoiFromTheFirstEqualsSign) {
  EXPECT_EQ(intOf("k = 30000.5"), 30000);
  EXPECT_EQ(intOf("k =\t-42"), -42);
  EXPECT_EQ(intOf("k = many"), 0);
  EXPECT_EQ(intOf("x=7 k = 9"), 7);
  EXPECT_EQ(intOf("k = "), std::nullopt);
  EXPECT_EQ(intOf("k 9"), std::nullopt);
  // atoi leaves overflow undefined; the reader saturates.
  EXPECT_EQ(intOf("k = 99999999999999999999"), INT_MAX);
  EXPECT_EQ(intOf("k = -99999999999999999999"), INT_MIN);
}

TEST(CfgValues, DoublesReadTheNumberRunAndZeroForAnythingElse) {
  EXPECT_EQ(doubleOf("k = 1.5e2"), 150.0);
  EXPECT_EQ(doubleOf("k = -.25km"), -0.25);
  EXPECT_EQ(doubleOf("k = +3"), 3.0);
  EXPECT_EQ(doubleOf("k = 2,5"), 2.0);
  EXPECT_EQ(doubleOf("k = fast"), 0.0);
  EXPECT_EQ(doubleOf("k = 1e999"), 0.0);  // not a double: 0, never infinity
  EXPECT_EQ(doubleOf("k ="), std::nullopt);
}

// A process locale with a decimal comma must not change how files read. The locale is built in the
// temporary directory when the machine has none installed.
TEST(CfgValues, DoublesIgnoreTheProcessLocale) {
  TempDir tmp;
  const std::string saved = setlocale(LC_ALL, nullptr);
  const char* comma = setlocale(LC_NUMERIC, "de_DE.UTF-8");
  if (!comma) {
    const std::string cmd = "localedef -i de_DE -f UTF-8 " + tmp.path("de_DE.UTF-8") + " >/dev/null 2>&1";
    if (system(cmd.c_str()) == 0) {
      setenv("LOCPATH", tmp.root().c_str(), 1);
      comma = setlocale(LC_NUMERIC, "de_DE.UTF-8");
      unsetenv("LOCPATH");
    }
  }
  if (!comma) GTEST_SKIP() << "no decimal-comma locale available";
  ASSERT_EQ(std::string(localeconv()->decimal_point), ",");
  const auto value = doubleOf("k = 3.75");
  setlocale(LC_ALL, saved.c_str());
  EXPECT_EQ(value, 3.75);
}

TEST(CfgValues, StringsLoseTrailingCommentAndBlanksAndKeepQuotes) {
  EXPECT_EQ(stringOf("k = Ridge Runner \t  # the hill"), "Ridge Runner");
  EXPECT_EQ(stringOf("k =  \"Ridge Runner\""), "\"Ridge Runner\"");
  EXPECT_EQ(stringOf("k = a = b"), "a = b");
  EXPECT_EQ(stringOf("k = # nothing"), "");
  EXPECT_EQ(stringOf("k = \t "), std::nullopt);
  EXPECT_EQ(stringOf("k=x"), std::nullopt);
}

TEST(CfgArrays, ContinueOverLinesAcrossCommentLinesAndTrailingComments) {
  TempDir tmp;
  FileAtFirstLine f(tmp,
                    "v = [ 1 2 # first two\n# a comment line\n   # not in column one\n  3\t4 ]\n"
                    "d = [\n 0.5 1e-1\n -2 ]\nafter = 1\n");
  std::vector<int> values{9, 9, 9};
  EXPECT_TRUE(f.cfg.getIntArray(f.line, "v", values));
  EXPECT_THAT(values, ElementsAre(1, 2, 3, 4));
  f.next();
  std::vector<double> doubles;
  EXPECT_TRUE(f.cfg.getDoubleArray(f.line, "d", doubles));
  EXPECT_THAT(doubles, ElementsAre(0.5, 0.1, -2.0));
  EXPECT_EQ(f.next(), "after = 1");
}

TEST(CfgArrays, NumberArrayWithNothingBetweenBracketsHoldsOneZero) {
  TempDir tmp;
  FileAtFirstLine f(tmp, "a = [ ]\nb = []\nc = [1 2]\n");
  std::vector<int> ints{5};
  EXPECT_TRUE(f.cfg.getIntArray(f.line, "a", ints));
  EXPECT_THAT(ints, ElementsAre(0));
  f.next();
  std::vector<double> doubles;
  EXPECT_TRUE(f.cfg.getDoubleArray(f.line, "b", doubles));
  EXPECT_THAT(doubles, ElementsAre(0.0));
  f.next();
  EXPECT_TRUE(f.cfg.getIntArray(f.line, "c", ints));  // a bracket against a number closes the list
  EXPECT_THAT(ints, ElementsAre(1, 2));
}

TEST(CfgArrays, StringTokensWithQuotesAndAGluedClosingBracket) {
  TempDir tmp;
  FileAtFirstLine f(tmp, "types = [ \"ASW 20\" LS4 \"\" x#y ]\nglued = [ a b]\n c ]\nafter = 1\n");
  std::vector<std::string> values;
  EXPECT_TRUE(f.cfg.getStringArray(f.line, "types", values));
  EXPECT_THAT(values, ElementsAre("ASW 20", "LS4", "", "x#y"));
  f.next();
  // "b]" is one token: the list goes on to the next line.
  EXPECT_TRUE(f.cfg.getStringArray(f.line, "glued", values));
  EXPECT_THAT(values, ElementsAre("a", "b]", "c"));
  EXPECT_EQ(f.next(), "after = 1");
}

TEST(CfgArrays, InputEndingBeforeTheClosingBracketFailsWithTheMessage) {
  TempDir tmp;
  {
    FileAtFirstLine f(tmp, "v = [ 1 2\n# only a comment follows\n");
    std::vector<int> values;
    CaptureStderr();
    EXPECT_FALSE(f.cfg.getIntArray(f.line, "v", values));
    EXPECT_EQ(GetCapturedStderr(), "missing end tag for int array in config file\n");
  }
  {
    FileAtFirstLine f(tmp, "v = [ a b");
    std::vector<std::string> values;
    CaptureStderr();
    EXPECT_FALSE(f.cfg.getStringArray(f.line, "v", values));
    EXPECT_EQ(GetCapturedStderr(), "missing end tag for int array in config file\n");
  }
}

TEST(CfgArrays, BadTextEndsTheMatcherWithoutEatingLines) {
  TempDir tmp;
  FileAtFirstLine f(tmp, "q = [ \"open quote ]\nn = [ 1 x 2 ]\nm = 1 2 ]\nw = [\n    \n 1 ]\nafter = 1\n");
  std::vector<std::string> strings;
  CaptureStderr();
  EXPECT_FALSE(f.cfg.getStringArray(f.line, "q", strings));
  EXPECT_THAT(GetCapturedStderr(), HasSubstr("unterminated quotation mark"));
  f.next();
  std::vector<int> ints;
  CaptureStderr();
  EXPECT_FALSE(f.cfg.getIntArray(f.line, "n", ints));
  EXPECT_THAT(GetCapturedStderr(), HasSubstr("bad value \"x\""));
  f.next();
  EXPECT_FALSE(f.cfg.getIntArray(f.line, "m", ints));  // no opening bracket
  f.next();
  EXPECT_FALSE(f.cfg.getIntArray(f.line, "w", ints));  // a continuation line of blanks
  EXPECT_EQ(f.next(), " 1 ]");
}

TEST(CfgReadLine, SkipsCommentsAndEmptyLinesButNotIndentedHashes) {
  TempDir tmp;
  writeText(tmp.path("a.cfg"), "# comment\n\nkey = 1\n  # indented\n\t\nlast = 2");
  BtkCfgFile cfg(tmp.path("a.cfg"));
  ASSERT_TRUE(cfg.isOpen());
  EXPECT_THAT(allLines(cfg), ElementsAre("key = 1", "  # indented", "\t", "last = 2"));
  char line[16];
  EXPECT_FALSE(cfg.readLine(line, sizeof line));  // stays at the end
}

TEST(CfgReadLine, CrLfFilesReadLikeLfFiles) {
  TempDir tmp;
  writeText(tmp.path("lf.cfg"), "# c\nname = Ridge\n\nv = [ 1\n 2 ]\n");
  writeText(tmp.path("crlf.cfg"), "# c\r\nname = Ridge\r\n\r\nv = [ 1\r\n 2 ]\r\n");
  BtkCfgFile lf(tmp.path("lf.cfg")), crlf(tmp.path("crlf.cfg"));
  // Every matcher sees only lines from readLine, so equal lines mean equal values.
  const auto lines = allLines(crlf);
  EXPECT_THAT(lines, ElementsAre("name = Ridge", "v = [ 1", " 2 ]"));
  EXPECT_EQ(allLines(lf), lines);
}

TEST(CfgReadLine, SkipsLinesLongerThanTheBufferAndSaysWhere) {
  TempDir tmp;
  const std::string fits(4095, 'a');
  writeText(tmp.path("long.cfg"),
            std::string(4096, 'x') + "\n" + fits + "\r\n" + std::string(600, 'y') + "\nok = 1\n");
  BtkCfgFile cfg(tmp.path("long.cfg"));
  CaptureStderr();
  const auto lines = allLines(cfg);
  const std::string err = GetCapturedStderr();
  EXPECT_THAT(lines, ElementsAre(fits, std::string(600, 'y'), "ok = 1"));
  EXPECT_THAT(err, HasSubstr("long.cfg line 1: longer than 4095 characters, skipped"));

  BtkCfgFile shortBuf(tmp.path("long.cfg"));
  CaptureStderr();
  EXPECT_THAT(allLines(shortBuf, BtkCfgFile::kShortLineSize), ElementsAre("ok = 1"));
  EXPECT_THAT(GetCapturedStderr(), HasSubstr("line 3: longer than 511 characters"));
}

TEST(CfgReadLine, BinaryGarbageEndsInLinesCutAtNulBytes) {
  TempDir tmp;
  const std::string junk = "\x01\xff\x7f{[\"\r\r\n"s + "ab\0cd = 3\n"s + "\0hidden\n"s + "key = 2\n";
  writeText(tmp.path("junk.cfg"), junk);
  BtkCfgFile cfg(tmp.path("junk.cfg"));
  // A stray CR stays text; a NUL ends the line's text; a line starting with NUL reads as empty.
  EXPECT_THAT(allLines(cfg), ElementsAre(std::string("\x01\xff\x7f{[\"\r", 7), "ab", "key = 2"));
}

TEST(CfgOpen, ReportsTheReasonAFileCannotBeRead) {
  TempDir tmp;
  BtkCfgFile missing(tmp.path("nope.cfg"));
  EXPECT_FALSE(missing.isOpen());
  EXPECT_EQ(missing.openError(), ENOENT);
  char line[64];
  EXPECT_FALSE(missing.readLine(line, sizeof line));
  BtkCfgFile dir(tmp.root());
  EXPECT_FALSE(dir.isOpen());
  EXPECT_EQ(dir.openError(), EISDIR);
}

TEST(CfgOpen, BaseDirIsTheTopFilesDirectory) {
  EXPECT_EQ(BtkCfgFile("dir/sub/f.stn").baseDir(), "dir/sub");
  EXPECT_EQ(BtkCfgFile("f.stn").baseDir(), ".");
  EXPECT_EQ(BtkCfgFile("").baseDir(), ".");
  EXPECT_EQ(BtkCfgFile("/f.stn").baseDir(), "");
  EXPECT_EQ(BtkCfgFile("c:\\sims\\f.stn").baseDir(), "c:\\sims");
}

TEST(CfgInclude, RelativeNamesAreTakenFromTheTopFilesDirectoryAtEveryDepth) {
  TempDir tmp;
  writeText(tmp.path("top/main.cfg"), "a = 1\ninclude = parts/one.cfg\nd = 4\n");
  writeText(tmp.path("top/parts/one.cfg"), "# first part\nb = 2\ninclude = two.cfg\ninclude = none.cfg\n");
  writeText(tmp.path("top/two.cfg"), "c = 3");  // relative to top/, not to top/parts/
  writeText(tmp.path("top/none.cfg"), "# nothing but a comment\n");
  BtkCfgFile cfg(tmp.path("top/main.cfg"));
  CaptureStderr();
  EXPECT_THAT(allLines(cfg), ElementsAre("a = 1", "b = 2", "c = 3", "d = 4"));
  EXPECT_EQ(GetCapturedStderr(), "include parts/one.cfg\ninclude path = " + tmp.path("top/parts/one.cfg") +
                                     "\ninclude two.cfg\ninclude path = " + tmp.path("top/two.cfg") +
                                     "\ninclude none.cfg\ninclude path = " + tmp.path("top/none.cfg") + "\n");
}

TEST(CfgInclude, AbsoluteNamesFromNestedFiles) {
  TempDir tmp;
  writeText(tmp.path("elsewhere/abs.cfg"), "x = 1\n");
  writeText(tmp.path("main/inner.cfg"), "  # include = " + tmp.path("elsewhere/abs.cfg") + "\ny = 2\n");
  writeText(tmp.path("main/main.cfg"), "include = inner.cfg\nz = 3\n");
  BtkCfgFile cfg(tmp.path("main/main.cfg"));
  CaptureStderr();
  // The indented "#" does not make a comment: the line is an include directive.
  EXPECT_THAT(allLines(cfg), ElementsAre("x = 1", "y = 2", "z = 3"));
  GetCapturedStderr();
}

TEST(CfgInclude, AFailedIncludeEndsAllReading) {
  TempDir tmp;
  writeText(tmp.path("main.cfg"), "a = 1\ninclude = missing.cfg\nb = 2\n");
  BtkCfgFile cfg(tmp.path("main.cfg"));
  CaptureStderr();
  EXPECT_THAT(allLines(cfg), ElementsAre("a = 1"));
  char line[64];
  EXPECT_FALSE(cfg.readLine(line, sizeof line));
  EXPECT_EQ(GetCapturedStderr(),
            "include missing.cfg\nBtkCfgFile: include: " + tmp.path("missing.cfg") + " failed!\n");
}

TEST(CfgInclude, MissingNameOrEqualsSignEndsReadingWithAMessage) {
  TempDir tmp;
  writeText(tmp.path("a.cfg"), "a = 1\ninclude =   \nb = 2\n");
  writeText(tmp.path("b.cfg"), "a = 1\n  I include nothing\nb = 2\n");
  BtkCfgFile a(tmp.path("a.cfg")), b(tmp.path("b.cfg"));
  CaptureStderr();
  EXPECT_THAT(allLines(a), ElementsAre("a = 1"));
  EXPECT_EQ(GetCapturedStderr(), "BtkCfgFile: include: missing filename!\n");
  CaptureStderr();
  EXPECT_THAT(allLines(b), ElementsAre("a = 1"));
  EXPECT_THAT(GetCapturedStderr(), HasSubstr("missing \"=\" in " + tmp.path("b.cfg") + " line 2"));
}

// Regression guard: a file including itself opened files until the process ran out of descriptors.
TEST(CfgInclude, SelfIncludeStopsAtTheDepthLimitWithoutLeakingDescriptors) {
  TempDir tmp;
  writeText(tmp.path("self.cfg"), "line\ninclude = self.cfg\n");
  const int before = openDescriptors();
  {
    BtkCfgFile cfg(tmp.path("self.cfg"));
    CaptureStderr();
    const auto lines = allLines(cfg);
    const std::string err = GetCapturedStderr();
    EXPECT_EQ(lines.size(), BtkCfgFile::kMaxIncludeDepth + 1);
    EXPECT_THAT(err, HasSubstr("BtkCfgFile: include: " + tmp.path("self.cfg") + " nested too deep!\n"));
    EXPECT_EQ(openDescriptors(), before + static_cast<int>(BtkCfgFile::kMaxIncludeDepth) + 1);
  }
  EXPECT_EQ(openDescriptors(), before);
}

TEST(CfgInclude, RefusesDirectoriesDevicesAndFifosWithoutBlocking) {
  TempDir tmp;
  ASSERT_EQ(mkfifo(tmp.path("fifo").c_str(), 0600), 0);  // opening it for reading would block
  for (const std::string& target : {tmp.root(), std::string("/dev/zero"), tmp.path("fifo")}) {
    writeText(tmp.path("main.cfg"), "a = 1\ninclude = " + target + "\nb = 2\n");
    BtkCfgFile cfg(tmp.path("main.cfg"));
    CaptureStderr();
    EXPECT_THAT(allLines(cfg), ElementsAre("a = 1"));
    EXPECT_THAT(GetCapturedStderr(),
                HasSubstr("BtkCfgFile: include: " + target + " is not a regular file!\n"));
  }
}

TEST(CfgFindBlock, OpensOnTheSameOrTheNextLine) {
  TempDir tmp;
  // The name must be followed by a blank even when the brace is on the next line.
  FileAtFirstLine f(tmp,
                    "airport {\nairport \n   {\nairport\n{\nairport \n name = x\nafter = 1\n"
                    "airport_x {\nlast = 2\n");
  EXPECT_TRUE(f.cfg.findBlock(f.line, "airport"));
  f.next();
  EXPECT_TRUE(f.cfg.findBlock(f.line, "airport"));
  f.next();
  EXPECT_FALSE(f.cfg.findBlock(f.line, "airport"));
  EXPECT_EQ(f.next(), "{");
  f.next();
  // The line read to look for the brace is lost to the caller.
  EXPECT_FALSE(f.cfg.findBlock(f.line, "airport"));
  EXPECT_EQ(f.next(), "after = 1");
  f.next();
  EXPECT_FALSE(f.cfg.findBlock(f.line, "airport"));  // no match: nothing read
  EXPECT_EQ(f.next(), "last = 2");
  EXPECT_FALSE(f.cfg.findBlock("airport ", "airport"));  // at the end of the input
  EXPECT_TRUE(BtkCfgFile::isBlockEnd("  } # end"));
  EXPECT_FALSE(BtkCfgFile::isBlockEnd("name = x"));
}

}  // namespace
