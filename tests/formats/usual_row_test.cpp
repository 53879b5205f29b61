#include "formats/usual_row.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "formats/trace_reader.h"
#include "tests/formats/trace_text.h"

namespace {

using qk::mem::TraceReader;
using qk::mem::TraceRow;

const std::string kUsual =
    "4999\t14\tM\t0000564c862a2e80\t1\t55\t93419\tbuffer.c\t58\t1741709\t1892352\t-150643\t55\t0\t"
    "-55\n";

/** A row with enough behind it, in memory that ends there. */
std::size_t length_of(const std::string& text, TraceRow& row) {
  const std::string padded = text + std::string(64, 'x');
  const std::unique_ptr<char[]> bytes(new char[padded.size()]);
  std::memcpy(bytes.get(), padded.data(), padded.size());
  return qk::mem::read_usual_row({bytes.get(), padded.size()}, row);
}

TEST(UsualRow, IsReadAsAWhole) {
  TraceRow row;
  const std::string padded = kUsual + std::string(64, 'x');
  EXPECT_EQ(kUsual.size(), qk::mem::read_usual_row(padded, row));
  EXPECT_EQ((TraceRow{.sequence = 4999,
                      .handle = 14,
                      .type = 'M',
                      .address = qk::mem::TraceAddress{0x564c862a2e80},
                      .num = 1,
                      .size = 55,
                      .handle_size = 93419,
                      .file = "buffer.c",
                      .line = 58,
                      .current = 1741709,
                      .heap = 1892352,
                      .unknown = -150643,
                      .change = 55,
                      .growth = 0,
                      .difference = -55}),
            row);
}

TEST(UsualRow, IsNotReadAtTheEndOfTheBytes) {
  TraceRow row;
  EXPECT_EQ(0U, qk::mem::read_usual_row(kUsual, row));
  EXPECT_EQ(0U, qk::mem::read_usual_row("", row));
}

TEST(UsualRow, IsNoneThatHasToBeReadWithMoreCare) {
  TraceRow row;
  const auto with = [](std::string_view part, std::string_view other) {
    std::string text = kUsual;
    return text.replace(text.find(part), part.size(), other);
  };
  EXPECT_NE(0U, length_of(kUsual, row));
  EXPECT_EQ(0U, length_of(with("4999", "4294967296"), row));
  EXPECT_EQ(0U, length_of(with("14", "2147483648"), row));
  EXPECT_EQ(0U, length_of(with("14", ""), row));
  EXPECT_EQ(0U, length_of(with("\tM", "\t\t"), row));
  EXPECT_EQ(0U, length_of(with("\tM", "\t\n"), row));
  EXPECT_EQ(0U, length_of(with("\tM", "\tMM"), row));
  EXPECT_EQ(0U, length_of(with("564c", "564g"), row));
  EXPECT_EQ(0U, length_of(with("564c", "564C"), row));
  EXPECT_EQ(0U, length_of(with("00005", "0005"), row));
  EXPECT_EQ(0U, length_of(with("\t55", "\t-55"), row));
  EXPECT_EQ(0U, length_of(with("93419", "12345678901234567"), row));
  EXPECT_EQ(0U, length_of(with("buffer", "buf\nfer"), row));
  EXPECT_EQ(0U, length_of(with("58", "5 8"), row));
  EXPECT_EQ(0U, length_of(with("-150643", "-"), row));
  EXPECT_EQ(0U, length_of(with("-55\n", "-55\t"), row));
}

/** Rows and errors in the file, of bytes that come in pieces of some size. */
std::string read_in_pieces(std::string_view text, std::size_t size) {
  TraceReader reader;
  std::string read;
  for (bool is_at_end = false;;) {
    switch (reader.next()) {
      case TraceReader::Answer::kRow: {
        qk::Line line;
        put_trace_row(reader.row(), 0, line);
        read.append(line.finish());
        break;
      }
      case TraceReader::Answer::kBroken:
        read += message_of(reader.error()) + "\n";
        break;
      case TraceReader::Answer::kNeedsMore:
        if (text.empty() && !is_at_end) reader.finish();
        is_at_end = text.empty();
        reader.feed(text.substr(0, size));
        text.remove_prefix(std::min(size, text.size()));
        break;
      case TraceReader::Answer::kEnd:
        return read;
    }
  }
}

/** A row in pieces of one byte is never read as a usual one. */
TEST(UsualRow, IsWhatTheCompleteReaderMakesOfIt) {
  std::minstd_rand random(11);
  const std::string_view alphabet = "0123456789abcdefgF-+\t\n \0x";
  for (int i = 0; i < 3000; ++i) {
    std::string rows;
    for (int row = 0; row < 3; ++row) {
      std::string text = kUsual;
      for (auto places = random() % 3; places != 0; --places) {
        const std::size_t at = random() % text.size();
        const char c = alphabet[random() % alphabet.size()];
        if (random() % 3 == 0) text.insert(at, 1 + random() % 9, c);
        if (random() % 3 == 0) text.erase(at, 1);
        if (random() % 3 == 0) text[at] = c;
      }
      rows += text;
    }
    const std::string table = trace_text::kHeadings + rows + std::string(40, '5');
    ASSERT_EQ(read_in_pieces(table, 1), read_in_pieces(table, table.size())) << rows;
  }
}

}  // namespace
