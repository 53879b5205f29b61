#include "profile/options.h"

#include <gtest/gtest.h>

#include <string>

#include "qkmem/profile.h"
#include "qkmem/qkmem.h"
#include "tests/kit/profile.h"
#include "tests/kit/scene.h"

namespace {

namespace profile = qk::mem::profile;

/** What the library says to a mistake, and its code. */
struct Answer {
  std::string text;
  int code;
};

Answer configure(const char* options) {
  testing::internal::CaptureStderr();
  const int code = qk_mem_profile_config(options);
  return {testing::internal::GetCapturedStderr(), code};
}

TEST(ProfileOptions, AreUnderstoodInEitherCaseAndOrder) {
  const kit::Scene scene;
  EXPECT_EQ(0, qk_mem_profile_config("top=7 sort='made',\tPeak MAX=64m STACKS=8"));
  EXPECT_EQ(7U, profile::options().top);
  EXPECT_EQ(profile::Sort::kMade, profile::options().sort);
  EXPECT_TRUE(profile::options().peak);
  EXPECT_EQ(64U << 20, profile::options().max_bytes);
  EXPECT_EQ(8U, profile::options().depth);
}

TEST(ProfileOptions, CanBeLongerThanOtherOptionStrings) {
  const kit::Scene scene;
  const std::string name(1000, 'x');
  EXPECT_EQ(0, qk_mem_profile_config(("PEAK REPORT=" + name + " TOP=3").c_str()));
  EXPECT_EQ(name, profile::options().report);
  EXPECT_EQ(3U, profile::options().top);
}

TEST(ProfileOptions, NameTheKeywordThatWasMeantAndUseTheRest) {
  const kit::Scene scene;
  const Answer answer = configure("STAKS TOP=3");
  EXPECT_EQ(
      "qkmem: qk_mem_profile_config: unknown keyword 'STAKS'; is STACKS meant? The rest is used.\n",
      answer.text);
  EXPECT_EQ(10041, answer.code);
  EXPECT_EQ(10041, qk_mem_error());
  EXPECT_EQ(3U, profile::options().top);
}

TEST(ProfileOptions, NameValuesThatAreNotUnderstood) {
  const kit::Scene scene;
  EXPECT_EQ("qkmem: qk_mem_profile_config: TOP can't be 'all'. The rest is used.\n",
            configure("TOP=all").text);
  EXPECT_EQ(5022, configure("TOP=-1").code);
  EXPECT_EQ("qkmem: qk_mem_profile_config: STACKS can't be '65'. The rest is used.\n",
            configure("STACKS=65").text);
  EXPECT_EQ("qkmem: qk_mem_profile_config: MAX can't be '20000000000G'. The rest is used.\n",
            configure("MAX=20000000000G").text);
  EXPECT_EQ("qkmem: qk_mem_profile_config: REPORT can't be 'report.%x'. The rest is used.\n",
            configure("REPORT=report.%x").text);
  EXPECT_STREQ("STDERR", profile::options().report);
  EXPECT_EQ("qkmem: qk_mem_profile_config: EVERY can't be '0'. The rest is used.\n",
            configure("EVERY=0").text);
  EXPECT_EQ("qkmem: qk_mem_profile_config: SORT can't be 'SIZE'. The rest is used.\n",
            configure("SORT=SIZE").text);
}

TEST(ProfileOptions, GiveProcessesWithLeaksACode) {
  const kit::Scene scene;
  EXPECT_EQ(0, qk_mem_profile_config("SITES"));
  EXPECT_EQ(0U, profile::options().leaks_code);
  EXPECT_EQ(0, qk_mem_profile_config("LEAKS=FAIL"));
  EXPECT_EQ(23U, profile::options().leaks_code);
  EXPECT_EQ(0, qk_mem_profile_config("leaks=fail=255"));
  EXPECT_EQ(255U, profile::options().leaks_code);
}

TEST(ProfileOptions, NameCodesThatNoProcessWithLeaksCanHave) {
  const kit::Scene scene;
  EXPECT_EQ("qkmem: qk_mem_profile_config: LEAKS can't be 'FAIL=0'. The rest is used.\n",
            configure("LEAKS=FAIL=0").text);
  EXPECT_EQ(5022, configure("LEAKS=FAIL=256").code);
  EXPECT_EQ(5022, configure("LEAKS=FAIL=").code);
  EXPECT_EQ(5022, configure("LEAKS=FAIL=-1").code);
  EXPECT_EQ(5022, configure("LEAKS=FAILS").code);
  EXPECT_EQ(5022, configure("LEAKS=23").code);
  EXPECT_EQ(10043, configure("LEAKS").code);
  EXPECT_EQ(0U, profile::options().leaks_code);
}

TEST(ProfileOptions, NameOtherMistakes) {
  const kit::Scene scene;
  EXPECT_EQ("qkmem: qk_mem_profile_config: PEAK takes no value. The rest is used.\n",
            configure("PEAK=1").text);
  EXPECT_EQ(10042, configure("PEAK=1").code);
  EXPECT_EQ("qkmem: qk_mem_profile_config: TOP needs a value. The rest is used.\n",
            configure("TOP PEAK").text);
  EXPECT_EQ(10043, configure("TOP=").code);
  EXPECT_EQ(
      "qkmem: qk_mem_profile_config: REPORT has a quote that is not closed. The rest is used.\n",
      configure("PEAK REPORT='x y").text);
  EXPECT_EQ(10044, configure("REPORT='x").code);
}

TEST(ProfileOptions, OfTheEnvironmentAreNamedAsSuch) {
  const kit::Scene scene;
  const kit::Ended ended =
      kit::run({"", "", "", "PEEK REPORT=/dev/null"}, [] { qk_mem_malloc(QK_MEM_DATA_HANDLE, 1); });
  EXPECT_EQ("qkmem: QK_MEM_PROFILE: unknown keyword 'PEEK'; is PEAK meant? The rest is used.\n",
            ended.err);
}

}  // namespace
