#include "formats/trace_reader.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <deque>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "diag/trace_file.h"
#include "tests/formats/trace_text.h"
#include "tests/kit/heap.h"
#include "tests/kit/scene.h"
#include "tests/kit/standalone_handle.h"
#include "tests/kit/trace.h"

namespace {

using kit::Trace;
using qk::mem::TraceAddress;
using qk::mem::TraceReader;
using qk::mem::TraceRow;
using std::string_literals::operator""s;
using trace_text::kHeadings;
using trace_text::kWhole;
using trace_text::kWholeRow;
using trace_text::with;
using Faults = std::vector<std::string>;

TEST(TraceReader, ReadsAllFifteenColumnsOfARow) {
  const Trace trace(kHeadings + kWhole);
  EXPECT_EQ(trace.rows, std::vector{kWholeRow});
  EXPECT_EQ(trace.faults, Faults{});
}

TEST(TraceReader, FindsNoRowsIfThereAreOnlyHeadings) {
  const Trace trace(kHeadings);
  EXPECT_TRUE(trace.rows.empty());
  EXPECT_EQ(trace.faults, Faults{});
}

TEST(TraceReader, ReadsTheWholeRangeOfEachColumn) {
  const Trace trace(
      kHeadings +
      "4294967295\t2147483647\tM\tffffffffffffffff\t18446744073709551615\t18446744073709551615\t"
      "18446744073709551615\ta.c\t2147483647\t9223372036854775807\t9223372036854775807\t"
      "9223372036854775807\t9223372036854775807\t9223372036854775807\t9223372036854775807\n"
      "0\t-2147483648\tM\t0\t0\t0\t0\t\t-2147483648\t-9223372036854775808\t-9223372036854775808\t"
      "-9223372036854775808\t-9223372036854775808\t-9223372036854775808\t-9223372036854775808\n");
  ASSERT_EQ(trace.faults, Faults{});
  EXPECT_EQ(trace.rows.at(0), (TraceRow{.sequence = UINT32_MAX,
                                        .handle = INT32_MAX,
                                        .type = 'M',
                                        .address = TraceAddress{UINT64_MAX},
                                        .num = UINT64_MAX,
                                        .size = UINT64_MAX,
                                        .handle_size = UINT64_MAX,
                                        .file = "a.c",
                                        .line = INT32_MAX,
                                        .current = INT64_MAX,
                                        .heap = INT64_MAX,
                                        .unknown = INT64_MAX,
                                        .change = INT64_MAX,
                                        .growth = INT64_MAX,
                                        .difference = INT64_MAX}));
  EXPECT_EQ(trace.rows.at(1), (TraceRow{.handle = INT32_MIN,
                                        .type = 'M',
                                        .line = INT32_MIN,
                                        .current = INT64_MIN,
                                        .heap = INT64_MIN,
                                        .unknown = INT64_MIN,
                                        .change = INT64_MIN,
                                        .growth = INT64_MIN,
                                        .difference = INT64_MIN}));
}

TEST(TraceReader, ReadsAddressesOfAnyLengthAndNullWithoutDigits) {
  for (const char* text : {"ff", "0ff", "000000000000000000000000ff"}) {
    EXPECT_EQ(Trace(kHeadings + with(4, text)).rows, std::vector{kWholeRow}) << text;
  }
  EXPECT_EQ(Trace(kHeadings + with(4, "")).rows.at(0).address, TraceAddress{});
}

TEST(TraceReader, ReadsFileNamesOfAnyBytesButTabAndNewline) {
  for (const std::string& name : {""s, " a b "s, "\0\r\x7f\xff"s, std::string(5000, 'n')}) {
    const Trace trace(kHeadings + with(8, name));
    ASSERT_EQ(trace.faults, Faults{});
    EXPECT_EQ(trace.rows.at(0).file, name);
  }
}

TEST(TraceReader, ReadsAnyByteAsAType) {
  for (int type = 0; type < 256; ++type) {
    const Trace trace(kHeadings + with(3, std::string(1, static_cast<char>(type))) + kWhole);
    ASSERT_EQ(trace.faults, Faults{}) << type;
    ASSERT_EQ(trace.rows.size(), 2U) << type;
    EXPECT_EQ(trace.rows[0].type, type);
    EXPECT_EQ(trace.rows[0].difference, 12) << type;
    EXPECT_EQ(trace.rows[1], kWholeRow) << type;
  }
}

TEST(TraceReader, ReadsTheSameFromPiecesOfEverySize) {
  const std::string text = kHeadings + kWhole + with(3, "\n") + with(3, "\t") + with(3, "\0"s) +
                           "1\t2\t\n" + "\n" + with(6, "x") + with(8, "") + "1\t2\tM\tff\n" +
                           with(15, "1\t2") + kWhole + "1\t2\t\n";
  const Trace at_once(text);
  ASSERT_EQ(at_once.rows.size(), 6U);
  ASSERT_EQ(at_once.faults, (Faults{"line 7, column 3 (Type): the row ends here",
                                    "line 8, column 1 (Sequence): the row ends here",
                                    "line 9, column 6 (Size): not a number",
                                    "line 11, column 4 (Address): the row ends here",
                                    "line 12, column 15 (Difference): more behind the last column",
                                    "line 14, column 3 (Type): the row ends here"}));
  for (std::size_t size = 1; size <= text.size(); ++size) {
    const Trace trace(text, size);
    EXPECT_EQ(trace.rows, at_once.rows) << size;
    EXPECT_EQ(trace.faults, at_once.faults) << size;
  }
}

TEST(TraceReader, ReturnsARowAsSoonAsItIsComplete) {
  TraceReader reader;
  reader.feed("");
  EXPECT_EQ(reader.next(), TraceReader::Answer::kNeedsMore);
  reader.feed(kHeadings);
  EXPECT_EQ(reader.next(), TraceReader::Answer::kNeedsMore);
  const std::string part = kWhole + kWhole.substr(0, 5);
  reader.feed(part);
  EXPECT_EQ(reader.next(), TraceReader::Answer::kRow);
  EXPECT_EQ(reader.next(), TraceReader::Answer::kNeedsMore);
  const std::string rest = kWhole.substr(5);
  reader.feed(rest);
  EXPECT_EQ(reader.next(), TraceReader::Answer::kRow);
  EXPECT_EQ(reader.row(), kWholeRow);
  EXPECT_EQ(reader.next(), TraceReader::Answer::kNeedsMore);
  reader.finish();
  EXPECT_EQ(reader.next(), TraceReader::Answer::kEnd);
  EXPECT_EQ(reader.next(), TraceReader::Answer::kEnd);
}

TEST(TraceReader, KeepsTheFileOfARowUntilMoreIsFed) {
  const std::string text = kHeadings + kWhole + with(8, "another_file.c");
  const std::size_t in_first = kHeadings.size() + kWhole.size() - 5;
  TraceReader reader;
  reader.feed(std::string_view(text).substr(0, in_first));
  ASSERT_EQ(reader.next(), TraceReader::Answer::kNeedsMore);
  // The end of the first row and the begin of the second one.
  reader.feed(std::string_view(text).substr(in_first, kWhole.size()));
  TraceRow row;
  ASSERT_EQ(reader.next(row), TraceReader::Answer::kRow);
  ASSERT_EQ(reader.next(), TraceReader::Answer::kNeedsMore);
  EXPECT_EQ(row, kWholeRow);
}

/** Random rows, with numbers of all lengths and any types and file names. */
class RandomRows {
 public:
  TraceRow next() {
    return {.sequence = static_cast<std::uint32_t>(number()),
            .handle = static_cast<int>(number()),
            .type = static_cast<unsigned char>(random_()),
            .address = TraceAddress{number()},
            .num = number(),
            .size = number(),
            .handle_size = number(),
            .file = file(),
            .line = static_cast<int>(number()),
            .current = signed_number(),
            .heap = signed_number(),
            .unknown = signed_number(),
            .change = signed_number(),
            .growth = signed_number(),
            .difference = signed_number()};
  }

  int address_digits() { return static_cast<int>(random_() % 24) - 3; }

 private:
  std::uint64_t number() { return random_() % 8 == 0 ? 0 : random_() >> (random_() % 64); }

  std::int64_t signed_number() {
    const auto value = static_cast<std::int64_t>(number());
    return random_() % 2 == 0 ? value : -value;
  }

  std::string_view file() {
    std::string& name = files_.emplace_back(random_() % 40, '.');
    for (char& c : name) c = static_cast<char>(random_());
    std::replace(name.begin(), name.end(), '\t', ' ');
    std::replace(name.begin(), name.end(), '\n', ' ');
    return name;
  }

  std::mt19937_64 random_{20261121};
  std::deque<std::string> files_;
};

TEST(TraceReader, ReadsBackWhatWasWritten) {
  RandomRows random_rows;
  std::vector<TraceRow> rows;
  std::string text = kHeadings;
  for (int i = 0; i < 20000; ++i) {
    rows.push_back(random_rows.next());
    qk::Line line;
    put_trace_row(rows.back(), random_rows.address_digits(), line);
    text += line.finish();
  }
  const Trace trace(text, 4096);
  EXPECT_EQ(trace.faults, Faults{});
  ASSERT_EQ(trace.rows.size(), rows.size());
  for (std::size_t i = 0; i < rows.size(); ++i) ASSERT_EQ(trace.rows[i], rows[i]) << i;
}

TEST(TraceReader, ReadsWhatTheLibraryWritesEvenAZeroByte) {
  const kit::Scene scene({"TRACE", "DB", ""});
  kit::set_heap(1000);
  const kit::Pool pool;
  qk_mem_iregister(pool, QK_MEM_EXTERNAL, kit::at(0x5000), nullptr, 100, "src/app.c", 12);
  kit::set_heap(1500);
  qk_mem_ideregister(pool, QK_MEM_EXTERNAL, kit::at(0x5000), "lib/other.c", 80000);
  std::fflush(Qk_mem_db);

  const Trace trace(kit::contents("qkmem.tdf"));
  EXPECT_EQ(trace.faults, Faults{});
  ASSERT_GT(trace.rows.size(), 3U);
  const TraceRow& before = *(trace.rows.end() - 3);
  const TraceRow registered = {.sequence = before.sequence + 1,
                               .handle = 3,
                               .type = 'X',
                               .address = TraceAddress{0x5000},
                               .num = 1,
                               .size = 100,
                               .handle_size = 100,
                               .file = "app.c",
                               .line = 12,
                               .current = before.current + 100,
                               .heap = 1000,
                               .unknown = 900 - before.current,
                               .change = 100,
                               .growth = 0,
                               .difference = -100};
  const TraceRow deregistered = {.sequence = registered.sequence + 1,
                                 .handle = 3,
                                 .type = 0,
                                 .address = TraceAddress{0x5000},
                                 .num = 1,
                                 .size = 100,
                                 .handle_size = 0,
                                 .file = "other.c",
                                 .line = 80000,
                                 .current = before.current,
                                 .heap = 1500,
                                 .unknown = 1500 - before.current,
                                 .change = -100,
                                 .growth = 500,
                                 .difference = 600};
  EXPECT_EQ(*(trace.rows.end() - 2), registered);
  EXPECT_EQ(trace.rows.back(), deregistered);
}

}  // namespace
