#include "formats/json.h"

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <climits>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "support/page_buffer.h"

namespace {

using qk::mem::JsonWriter;

std::string written(const std::function<void(JsonWriter&)>& write) {
  qk::PageBuffer buffer;
  JsonWriter json(buffer);
  write(json);
  EXPECT_TRUE(json.is_complete());
  const std::string text(buffer.text());
  buffer.clear();
  return text;
}

std::string quoted(std::string_view text) {
  return written([text](JsonWriter& json) { json.text(text); });
}

std::string decimal(std::int64_t value, int digits) {
  return written([&](JsonWriter& json) { json.decimal(value, digits); });
}

TEST(Json, SeparatesMembersAndElementsByCommas) {
  EXPECT_EQ(written([](JsonWriter& json) {
              json.begin_object().key("program").text("app").key("sites").begin_array();
              json.begin_object().key("bytes").number(24).key("line").signed_number(-1);
              json.end_object().begin_object().end_object().begin_array().end_array();
              json.number(1).number(2).end_array().key("exact").boolean(true);
              json.key("peak").null().key("off").boolean(false).end_object();
            }),
            R"({"program":"app","sites":[{"bytes":24,"line":-1},{},[],1,2],)"
            R"("exact":true,"peak":null,"off":false})");
}

TEST(Json, BreaksLinesWhereItIsTold) {
  EXPECT_EQ(written([](JsonWriter& json) {
              json.begin_object().start_line().key("a").number(1).start_line().key("b");
              json.begin_array().start_line().number(2).start_line().number(3).start_line();
              json.end_array().start_line().end_object();
            }),
            "{\n\"a\":1,\n\"b\":[\n2,\n3\n]\n}");
}

TEST(Json, EscapesWhatTextsMustNotContain) {
  EXPECT_EQ(quoted("\"C:\\x\"/"), R"("\"C:\\x\"/")");
  EXPECT_EQ(quoted("\b\f\n\r\t"), R"("\b\f\n\r\t")");
  EXPECT_EQ(quoted(std::string_view("\0\x01\x1F\x7F", 4)), "\"\\u0000\\u0001\\u001f\x7F\"");
  EXPECT_EQ(quoted(""), "\"\"");
  EXPECT_EQ(written([](JsonWriter& json) { json.begin_object().key("\n").null().end_object(); }),
            R"({"\n":null})");
}

TEST(Json, KeepsUtf8AndReplacesOtherBytes) {
  EXPECT_EQ(quoted("gr\xC3\xBCn"), "\"gr\xC3\xBCn\"");
  EXPECT_EQ(quoted("gr\xFCn\n"), "\"gr\xEF\xBF\xBDn\\n\"");
}

TEST(Json, WritesIntegersExactly) {
  EXPECT_EQ(written([](JsonWriter& json) {
              json.begin_array().number(0).number(UINT64_MAX).signed_number(INT64_MIN);
              json.signed_number(INT64_MAX).end_array();
            }),
            "[0,18446744073709551615,-9223372036854775808,9223372036854775807]");
}

TEST(Json, WritesDecimalsExactly) {
  EXPECT_EQ(decimal(1234, 2), "12.34");
  EXPECT_EQ(decimal(5, 3), "0.005");
  EXPECT_EQ(decimal(-5, 1), "-0.5");
  EXPECT_EQ(decimal(0, 3), "0.000");
  EXPECT_EQ(decimal(100, 2), "1.00");
  EXPECT_EQ(decimal(-7, 0), "-7");
  EXPECT_EQ(decimal(INT64_MIN, 9), "-9223372036.854775808");
  EXPECT_EQ(decimal(INT64_MAX, 19), "0.9223372036854775807");
}

#if !defined(__SANITIZE_THREAD__) && !defined(__SANITIZE_ADDRESS__)
TEST(Json, SaysIfThereWasNoMemoryForAPiece) {
  qk::PageBuffer buffer;
  JsonWriter json(buffer);
  json.begin_array();
  const std::string large(100000, 'x');
  rlimit before = {};
  getrlimit(RLIMIT_AS, &before);
  const rlimit none = {0, before.rlim_max};
  setrlimit(RLIMIT_AS, &none);
  json.text(large);
  setrlimit(RLIMIT_AS, &before);
  json.end_array();
  EXPECT_FALSE(json.is_complete());
  EXPECT_EQ(buffer.text(), "[\"");
  buffer.clear();
}
#endif

}  // namespace
