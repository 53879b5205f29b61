#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <fstream>
#include <regex>
#include <string>

#include "profile/options.h"
#include "qkmem/profile.h"
#include "qkmem/qkmem.h"
#include "tests/kit/profile.h"
#include "tests/kit/scene.h"

namespace {

namespace profile = qk::mem::profile;

void know(const std::string& lines) { std::ofstream("known") << lines; }

void hold(int hid, const char* file, int line) {
  static_cast<void>(qk_mem_imalloc(hid, 100, 0, file, line));
}

/** Configures the profile with a file of known leaks. Returns what the library says. */
std::string answer_to(const std::string& lines, int code = 0) {
  know(lines);
  testing::internal::CaptureStderr();
  EXPECT_EQ(code, qk_mem_profile_config("IGNORE=known TOP=0"));
  return testing::internal::GetCapturedStderr();
}

/** The sites that a report has rows for, such as "a.c:1 b.c:2". */
std::string shown() {
  const std::string text = kit::requested("SORT=BYTES").text;
  const std::regex row(R"(  ([a-z]+\.c:\d+))");
  std::string result;
  for (std::sregex_iterator at(text.begin(), text.end(), row), end; at != end; ++at) {
    result += (result.empty() ? "" : " ") + (*at)[1].str();
  }
  return result;
}

std::string shown_without(const std::string& lines) {
  EXPECT_EQ("", answer_to(lines));
  return shown();
}

/** Two handles, with three sites. */
class KnownLeaks : public testing::Test {
 protected:
  KnownLeaks() {
    EXPECT_EQ(0, qk_mem_profile_config("SITES"));
    letters_ = qk_mem_new_handle("", "LE");
    const int parcels = qk_mem_new_handle("", "");
    hold(letters_, "src/letter.c", 10);
    hold(letters_, "src/stamp.c", 2);
    hold(parcels, "src/letter.c", 102);
  }

  kit::Scene scene_;
  int letters_ = 0;
};

TEST_F(KnownLeaks, AreLeftOutOfVerdictAndRows) {
  EXPECT_EQ("", answer_to("leak:letter.c\n"));
  EXPECT_EQ(
      "qkmem: 1 site holds 100 B in 1 block; peak 300 B at T s (event 3)\n"
      "qkmem: IGNORE leaves out 2 sites with 200 B in 2 blocks\n"
      "  bytes  blocks  share  made  handle  site\n"
      "  100 B       1   100%     1    3 LE  stamp.c:2\n"
      "qkmem: the profile took M of its own\n",
      kit::requested("").text);
}

TEST_F(KnownLeaks, CanBeAll) {
  EXPECT_EQ("", answer_to("leak:.c"));
  EXPECT_EQ(
      "qkmem: nothing is held; 3 allocations of 300 B were watched; peak 300 B at T s (event 3)\n"
      "qkmem: IGNORE leaves out 3 sites with 300 B in 3 blocks\n"
      "qkmem: the profile took M of its own\n",
      kit::requested("").text);
}

TEST_F(KnownLeaks, ArePartsOfNamesUnlessAnchored) {
  EXPECT_EQ("letter.c:10 letter.c:102", shown_without("leak:tam"));
  EXPECT_EQ("stamp.c:2", shown_without("leak:letter.c:10"));
  EXPECT_EQ("letter.c:102 stamp.c:2", shown_without("leak:letter.c:10$"));
  EXPECT_EQ("stamp.c:2", shown_without("leak:^letter.c$"));
  EXPECT_EQ("stamp.c:2", shown_without("leak:^l*10"));
  EXPECT_EQ("letter.c:10 letter.c:102", shown_without("leak:^s*m*c$"));
  EXPECT_EQ("letter.c:10 letter.c:102 stamp.c:2", shown_without("leak:^tamp"));
  EXPECT_EQ("letter.c:10 letter.c:102 stamp.c:2", shown_without("leak:stam$"));
  EXPECT_EQ("letter.c:10 letter.c:102 stamp.c:2", shown_without("leak:^stamp.c.c$"));
  EXPECT_EQ("letter.c:10 letter.c:102 stamp.c:2", shown_without("leak:STAMP"));
  EXPECT_EQ("letter.c:10 letter.c:102 stamp.c:2", shown_without("leak:stam?"));
}

TEST_F(KnownLeaks, CanBeThoseOfAHandle) {
  EXPECT_EQ("letter.c:102", shown_without("tag:le"));
  EXPECT_EQ("letter.c:10 stamp.c:2", shown_without("tag:NONE"));
  EXPECT_EQ("letter.c:102", shown_without("handle:LE"));
  EXPECT_EQ("letter.c:102", shown_without("handle:" + std::to_string(letters_)));
}

TEST_F(KnownLeaks, CanBeThoseOfAModule) {
  EXPECT_EQ("", shown_without("leak:profile_tests"));
  EXPECT_EQ("", shown_without("leak:^profile_tests$"));
  EXPECT_EQ("letter.c:10 letter.c:102 stamp.c:2", shown_without("leak:libstdc++"));
}

TEST_F(KnownLeaks, CanHaveCommentsAndBlanks) {
  EXPECT_EQ("stamp.c:2", shown_without("# Of letters:\r\n\n  leak:letter \t\r\n   # the end"));
}

TEST_F(KnownLeaks, AreNamedIfTheyAreNotUnderstood) {
  EXPECT_EQ(
      "qkmem: known:1: 'race:letter' is neither leak:PATTERN, tag:TAG nor handle:NUMBER. The rest "
      "is used.\n"
      "qkmem: known:3: 'leak:' is neither leak:PATTERN, tag:TAG nor handle:NUMBER. The rest is "
      "used.\n"
      "qkmem: known:4: 'tag:LETTERS' is neither leak:PATTERN, tag:TAG nor handle:NUMBER. The rest "
      "is used.\n"
      "qkmem: known:5: 'handle:' is neither leak:PATTERN, tag:TAG nor handle:NUMBER. The rest is "
      "used.\n",
      answer_to("race:letter\nleak:stamp\nleak:\ntag:LETTERS\nhandle:\n", 5022));
  EXPECT_EQ("letter.c:10 letter.c:102", shown());
}

TEST_F(KnownLeaks, HaveAFileThatCanBeRead) {
  testing::internal::CaptureStderr();
  EXPECT_EQ(5002, qk_mem_profile_config("IGNORE=none TOP=7"));
  EXPECT_EQ(5021, qk_mem_profile_config("IGNORE=/"));
  EXPECT_EQ(
      "qkmem: qk_mem_profile_config: IGNORE can't read 'none': No such file or directory. No leak "
      "is ignored.\n"
      "qkmem: qk_mem_profile_config: IGNORE can't read '/': Is a directory. No leak is ignored.\n",
      testing::internal::GetCapturedStderr());
  EXPECT_EQ(nullptr, profile::options().known_leaks);
  EXPECT_EQ("letter.c:10 letter.c:102 stamp.c:2", shown());
}

TEST_F(KnownLeaks, CanBeMany) {
  std::string lines;
  for (int i = 0; i < 5000; ++i) lines += "leak:none" + std::to_string(i) + "\n";
  EXPECT_EQ("letter.c:10 letter.c:102", shown_without(lines + "leak:stamp"));
}

TEST_F(KnownLeaks, NeedMemoryOfTheProfile) {
  know("leak:letter\n# " + std::string(2 << 20, '-'));
  testing::internal::CaptureStderr();
  EXPECT_EQ(0, qk_mem_profile_config("MAX=512K"));
  EXPECT_EQ(5012, qk_mem_profile_config("MAX=512K IGNORE=known"));
  EXPECT_EQ(
      "qkmem: qk_mem_profile_config: IGNORE can't read 'known': Cannot allocate memory. No leak is "
      "ignored.\n",
      testing::internal::GetCapturedStderr());
}

TEST_F(KnownLeaks, AreMarkedInJsonWithTheirFigures) {
  EXPECT_EQ("", answer_to("leak:stamp"));
  const std::string text = kit::requested("FORMAT=JSON").text;
  EXPECT_NE(std::string::npos, text.find(R"("file":"stamp.c","line":2,"handle":)"
                                         R"(3,"tag":"LE","ignored":true,"live_bytes":100,)"))
      << text;
  EXPECT_EQ(text.find("ignored"), text.rfind("ignored"));
  EXPECT_NE(std::string::npos, text.find(R"("live_bytes":300)"));
}

TEST_F(KnownLeaks, AreNoGrowthThatIsLeftOut) {
  EXPECT_EQ("", answer_to("leak:stamp"));
  EXPECT_EQ(300, qk_mem_growth(nullptr, "").bytes);
}

[[gnu::noinline]] void lose_a_letter() {
  static_cast<void>(qk_mem_malloc(QK_MEM_DATA_HANDLE, 8));
  asm volatile("");
}

[[gnu::noinline]] void lose_a_parcel() {
  lose_a_letter();
  asm volatile("");
}

TEST(KnownCallers, AreFoundInAllFramesOfAStack) {
  const kit::Scene scene;
  ASSERT_EQ(0, qk_mem_profile_config("STACKS=32"));
  lose_a_parcel();
  lose_a_letter();
  EXPECT_EQ("", answer_to("leak:lose_a_parcel"));
  ASSERT_EQ(0, qk_mem_profile_config("STACKS=32 IGNORE=known"));
  EXPECT_NE(std::string::npos, kit::requested("").text.find("IGNORE leaves out 1 site with 8 B"))
      << kit::requested("").text;
  know("leak:^main$");
  ASSERT_EQ(0, qk_mem_profile_config("STACKS=32 IGNORE=known SKIP=main"));
  EXPECT_NE(std::string::npos, kit::requested("").text.find("IGNORE leaves out 1 site with 16 B"))
      << kit::requested("").text;
}

/** Runs a process that holds 100 bytes at each of two places, and ends. */
kit::Ended end_with(
    const std::string& options, const std::string& lines, void (*end)() = [] {}) {
  know(lines);
  return kit::run({"", "", "", options + " IGNORE=known"}, [end] {
    hold(QK_MEM_DATA_HANDLE, "letter.c", 1);
    hold(qk_mem_new_handle("AUTOFREE", "AU"), "parcel.c", 1);
    end();
  });
}

std::string without_chance_at_the_end(const std::string& text) {
  return std::regex_replace(text, std::regex(R"( \(within [^)]*\)| at [0-9.]+ s|took .* of)"), "");
}

TEST(KnownLeaksAtTheEnd, AreNoFailure) {
  const kit::Scene scene;
  const kit::Ended ended = end_with("LEAKS=FAIL", "leak:letter");
  EXPECT_EQ(0, ended.exit_code);
  EXPECT_EQ(
      "qkmem: nothing is held; 2 allocations of 200 B were watched; peak 200 B (event 2)\n"
      "qkmem: 100 B in 1 block of AUTOFREE handles go with them\n"
      "qkmem: IGNORE leaves out 1 site with 100 B in 1 block\n"
      "qkmem: the profile  its own\n",
      without_chance_at_the_end(ended.err));
}

TEST(KnownLeaksAtTheEnd, AreSaidIfTheyMatchNothing) {
  const kit::Scene scene;
  const kit::Ended ended = end_with("LEAKS=FAIL", "leak:none\nleak:parcel\n#\ntag:XX\n");
  EXPECT_EQ(23, ended.exit_code);
  EXPECT_EQ(
      "qkmem: 1 site still holds 100 B in 1 block; peak 200 B (event 2)\n"
      "qkmem: 100 B in 1 block of AUTOFREE handles go with them\n"
      "  bytes  blocks  share  made  handle  site\n"
      "  100 B       1   100%     1       2  letter.c:1\n"
      "qkmem: the profile  its own\n"
      "qkmem: IGNORE: nothing matched 'leak:none' (known:1)\n"
      "qkmem: IGNORE: nothing matched 'leak:parcel' (known:2)\n"
      "qkmem: IGNORE: nothing matched 'tag:XX' (known:4)\n"
      "qkmem: the process ends with 23, because 1 site still holds memory (LEAKS=FAIL)\n",
      without_chance_at_the_end(ended.err));
}

TEST(KnownLeaksAtTheEnd, AreSaidOnStandardErrorIfProgramsReadTheReport) {
  const kit::Scene scene;
  EXPECT_EQ("qkmem: IGNORE: nothing matched 'leak:none' (known:2)\n",
            end_with("FORMAT=JSON REPORT=r", "leak:letter\nleak:none").err);
}

TEST(KnownLeaksAtTheEnd, AreNotSaidWhileTheProgramRunsNorAtASignal) {
  const kit::Scene scene;
  const kit::Ended ended = end_with("SITES", "leak:none", [] {
    qk_mem_profile_report(stdout, "");
    std::fflush(stdout);
    raise(SIGTERM);
    for (;;) pause();  // the end may be put off
  });
  EXPECT_EQ(SIGTERM, ended.signal);
  EXPECT_EQ(std::string::npos, (ended.out + ended.err).find("matched"));
}

}  // namespace
