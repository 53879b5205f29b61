#include "support/system.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <string>

namespace {

TEST(ErrorCode, Is5000PlusTheNumber) {
  EXPECT_EQ(qk_error_no(12), 5012);
  EXPECT_EQ(qk_error_no(1), 5001);
  EXPECT_EQ(qk_error_no(0), 0);
  EXPECT_EQ(qk_error_no(-1), 5000);
  EXPECT_EQ(qk_error_no(INT_MIN), 5000);
  EXPECT_EQ(qk_error_no(INT_MAX - 5000), INT_MAX);
  EXPECT_EQ(qk_error_no(INT_MAX), INT_MAX);
}

TEST(ErrorText, IsThatOfTheSystem) {
  char buffer[256];
  EXPECT_STREQ(qk_error_msg_r(ENOMEM, buffer, sizeof buffer), "Cannot allocate memory");
  EXPECT_STREQ(qk_error_msg_r(EFAULT, buffer, sizeof buffer), "Bad address");
  EXPECT_STREQ(qk_error_msg_r(0, buffer, sizeof buffer), "Success");
  EXPECT_STREQ(qk_error_msg_r(4711, buffer, sizeof buffer), "Unknown error 4711");
  EXPECT_STREQ(qk_error_msg_r(-1, buffer, sizeof buffer), "Unknown error -1");
}

TEST(ErrorText, IsCutToTheCallersBufferAndTerminated) {
  char buffer[8] = "#######";
  EXPECT_EQ(qk_error_msg_r(ENOMEM, buffer, 7), buffer);
  EXPECT_STREQ(buffer, "Cannot");
  EXPECT_STREQ(qk_error_msg_r(4711, buffer, 8), "Unknown");
  EXPECT_STREQ(qk_error_msg_r(ENOMEM, buffer, 1), "");
}

TEST(ErrorText, IsEmptyWithoutABuffer) {
  char buffer[4] = "abc";
  EXPECT_STREQ(qk_error_msg_r(ENOMEM, nullptr, 256), "");
  EXPECT_STREQ(qk_error_msg_r(ENOMEM, buffer, 0), "");
  EXPECT_STREQ(qk_error_msg_r(ENOMEM, buffer, -5), "");
  EXPECT_STREQ(buffer, "abc");
}

TEST(HostName, IsCutAndTerminated) {
  char system_name[256];
  ASSERT_EQ(gethostname(system_name, sizeof system_name), 0);
  const std::string name = system_name;
  ASSERT_GE(name.size(), 2U);
  char buffer[256];
  qk_hostname_r(buffer, sizeof buffer);
  EXPECT_EQ(buffer, name);
  buffer[3] = '#';
  qk_hostname_r(buffer, 3);
  EXPECT_EQ(buffer, name.substr(0, 2));
  EXPECT_EQ(buffer[3], '#');
  qk_hostname_r(buffer, 1);
  EXPECT_STREQ(buffer, "");
}

TEST(HostName, NeedsABuffer) {
  char buffer[4] = "abc";
  qk_hostname_r(buffer, 0);
  qk_hostname_r(buffer, -1);
  qk_hostname_r(nullptr, 64);
  EXPECT_STREQ(buffer, "abc");
}

TEST(SystemQueries, KeepErrno) {
  char buffer[64];
  errno = EBADF;
  qk_error_msg_r(4711, buffer, sizeof buffer);
  qk_hostname_r(buffer, sizeof buffer);
  EXPECT_EQ(errno, EBADF);
}

}  // namespace
