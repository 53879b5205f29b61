#include "formats/pprof.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "support/page_arena.h"
#include "support/page_buffer.h"
#include "tests/kit/failing_allocator.h"

namespace {

using namespace std::string_view_literals;

using qk::mem::PprofFacts;
using qk::mem::PprofFunction;
using qk::mem::PprofLabel;
using qk::mem::PprofLine;
using qk::mem::PprofLocation;
using qk::mem::PprofMapping;
using qk::mem::PprofText;
using qk::mem::PprofWriter;

/** What every profile begins with. */
constexpr std::string_view kStart =
    "\x32\0"  // text 0
    "\x32\x0D"
    "alloc_objects"  // text 1
    "\x32\x05"
    "count"               // 2
    "\x0A\4\x08\1\x10\2"  // type of a sample: texts 1 and 2
    "\x32\x0B"
    "alloc_space"  // 3
    "\x32\x05"
    "bytes"               // 4
    "\x0A\4\x08\3\x10\4"  //
    "\x32\x0D"
    "inuse_objects"       // 5
    "\x0A\4\x08\5\x10\2"  //
    "\x32\x0B"
    "inuse_space"         // 6
    "\x0A\4\x08\6\x10\4"  //
    "\x32\x05"
    "space"                  // 7
    "\x5A\4\x08\7\x10\4"sv;  // type of the period

/** Begins a profile, and shows what is written after the start that all profiles have. */
class Profile {
 public:
  explicit Profile(const PprofFacts& facts = {.period = 0}) {
    writer_.emplace(facts, out_, arena_);
  }
  Profile(const Profile&) = delete;
  Profile& operator=(const Profile&) = delete;
  ~Profile() { out_.clear(); }

  PprofWriter* operator->() { return &*writer_; }

  std::string rest() {
    EXPECT_TRUE(writer_->finish());
    EXPECT_EQ(out_.text().substr(0, kStart.size()), kStart);
    return std::string(out_.text().substr(kStart.size()));
  }

  [[nodiscard]] std::size_t length() const { return out_.text().size(); }
  qk::PageArena& arena() { return arena_; }

 private:
  qk::PageArena arena_;
  qk::PageBuffer out_;
  std::optional<PprofWriter> writer_;
};

TEST(Pprof, WritesAllOfAProfile) {
  Profile profile({.time_nanos = 1700000000000000000, .duration_nanos = 12400000000, .period = 1});
  const PprofMapping app = profile->add_mapping({.start = 0x400000,
                                                 .limit = 0x500000,
                                                 .offset = 0x1000,
                                                 .file = "/bin/app",
                                                 .build_id = "c0ffee",
                                                 .has_functions = true,
                                                 .has_file_names = true,
                                                 .has_line_numbers = true,
                                                 .has_inline_frames = true});
  const PprofLine lines[] = {{profile->function("load", "app.c"), 12},
                             {profile->function("main", "app.c"), 300}};
  const PprofLocation stack[] = {profile->add_location(0x401234, app, lines),
                                 profile->location_of({profile->function("tag DT", ""), 0})};
  const PprofText tag = profile->text("tag");
  const PprofLabel labels[] = {
      {.key = tag, .text = profile->text("DT")},
      {.key = profile->text("size"), .number = 64, .unit = profile->text("bytes")}};
  profile->add_sample(stack, {10, 640, 2, 128}, labels);
  EXPECT_EQ(profile.rest(),
            "\x48\x80\x80\xA8\xB1\xE3\x9F\xE7\xCB\x17"  // time
            "\x50\x80\xF8\xE3\x98\x2E"                  // duration
            "\x60\1"                                    // period
            "\x70\6"                                    // the type that is shown first: text 6
            "\x32\x08"
            "/bin/app"  // 8
            "\x32\x06"
            "c0ffee"  // 9
            // Mapping 1 of file 8 with build-id 9, and its four flags.
            "\x1A\x1B\x08\1\x10\x80\x80\x80\2\x18\x80\x80\xC0\2\x20\x80\x20\x28\x08\x30\x09"
            "\x38\1\x40\1\x48\1\x50\1"
            "\x32\x04"
            "load"  // 10
            "\x32\x05"
            "app.c"  // 11
            // Function 1 of name 10, of system name 10, in file 11.
            "\x2A\x08\x08\1\x10\x0A\x18\x0A\x20\x0B"
            "\x32\x04"
            "main"  // 12
            "\x2A\x08\x08\2\x10\x0C\x18\x0C\x20\x0B"
            // Location 1 in mapping 1: lines 12 of function 1 and 300 of function 2.
            "\x22\x16\x08\1\x10\1\x18\xB4\xA4\x80\2\x22\4\x08\1\x10\x0C\x22\5\x08\2\x10\xAC\2"
            "\x32\x06"
            "tag DT"  // 13
            "\x2A\x06\x08\3\x10\x0D\x18\x0D"
            // Location 2 without an address: function 3.
            "\x22\6\x08\2\x22\2\x08\3"
            "\x32\x03"
            "tag"  // 14
            "\x32\x02"
            "DT"  // 15
            "\x32\x04"
            "size"  // 16
            // Sample at locations 1 and 2, of four values, with labels 14 and 16.
            "\x12\x1A\x0A\2\1\2\x12\6\x0A\x80\5\2\x80\1\x1A\4\x08\x0E\x10\x0F"
            "\x1A\6\x08\x10\x18\x40\x20\4"sv);
}

TEST(Pprof, LeavesOutWhatIsZero) {
  Profile profile;
  const auto nothing = profile.length();
  EXPECT_EQ(profile->text(""), PprofText{});
  EXPECT_EQ(profile.length(), nothing);
  (void)profile->add_mapping({});
  (void)profile->add_location(0, {}, {});
  const PprofLabel empty = {.key = profile->text("tag"), .text = profile->text("")};
  profile->add_sample({}, {}, {&empty, 1});
  EXPECT_EQ(profile.rest(),
            "\x70\6"
            "\x1A\2\x08\1"            // mapping
            "\x22\2\x08\1"            // location
            "\x32\3tag"               // a label's key, and no label
            "\x12\6\x12\4\0\0\0\0"sv  // a sample has all of its values
  );
}

TEST(Pprof, WritesNumbersOfAllLengths) {
  Profile profile;
  profile->add_sample({}, {127, 128, 16383, 16384}, {});
  profile->add_sample({}, {-1, INT64_MAX, INT64_MIN, 0}, {});
  EXPECT_EQ(profile.rest(),
            "\x70\6"
            "\x12\x0A\x12\x08\x7F\x80\1\xFF\x7F\x80\x80\1"
            "\x12\x20\x12\x1E\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF\1"
            "\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF\x7F"
            "\x80\x80\x80\x80\x80\x80\x80\x80\x80\1\0"sv);
}

TEST(Pprof, GivesEqualThingsTheSameNumber) {
  Profile profile;
  const PprofFunction load = profile->function("load", "app.c");
  const PprofFunction other = profile->function("load", "other.c");
  const PprofLocation there = profile->add_location(0x1234, {}, {});
  const PprofLocation line = profile->location_of({load, 7});
  const PprofText text = profile->text("app.c");
  const auto length = profile.length();
  EXPECT_EQ(profile->function("load", "app.c"), load);
  EXPECT_EQ(profile->function("load", "other.c"), other);
  EXPECT_EQ(profile->find_location(0x1234), there);
  EXPECT_EQ(profile->location_of({load, 7}), line);
  EXPECT_EQ(profile->text("app.c"), text);
  EXPECT_EQ(profile.length(), length);
  EXPECT_NE(load, other);
  EXPECT_NE(profile->location_of({load, 8}), line);
  EXPECT_NE(profile->location_of({other, 7}), line);
}

TEST(Pprof, TellsThingsApartThatShareAHash) {
  Profile profile;
  const PprofFunction first = profile->function("first", "");
  const PprofFunction second = profile->function("second", "");
  constexpr std::int64_t kFactor = 0x61C8864680B583EB;  // minus the factor of the first word
  EXPECT_NE(profile->location_of({first, 7}), profile->location_of({second, 7 + kFactor}));
}

TEST(Pprof, FindsNoLocationThatWasNotAdded) {
  Profile profile;
  EXPECT_EQ(profile->find_location(0x1234), PprofLocation{});
  (void)profile->add_location(0x1234, {}, {});
  (void)profile->add_location(0, {}, {});
  EXPECT_EQ(profile->find_location(0x1235), PprofLocation{});
  EXPECT_EQ(profile->find_location(0), PprofLocation{});
}

TEST(Pprof, KeepsAllNumbersAsItsTablesGrow) {
  constexpr std::uint64_t kMany = 20000;
  Profile profile;
  const auto name = [](std::uint64_t i) { return "function_" + std::to_string(i); };
  for (std::uint64_t i = 1; i <= kMany; ++i) {
    ASSERT_EQ(profile->function(name(i), "app.c"), PprofFunction{i});
    ASSERT_EQ(profile->add_location(16 * i, {}, {}), PprofLocation{i});
  }
  const auto length = profile.length();
  for (std::uint64_t i = 1; i <= kMany; ++i) {
    ASSERT_EQ(profile->function(name(i), "app.c"), PprofFunction{i});
    ASSERT_EQ(profile->find_location(16 * i), PprofLocation{i});
  }
  EXPECT_EQ(profile.length(), length);
}

TEST(Pprof, KeepsUtf8AndReplacesOtherBytes) {
  Profile profile;
  (void)profile->text("gr\xC3\xBCn");
  const PprofText replaced = profile->text("gr\xFCn\xFF");
  EXPECT_EQ(profile->text("gr\xFCn\xFF"), replaced);
  EXPECT_EQ(profile.rest(),
            "\x70\6"
            "\x32\5gr\xC3\xBCn"
            "\x32\x09gr\xEF\xBF\xBDn\xEF\xBF\xBD"sv);
}

TEST(Pprof, SaysIfThereIsNoMemoryForItsTables) {
  Profile profile;
  profile.arena().set_limit(profile.arena().mapped());
  EXPECT_TRUE(profile->finish());
  for (std::uint64_t i = 1; i <= 20000; ++i) (void)profile->add_location(i, {}, {});
  EXPECT_FALSE(profile->finish());
  profile.arena().set_limit(UINT64_MAX);
  (void)profile->add_location(1, {}, {});
  EXPECT_FALSE(profile->finish());
}

TEST(Pprof, GivesItsTablesBackToTheArena) {
  qk::PageArena arena;
  std::uint64_t mapped = 0;
  for (int i = 0; i < 100; ++i) {
    qk::PageBuffer out;
    PprofWriter profile({}, out, arena);
    (void)profile.text(std::string(100000, '\xFF'));
    for (std::uint64_t address = 1; address <= 5000; ++address) {
      (void)profile.add_location(address, {}, {});
    }
    EXPECT_TRUE(profile.finish());
    if (i == 0) mapped = arena.mapped();
    out.clear();
  }
  EXPECT_EQ(arena.mapped(), mapped);
}

TEST(Pprof, NeedsNoHeap) {
  kit::fail_all_requests();
  {
    Profile profile;
    (void)profile->text("gr\xFCn");
    for (std::uint64_t i = 1; i <= 1000; ++i) (void)profile->add_location(i, {}, {});
    EXPECT_TRUE(profile->finish());
  }
  EXPECT_FALSE(kit::has_failed());
  kit::let_succeed();
}

}  // namespace
