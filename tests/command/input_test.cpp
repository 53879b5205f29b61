#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zlib.h>
#include <zstd.h>

#include <fstream>

#include "tests/command/command.h"
#include "tests/kit/scene.h"

namespace {

using kit::contents;
using kit::qkmem;
using kit::Scene;
using kit::write_file;
using kit::write_small_table;

constexpr const char* kLeaksOfSmallTable =
    "live_bytes,live_blocks,made_blocks,largest_bytes,last_event,handle,site\n"
    "300,1,1,300,5,4,b.c:9\n"
    "100,1,2,100,4,3,a.c:7\n";

std::string gzipped(const std::string& text) {
  const gzFile file = gzopen("part.gz", "wb");
  gzwrite(file, text.data(), static_cast<unsigned>(text.size()));
  gzclose(file);
  return contents("part.gz");
}

std::string zstd_compressed(const std::string& text) {
  std::string compressed(ZSTD_compressBound(text.size()), '\0');
  compressed.resize(
      ZSTD_compress(compressed.data(), compressed.size(), text.data(), text.size(), 3));
  return compressed;
}

/** A recording of a program that keeps one block. */
void write_recording() {
  const kit::Ended ended = kit::run({"", "", "", "RECORD=r.qkm REPORT=/dev/null"}, [] {
    const kit::Pool pool;
    qk_mem_imalloc(pool, 100, 16, "a.c", 7);
  });
  ASSERT_EQ("", ended.err);
}

constexpr const char* kLeaksOfRecording =
    "live_bytes,live_blocks,made_blocks,largest_bytes,last_event,handle,site\n"
    "100,1,1,100,1,3,a.c:7\n";

TEST(Input, CanBeCompressedByGzipUnderAnyName) {
  const Scene scene;
  write_small_table();
  write_file("any", gzipped(contents("t.tdf")));
  EXPECT_EQ(kLeaksOfSmallTable, kit::output_of({"leaks", "--csv", "any"}));
}

TEST(Input, CanBeSeveralGzipFilesOneBehindTheOther) {
  const Scene scene;
  write_small_table();
  const std::string table = contents("t.tdf");
  write_file("two.gz", gzipped(table.substr(0, 100)) + gzipped(table.substr(100)));
  EXPECT_EQ(kLeaksOfSmallTable, kit::output_of({"leaks", "--csv", "two.gz"}));
}

TEST(Input, CanBeCompressedByZstd) {
  const Scene scene;
  write_small_table();
  write_file("t.zst", zstd_compressed(contents("t.tdf")));
  EXPECT_EQ(kLeaksOfSmallTable, kit::output_of({"leaks", "--csv", "t.zst"}));
}

TEST(Input, CanComeThroughAPipe) {
  const Scene scene;
  write_small_table();
  const kit::Ran ran = qkmem({"leaks", "--csv", "-"}, contents("t.tdf"));
  EXPECT_EQ(kLeaksOfSmallTable, ran.out);
  EXPECT_EQ("", ran.err);
}

TEST(Input, OfARecordingThatIsCompressedGoesThroughATemporaryFile) {
  const Scene scene;
  write_recording();
  write_file("r.zst", zstd_compressed(contents("r.qkm")));
  ASSERT_EQ(0, mkdir("temporary", 0700));
  setenv("TMPDIR", "temporary", 1);
  const kit::Ran ran = qkmem({"leaks", "--csv", "r.zst"});
  EXPECT_EQ(kLeaksOfRecording, ran.out);
  EXPECT_EQ("qkmem: copying the recording to a temporary file in temporary first\n", ran.err);
  EXPECT_EQ(0, rmdir("temporary"));
}

TEST(Input, ThatIsMissingIsToldByItsName) {
  const Scene scene;
  const kit::Ran ran = qkmem({"summary", "none.tdf"});
  EXPECT_EQ(2, ran.status);
  EXPECT_EQ("", ran.out);
  EXPECT_EQ("qkmem: none.tdf: No such file or directory\n", ran.err);
}

TEST(Input, ThatIsAFolderIsRefused) {
  const Scene scene;
  EXPECT_EQ("qkmem: /tmp: Is a directory\n", qkmem({"summary", "/tmp"}).err);
}

TEST(Input, ThatIsNoTraceIsRefusedWithThePlace) {
  const Scene scene;
  write_file("notes.txt", "Buy milk\nand bread\n");
  const kit::Ran ran = qkmem({"summary", "notes.txt"});
  EXPECT_EQ(2, ran.status);
  EXPECT_EQ(
      "qkmem: notes.txt: neither a recording nor a trace file: line 1, column 1 (Sequence): the row "
      "ends here\n",
      ran.err);
}

TEST(Input, WithoutEventsIsRefused) {
  const Scene scene;
  write_file("empty.tdf", kit::table_of({}));
  EXPECT_EQ("qkmem: there are no events in empty.tdf\n", qkmem({"summary", "empty.tdf"}).err);
}

TEST(Input, ThatBreaksOffInTheMiddleOfGzipDataIsRefused) {
  const Scene scene;
  write_small_table();
  const std::string compressed = gzipped(contents("t.tdf"));
  write_file("t.gz", compressed.substr(0, compressed.size() / 2));
  const kit::Ran ran = qkmem({"summary", "t.gz"});
  EXPECT_EQ(2, ran.status);
  EXPECT_EQ("qkmem: t.gz: the gzip data end too early\n", ran.err);
}

TEST(Input, ThatBreaksOffInTheMiddleOfZstdDataIsRefused) {
  const Scene scene;
  write_small_table();
  const std::string compressed = zstd_compressed(contents("t.tdf"));
  write_file("t.zst", compressed.substr(0, compressed.size() / 2));
  EXPECT_EQ("qkmem: t.zst: the zstd data end too early\n", qkmem({"summary", "t.zst"}).err);
}

TEST(Input, ThatCannotHaveWhatIsAskedForIsRefused) {
  const Scene scene;
  write_small_table();
  EXPECT_EQ("qkmem: a trace file has no tags; a recording has\n",
            qkmem({"top", "--by", "tag", "t.tdf"}).err);
  EXPECT_EQ("qkmem: a trace file has no threads; a recording has\n",
            qkmem({"top", "--thread", "1", "t.tdf"}).err);
  EXPECT_EQ("qkmem: a trace file has no times; a recording has\n",
            qkmem({"top", "--from", "2s", "t.tdf"}).err);
}

TEST(Options, ThatAreNotUnderstoodAreToldWithWhatCanBe) {
  const Scene scene;
  write_small_table();
  EXPECT_EQ("qkmem: --by: 'nothing' is not site, file, function, handle, tag, thread or stack\n",
            qkmem({"top", "--by", "nothing", "t.tdf"}).err);
  EXPECT_EQ("qkmem: --sort: 'age' is not bytes, blocks, made, peak or short\n",
            qkmem({"top", "--sort", "age", "t.tdf"}).err);
  EXPECT_EQ("qkmem: --at: '3h' is no event's number and no time, such as 2.5s\n",
            qkmem({"top", "--at", "3h", "t.tdf"}).err);
  EXPECT_EQ("qkmem: history: 'main' is no address and no file:line\n",
            qkmem({"history", "main", "t.tdf"}).err);
  EXPECT_EQ(2, qkmem({"top", "--unknown", "t.tdf"}).status);
}

}  // namespace
