#include "formats/row_at_once.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <string_view>

#include "formats/trace_reader.h"
#include "formats/usual_row.h"
#include "tests/formats/trace_text.h"
#include "tests/kit/trace.h"

namespace {

using qk::mem::read_row_at_once;
using qk::mem::TraceReader;
using qk::mem::TraceRow;

const std::string kShort =
    "4999\t14\tM\t0000564c862a2e80\t1\t55\t93419\tbuffer.c\t58\t1741709\t1892352\t-150643\t55\t0\t"
    "-55\n";
const std::string kBehind(64, '7');

/** A number, or text that is none, in place of another in the short row. */
std::string short_with(std::string_view part, std::string_view other) {
  std::string row = kShort;
  return row.replace(row.find(part), part.size(), other);
}

struct Read {
  std::size_t length;
  TraceRow row;
};

/** The first row as the complete reader reads it, which only needs the row's own bytes. */
std::optional<Read> read_completely(std::string_view text) {
  TraceReader reader;
  reader.feed(trace_text::kHeadings);
  (void)reader.next();
  for (std::size_t at = 0; at < text.size(); ++at) {
    reader.feed(text.substr(at, 1));
    const TraceReader::Answer answer = reader.next();
    if (answer == TraceReader::Answer::kNeedsMore) continue;
    if (answer == TraceReader::Answer::kBroken) return {};
    Read read = {at + 1, reader.row()};
    read.row.file = text.substr(text.find(read.row.file), read.row.file.size());
    return read;
  }
  return {};
}

class RowAtOnce : public testing::Test {
 protected:
  void SetUp() override {
    if (!qk::mem::kReadsAtOnce) GTEST_SKIP() << "reads one column after the other";
  }
};

TEST_F(RowAtOnce, IsReadWithNumbersOfUpToSixteenDigits) {
  TraceRow row;
  EXPECT_EQ(kShort.size(), read_row_at_once(kShort + kBehind, row));
  EXPECT_EQ(-150643, row.unknown);
  for (const char* number : {"12345678", "123456789", "-12345678", "1234567890123456"}) {
    const std::string text = short_with("1741709", number);
    ASSERT_EQ(text.size(), read_row_at_once(text + kBehind, row)) << number;
    EXPECT_EQ(std::stoll(number), row.current);
  }
  const std::string text = short_with("4999", "4294967295");
  ASSERT_EQ(text.size(), read_row_at_once(text + kBehind, row));
  EXPECT_EQ(4294967295U, row.sequence);
}

const std::string kWide =
    "4999\t14\tM\t0000564c862a2e80\t1\t55\t93419\ta_file_with_a_long_name.cpp\t58\t"
    "9876541741709\t9876541892352\t-9876541506434\t-55\t1048576\t-1048521\n";

TEST_F(RowAtOnce, IsReadIfItIsLong) {
  const std::string text = kWide + kBehind;
  TraceRow row;
  ASSERT_EQ(kWide.size(), read_row_at_once(text, row));
  EXPECT_EQ((TraceRow{.sequence = 4999,
                      .handle = 14,
                      .type = 'M',
                      .address = qk::mem::TraceAddress{0x564c862a2e80},
                      .num = 1,
                      .size = 55,
                      .handle_size = 93419,
                      .file = "a_file_with_a_long_name.cpp",
                      .line = 58,
                      .current = 9876541741709,
                      .heap = 9876541892352,
                      .unknown = -9876541506434,
                      .change = -55,
                      .growth = 1048576,
                      .difference = -1048521}),
            row);
}

TEST_F(RowAtOnce, IsReadWithItsEndAtAnyPlace) {
  for (std::size_t size = 0; size < 64; ++size) {
    for (const std::string& some : {kShort, kWide}) {
      std::string text = some;
      text.insert(text.find(".c"), size, 'x');
      const std::size_t name = text.find("\t58") - text.rfind('\t', text.find("\t58") - 1) - 1;
      text += kBehind;
      TraceRow row;
      const std::size_t length = read_row_at_once(text, row);
      ASSERT_EQ(name < 64 ? some.size() + size : 0, length) << text;
      if (length == 0) continue;
      const auto complete = read_completely(text);
      ASSERT_TRUE(complete);
      ASSERT_EQ(complete->row, row) << text;
    }
  }
}

TEST_F(RowAtOnce, IsNotReadIfAColumnIsLongOrWrong) {
  TraceRow row;
  for (const std::string& text : {short_with("4999", "4294967296"),
                                  short_with("4999", ""),
                                  short_with("14", "-14"),
                                  short_with("14", "2147483648"),
                                  short_with("\tM", "\t\t"),
                                  short_with("\tM", "\t\n"),
                                  short_with("\tM", "\tMM"),
                                  short_with("564c", "564C"),
                                  short_with("00005", "0005"),
                                  short_with("\t55", "\t-55"),
                                  short_with("93419", "12345678901234567"),
                                  short_with("buffer", "buf\nfer"),
                                  short_with("buffer", std::string(64, 'b')),
                                  short_with("58", "5 8"),
                                  short_with("1741709", "12345678901234567"),
                                  short_with("1741709", "1234567890x23456"),
                                  short_with("1741709", "--12345678"),
                                  short_with("-150643", "-"),
                                  short_with("-55\n", "-55\t\n"),
                                  short_with("-55\n", "\n"),
                                  short_with("\t0\t", "\n")}) {
    EXPECT_EQ(0U, read_row_at_once(text + kBehind, row)) << text;
  }
}

TEST_F(RowAtOnce, IsReadOnlyIfItLiesWithinTheBytes) {
  for (const std::string& whole : {kShort, kWide}) {
    const std::string text = whole + kBehind;
    for (std::size_t size = 0; size <= text.size(); ++size) {
      const std::unique_ptr<char[]> bytes(new char[size]);
      std::memcpy(bytes.get(), text.data(), size);
      TraceRow row;
      for (const std::size_t length : {read_row_at_once({bytes.get(), size}, row),
                                       qk::mem::read_usual_row({bytes.get(), size}, row)}) {
        ASSERT_TRUE(length == 0 || (length == whole.size() && length <= size)) << size;
      }
    }
  }
}

/** Rows as they are usual, with numbers of any length, and with some bytes changed in half of them. */
class MutatedRows {
 public:
  std::string next() {
    wide_ = random_() % 4 == 0;
    std::string row = number(false);
    row += '\t' + number(false) + '\t' + kTypes[random_() % kTypes.size()] + "\t0000";
    for (int i = 0; i < 12; ++i) row += kHexadecimal[random_() % kHexadecimal.size()];
    for (int i = 0; i < 3; ++i) row += '\t' + number(false);
    row += '\t' + std::string(random_() % 4 == 0 ? random_() % 70 : random_() % 9, 'n') + '\t';
    row += number(false);
    for (int i = 0; i < 6; ++i) row += '\t' + number(true);
    row += '\n';
    if (random_() % 2 == 0) mutate(row);
    return row;
  }

 private:
  std::string number(bool is_signed) {
    const std::size_t digits = 1 + random_() % (random_() % 8 == 0 ? 21 : 9) + (wide_ ? 6 : 0);
    std::string number = is_signed && random_() % 2 == 0 ? "-" : "";
    while (number.size() < digits) number += static_cast<char>('0' + random_() % 10);
    return number;
  }

  void mutate(std::string& row) {
    for (auto places = 1 + random_() % 3; places != 0; --places) {
      const std::size_t at = random_() % row.size();
      const char c =
          random_() % 4 == 0 ? static_cast<char>(random_()) : kBytes[random_() % kBytes.size()];
      const auto how = random_() % 4;
      if (how == 0) row.insert(at, 1 + random_() % 9, c);
      if (how == 1 && row.size() > 1) row.erase(at, 1 + random_() % 2);
      if (how == 2) row[at] = c;
      if (how == 3) std::swap(row[at], row[random_() % row.size()]);
    }
  }

  static constexpr std::string_view kTypes{"MFRN\0\xFF", 6};
  static constexpr std::string_view kHexadecimal = "0123456789abcdef";
  static constexpr std::string_view kBytes{"0123456789abcdefgF-+\t\n \0x/:", 27};

  bool wide_ = false;
  std::mt19937 random_{20261123};
};

/** Neither is ever read otherwise than completely, nor if that refuses it. */
TEST(UsualRow, IsAsTheCompleteReaderReadsItWhateverItsBytesAre) {
  MutatedRows rows;
  int read_at_once = 0;
  int read_usual = 0;
  for (int i = 0; i < 100000; ++i) {
    const std::string text = rows.next() + kBehind;
    TraceRow at_once;
    TraceRow usual;
    const std::size_t at_once_length = qk::mem::kReadsAtOnce ? read_row_at_once(text, at_once) : 0;
    const std::size_t usual_length = qk::mem::read_usual_row(text, usual);
    if (at_once_length == 0 && usual_length == 0) continue;
    const auto complete = read_completely(text);
    ASSERT_TRUE(complete) << text;
    if (at_once_length != 0) {
      ++read_at_once;
      ASSERT_EQ(complete->length, at_once_length) << text;
      ASSERT_EQ(complete->row, at_once) << text;
    }
    if (usual_length != 0) {
      ++read_usual;
      ASSERT_EQ(complete->length, usual_length) << text;
      ASSERT_EQ(complete->row, usual) << text;
    }
  }
  EXPECT_GT(read_usual, 20000);
  EXPECT_TRUE(read_at_once > 10000 || !qk::mem::kReadsAtOnce) << read_at_once;
}

}  // namespace
