#include "diag/output_file.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <cwchar>
#include <random>
#include <string>
#include <thread>

#include "diag/log.h"
#include "support/shortcuts.h"
#include "tests/kit/scene.h"

namespace {

using kit::contents;
using kit::Scene;
using qk::mem::append_to_buffer;

/** A file, "out", with a buffer of 256 bytes in which the first ones are "begin;". */
class BufferedFile : public ::testing::Test {
 protected:
  BufferedFile() : file_(std::fopen("out", "w")) {
    std::setvbuf(file_, buffer_.data(), _IOFBF, buffer_.size());
    std::fputs("begin;", file_);
  }
  ~BufferedFile() override {
    if (file_ != nullptr) std::fclose(file_);
  }

  /** Closes the file and returns all that it got. */
  std::string closed() {
    std::fclose(file_);
    file_ = nullptr;
    return contents("out");
  }

  Scene scene_;
  std::array<char, 256> buffer_{};
  FILE* file_;
};

TEST_F(BufferedFile, GetsTextsInTheOrderOfAllCalls) {
  EXPECT_EQ(append_to_buffer(file_, "one;"), qk::kShortcuts);
  std::fputs("two;", file_);
  EXPECT_EQ(append_to_buffer(file_, ""), qk::kShortcuts);
  EXPECT_EQ(append_to_buffer(file_, std::string_view("\0;", 2)), qk::kShortcuts);
  EXPECT_EQ(contents("out"), "");
  EXPECT_EQ(closed(), qk::kShortcuts ? std::string("begin;one;two;\0;", 16) : "begin;two;");
}

TEST_F(BufferedFile, TakesATextThatFillsItsBufferAndNoLongerOne) {
  EXPECT_FALSE(append_to_buffer(file_, std::string(251, 'x')));
  EXPECT_EQ(append_to_buffer(file_, std::string(250, 'x')), qk::kShortcuts);
  EXPECT_EQ(contents("out"), "");
  if (qk::kShortcuts) {
    EXPECT_FALSE(append_to_buffer(file_, "y"));
    EXPECT_EQ(closed(), "begin;" + std::string(250, 'x'));
  }
}

TEST_F(BufferedFile, IsLeftAloneBeforeItsFirstUse) {
  FILE* const unused = std::fopen("unused", "w");
  EXPECT_FALSE(append_to_buffer(unused, "x"));
  std::fclose(unused);
  EXPECT_EQ(contents("unused"), "");
}

TEST_F(BufferedFile, IsLeftAloneOnceItIsUnbuffered) {
  qk::mem::unbuffer(file_);
  std::fputs("x", file_);
  EXPECT_FALSE(append_to_buffer(file_, "y"));
  EXPECT_EQ(contents("out"), "begin;x");
}

TEST_F(BufferedFile, IsLeftAloneOnceItHasToWriteLines) {
  std::setvbuf(file_, nullptr, _IOLBF, 0);
  EXPECT_FALSE(append_to_buffer(file_, "x\n"));
  std::fputs("y\n", file_);
  EXPECT_EQ(contents("out"), "begin;y\n");
}

TEST_F(BufferedFile, IsLeftAloneWhileItIsRead) {
  FILE* const both = std::fopen("both", "w+");
  std::fputs("abc", both);
  std::rewind(both);
  EXPECT_EQ(std::fgetc(both), 'a');
  EXPECT_FALSE(append_to_buffer(both, "x"));
  EXPECT_EQ(std::fgetc(both), 'b');
  std::fclose(both);
}

TEST_F(BufferedFile, IsLeftAloneIfItHasWideCharacters) {
  FILE* const wide = std::fopen("wide", "w");
  std::fputws(L"abc", wide);
  EXPECT_FALSE(append_to_buffer(wide, "x"));
  std::fclose(wide);
  EXPECT_EQ(contents("wide"), "abc");
}

TEST_F(BufferedFile, IsLeftAloneBesideOtherThreads) {
  std::thread([] {}).join();
  EXPECT_FALSE(append_to_buffer(file_, "x"));
}

/** Random lines through write_line() and through fwrite(), with the same stream beside them. */
class Streams : public ::testing::Test {
 protected:
  template <class Open, class Close>
  void expect_same_bytes(Open open, Close close) {
    FILE* const written = open("written");
    FILE* const expected = open("expected");
    for (int i = 0; i < 400; ++i) {
      const std::string line = std::string(random_() % 2 == 0 ? random_() % 20 : random_() % 1000,
                                           static_cast<char>('a' + i % 26)) +
                               '\n';
      ASSERT_EQ(qk::mem::write_line(written, line), static_cast<int>(line.size()));
      ASSERT_EQ(std::fwrite(line.data(), 1, line.size(), expected), line.size());
      if (random_() % 50 == 0) {
        std::fflush(written);
        std::fflush(expected);
      }
      ASSERT_EQ(std::ftell(written), std::ftell(expected)) << i;
      ASSERT_EQ(contents("written"), contents("expected")) << i;
    }
    close(written);
    close(expected);
    EXPECT_EQ(contents("written"), contents("expected"));
  }

  void expect_same_bytes_with_buffering(int mode, std::size_t size) {
    expect_same_bytes(
        [&](const char* name) {
          FILE* const file = std::fopen(name, "w");
          if (mode >= 0) std::setvbuf(file, nullptr, mode, size);
          return file;
        },
        [](FILE* file) { std::fclose(file); });
  }

  Scene scene_;
  std::mt19937 random_{20261122};
};

TEST_F(Streams, GetTheBytesOfLinesAtTheSameTimeAsEver) { expect_same_bytes_with_buffering(-1, 0); }

TEST_F(Streams, GetTheBytesAtTheSameTimeWithTheirOwnBuffers) {
  expect_same_bytes_with_buffering(_IOFBF, 300);
}

TEST_F(Streams, GetTheBytesAtOnceIfUnbuffered) { expect_same_bytes_with_buffering(_IONBF, 0); }

TEST_F(Streams, GetTheBytesLineByLineIfTheyWriteLines) {
  expect_same_bytes_with_buffering(_IOLBF, 4096);
}

TEST_F(Streams, GrowInMemoryAsWithTheCLibrary) {
  std::string texts[2];
  for (const bool own : {false, true}) {
    char* text = nullptr;
    std::size_t size = 0;
    FILE* const memory = open_memstream(&text, &size);
    for (int i = 0; i < 2000; ++i) {
      const std::string line(static_cast<std::size_t>(i % 97), static_cast<char>('a' + i % 26));
      if (own) {
        qk::mem::write_line(memory, line);
      } else {
        std::fwrite(line.data(), 1, line.size(), memory);
      }
    }
    std::fclose(memory);
    texts[own ? 1 : 0] = {text, size};
    std::free(text);
  }
  EXPECT_EQ(texts[1], texts[0]);
}

}  // namespace
