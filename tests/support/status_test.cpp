#include "qkmem/status.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>
#include <string>
#include <type_traits>

namespace {

static_assert(std::is_base_of_v<std::exception, qk::Status>);
static_assert(sizeof(qk::Status::subject) == 257 && sizeof(qk::Status::location) == 320);
static_assert(sizeof(qk::Status::arg1) == 257 && sizeof(qk::Status::arg2) == 257);
static_assert(sizeof(qk::Status::host) == 64);

/** "code/detail1/detail2/num1/num2/subject/location/arg1/arg2/host" */
std::string text_of(const qk::Status& s) {
  std::string text;
  for (const int number : {s.code, s.detail1, s.detail2, s.num1, s.num2}) {
    text += std::to_string(number) + "/";
  }
  for (const char* field : {s.subject, s.location, s.arg1, s.arg2})
    text += std::string(field) + "/";
  return text + s.host;
}

qk::Status filled() {
  qk::Status status;
  status.code = 10037;
  status.detail1 = 1;
  status.detail2 = 2;
  status.num1 = 257;
  status.num2 = 256;
  std::strcpy(status.subject, "s");
  std::strcpy(status.location, "l");
  std::strcpy(status.arg1, "a");
  std::strcpy(status.arg2, "b");
  std::strcpy(status.host, "h");
  return status;
}

TEST(Status, StartsEmpty) { EXPECT_EQ(text_of(qk::Status()), "0/0/0/0/0/////"); }

TEST(Status, HoldsWhatWasFilledIn) { EXPECT_EQ(text_of(filled()), "10037/1/2/257/256/s/l/a/b/h"); }

TEST(Status, KeepsOnlyItsTwoNumbersWhenCleared) {
  qk::Status status = filled();
  status.clear();
  EXPECT_EQ(text_of(status), "0/0/0/257/256/////");
}

TEST(Status, KeepsNothingWhenInitialized) {
  qk::Status status = filled();
  status.init();
  EXPECT_EQ(text_of(status), "0/0/0/0/0/////");
}

TEST(Status, CanBeResetByFunctionsThatAcceptNull) {
  qk::Status status = filled();
  QK_CLEAR_STATUS(&status);
  EXPECT_EQ(text_of(status), "0/0/0/257/256/////");
  QK_INIT_STATUS(&status);
  EXPECT_EQ(text_of(status), "0/0/0/0/0/////");
  QK_CLEAR_STATUS(nullptr);
  QK_INIT_STATUS(nullptr);
}

TEST(Status, KeepsItsMembersInOrderWithTheCodeFirst) {
  const qk::Status s;
  const char* const begin = reinterpret_cast<const char*>(&s);
  const auto offset = [begin](const void* member) {
    return static_cast<const char*>(member) - begin;
  };
  EXPECT_EQ(offset(&s.code), static_cast<std::ptrdiff_t>(sizeof(std::exception)));
  EXPECT_EQ(offset(&s.detail1), offset(&s.code) + 4);
  EXPECT_EQ(offset(&s.detail2), offset(&s.code) + 8);
  EXPECT_EQ(offset(&s.num1), offset(&s.code) + 12);
  EXPECT_EQ(offset(&s.num2), offset(&s.code) + 16);
  EXPECT_EQ(offset(&s.subject), offset(&s.code) + 20);
  EXPECT_EQ(offset(&s.location), offset(&s.subject) + 257);
  EXPECT_EQ(offset(&s.arg1), offset(&s.location) + 320);
  EXPECT_EQ(offset(&s.arg2), offset(&s.arg1) + 257);
  EXPECT_EQ(offset(&s.host), offset(&s.arg2) + 257);
}

TEST(Status, CanBeThrownAsAStandardException) {
  try {
    throw filled();
  } catch (const std::exception& caught) {
    EXPECT_EQ(dynamic_cast<const qk::Status&>(caught).code, 10037);
  }
}

}  // namespace
