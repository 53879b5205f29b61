#include "support/file_names.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <span>
#include <string>
#include <string_view>

namespace {

/** The name, '!' and the unknown conversion if there is one; "(cut)" if the name doesn't fit. */
std::string expanded(std::string_view pattern, const qk::FileNameFacts& facts = {}) {
  char name[256];
  const qk::ExpandedName result = qk::expand_file_name(pattern, facts, name);
  if (!result.fits) return "(cut)";
  if (result.unknown.empty()) return name;
  return std::string(name) + "!" + std::string(result.unknown);
}

std::string time_name(std::int64_t start) { return expanded("%t", {.start = start}); }

TEST(FileNamePattern, NamesTheProcessTheProgramAndTheReport) {
  char program[] = "app";
  program_invocation_short_name = program;
  const std::string process = std::to_string(getpid());
  EXPECT_EQ(expanded("/tmp/%n.%p/%i.txt", {.number = 12}), "/tmp/app." + process + "/12.txt");
  EXPECT_EQ(expanded("%i%i", {.number = UINT64_MAX}), "1844674407370955161518446744073709551615");
  EXPECT_EQ(expanded("plain"), "plain");
  EXPECT_EQ(expanded(""), "");
}

TEST(FileNamePattern, NamesTheHost) {
  char host[256];
  ASSERT_EQ(gethostname(host, sizeof host), 0);
  EXPECT_EQ(expanded("%h.prom"), std::string(host) + ".prom");
}

TEST(FileNamePattern, HasAPercentSignForTwo) {
  EXPECT_EQ(expanded("100%%"), "100%");
  EXPECT_EQ(expanded("%%p"), "%p");
}

TEST(FileNamePattern, KeepsAndReportsWhatItDoesNotKnow) {
  EXPECT_EQ(expanded("a%xb%yc"), "a%xb%yc!%x");
  EXPECT_EQ(expanded("%P%%"), "%P%!%P");
  EXPECT_EQ(expanded("a%"), "a%!%");
}

TEST(FileNamePattern, ReportsAPartOfThePattern) {
  const std::string_view pattern = "%i%x";
  char name[16];
  EXPECT_EQ(qk::expand_file_name(pattern, {}, name).unknown.data(), pattern.data() + 2);
}

TEST(FileNamePattern, TakesNoSlashOutOfANameAndNoEmptyName) {
  char odd[] = "../sbin/app";
  program_invocation_short_name = odd;
  EXPECT_EQ(expanded("/tmp/%n"), "/tmp/.._sbin_app");
  char none[] = "";
  program_invocation_short_name = none;
  EXPECT_EQ(expanded("/tmp/%n"), "/tmp/program");
}

TEST(FileNamePattern, ShowsTimesInUtc) {
  setenv("TZ", "America/New_York", 1);
  tzset();
  EXPECT_EQ(time_name(0), "19700101T000000");
  EXPECT_EQ(time_name(1700000000), "20231114T221320");
  EXPECT_EQ(time_name(951782399), "20000228T235959");
  EXPECT_EQ(time_name(951782400), "20000229T000000");
  EXPECT_EQ(time_name(951868800), "20000301T000000");
  EXPECT_EQ(time_name(4107542399), "21000228T235959");
  EXPECT_EQ(time_name(4107542400), "21000301T000000");
  EXPECT_EQ(time_name(253402300799), "99991231T235959");
  EXPECT_EQ(time_name(253402300800), "100000101T000000");
  EXPECT_EQ(time_name(-1), "19700101T000000");
}

TEST(FileNamePattern, ShowsEachDayAsTheCLibraryDoes) {
  for (std::time_t day = 0; day < 200000; ++day) {
    const std::time_t start = 86400 * day + day % 86400;
    std::tm parts = {};
    gmtime_r(&start, &parts);
    char expected[32];
    std::strftime(expected, sizeof expected, "%Y%m%dT%H%M%S", &parts);
    ASSERT_EQ(time_name(start), expected);
  }
}

TEST(FileNamePattern, FailsIfTheNameDoesNotFit) {
  char exact[] = "#########";
  const qk::ExpandedName fitting =
      qk::expand_file_name("ab%i", {.number = 12345}, std::span(exact, 8));
  EXPECT_TRUE(fitting.fits);
  EXPECT_STREQ(exact, "ab12345");
  EXPECT_EQ(exact[8], '#');
  EXPECT_FALSE(qk::expand_file_name("ab%i", {.number = 12345}, std::span(exact, 7)).fits);
  EXPECT_FALSE(qk::expand_file_name("", {}, {}).fits);
  EXPECT_EQ(expanded(std::string(256, 'a')), "(cut)");
  EXPECT_EQ(expanded(std::string(255, 'a')), std::string(255, 'a'));
}

TEST(FileNamePattern, KeepsErrno) {
  errno = EBADF;
  expanded("%p%n%h%t%i");
  EXPECT_EQ(errno, EBADF);
}

}  // namespace
