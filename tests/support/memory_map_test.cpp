#include "support/memory_map.h"

#include <gtest/gtest.h>
#include <sys/mman.h>

#include <cstdint>

namespace {

TEST(Mapping, IsReadFromALine) {
  const qk::Mapping file = qk::parse_mapping(
      "7f485c511000-7f485c513000 rw-p 001d3000 fe:00 332835                     /usr/lib/a b.so");
  EXPECT_EQ(0x7f485c511000U, file.range.begin);
  EXPECT_EQ(0x7f485c513000U, file.range.end);
  EXPECT_TRUE(file.is_readable && file.is_writable && !file.is_shared && file.is_of_file());
  EXPECT_EQ("/usr/lib/a b.so", file.path);
  const qk::Mapping guard = qk::parse_mapping("1000-2000 ---p 00000000 00:00 0 ");
  EXPECT_FALSE(guard.is_accessible());
  EXPECT_EQ("", guard.path);
  const qk::Mapping shared =
      qk::parse_mapping("1000-2000 r--s 00000000 00:01 7      /memfd:name (deleted)");
  EXPECT_TRUE(shared.is_shared && shared.is_accessible() && !shared.is_writable);
  EXPECT_EQ("/memfd:name (deleted)", shared.path);
}

TEST(Mapping, IsEmptyIfTheLineIsNone) {
  for (const char* const line : {"", "1000", "1000-2000", "1000 rw-p 0 0 0", "1000-2000 rw"}) {
    const qk::Mapping mapping = qk::parse_mapping(line);
    EXPECT_FALSE(mapping.is_accessible()) << line;
    EXPECT_EQ(mapping.range.begin, mapping.range.end) << line;
  }
}

TEST(MemoryMap, HasWhatIsMappedInTheOrderOfAddresses) {
  void* const pages = mmap(nullptr, 8192, PROT_READ, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  const auto address = reinterpret_cast<std::uintptr_t>(pages);
  const qk::MemoryMap map;
  ASSERT_TRUE(map.is_complete());
  int found = 0;
  std::uintptr_t end = 0;
  for (std::size_t i = 0; i < map.count(); ++i) {
    EXPECT_LE(end, map.at(i).range.begin);
    end = map.at(i).range.end;
    if (!map.at(i).range.has(address)) continue;
    ++found;
    EXPECT_TRUE(map.at(i).is_readable && map.at(i).is_shared && !map.at(i).is_writable);
  }
  EXPECT_EQ(1, found);
  munmap(pages, 8192);
}

}  // namespace
