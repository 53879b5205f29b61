#include <gtest/gtest.h>

#include <set>
#include <string>
#include <vector>

#include "accounting/tag_calls.h"
#include "core/registry.h"
#include "support/hash.h"
#include "tests/kit/scene.h"

namespace {

using kit::handle_of;
using kit::Pool;
using kit::Scene;
using kit::tag_of;

void* allocate(int hid, std::size_t size) { return qk_mem_imalloc(hid, size, 16, "src/app.c", 5); }

void release(int hid, void* memory) { qk_mem_ifree(hid, memory, "src/app.c", 6); }

/** Names that fill the table and differ in their second character only. */
std::string name_of(int index) { return {'A', static_cast<char>('0' + index)}; }

TEST(RegisterTag, CreatesEachTagOnce) {
  qk_mem_tag* first = qk_mem_register_tag("AB");
  ASSERT_NE(first, nullptr);
  EXPECT_EQ(qk_mem_register_tag("AB"), first);
  EXPECT_EQ(Qk_mem_num_tags, 1);
  EXPECT_STREQ(first->name, "AB");
  EXPECT_EQ(tag_of("AB"), "0 for 0");
}

TEST(RegisterTag, DistinguishesNamesByBothCharacters) {
  std::set<const qk_mem_tag*> tags;
  for (const char* name : {"A", "AB", "AC", "B", "BA", "ab"})
    tags.insert(qk_mem_register_tag(name));
  EXPECT_EQ(tags.size(), 6U);
  EXPECT_EQ(Qk_mem_num_tags, 6);
}

TEST(RegisterTag, FillsTheTableInOrder) {
  for (int i = 0; i < 32; ++i) {
    EXPECT_EQ(qk_mem_register_tag(name_of(i).c_str()), &Qk_mem_tags[i]);
    EXPECT_EQ(Qk_mem_num_tags, i + 1);
  }
  for (int i = 0; i < 32; ++i) {
    EXPECT_EQ(qk_mem_register_tag(name_of(i).c_str()), &Qk_mem_tags[i]) << "found again";
    EXPECT_EQ(Qk_mem_tags[i].name, name_of(i));
  }
}

/** Names of two characters, the first of them an A, that share a bucket. */
std::vector<std::string> names_in_bucket(int bucket) {
  std::vector<std::string> names;
  for (char c = '!'; c <= '~'; ++c) {
    const std::string name = {'A', c};
    if (qk_hash(name.c_str(), 32, 0) == bucket) names.push_back(name);
  }
  return names;
}

TEST(RegisterTag, ChainsTheNamesOfABucketInTheirOrder) {
  const int bucket = qk_hash("AA", 32, 0);
  const std::vector<std::string> names = names_in_bucket(bucket);
  ASSERT_GE(names.size(), 2U);
  for (const std::string& name : names) qk_mem_register_tag(name.c_str());
  std::vector<std::string> chain;
  for (const qk_mem_tag* tag = Qk_mem_tags_hash[bucket]; tag != nullptr; tag = tag->next) {
    chain.emplace_back(tag->name);
    EXPECT_EQ(qk_mem_register_tag(tag->name), tag);
  }
  EXPECT_EQ(chain, names);
}

TEST(RegisterTag, RefusesThe33rdTag) {
  for (int i = 0; i < 32; ++i) qk_mem_register_tag(name_of(i).c_str());
  EXPECT_EQ(qk_mem_register_tag("ZZ"), nullptr);
  EXPECT_EQ(qk_mem_error(), 11110);
  EXPECT_EQ(Qk_mem_num_tags, 32);
  EXPECT_FALSE(Qk_mem_mtx.held());
}

TEST(Tag, IsUpperCasedByHandleCreation) {
  Scene scene("");
  struct {
    const char* tag;
    const char* name;
  } const rows[] = {{"ab", "AB"},
                    {"z", "Z"},
                    {"aZ", "AZ"},
                    {"1x", "1X"},
                    {"\xe4-", "\xe4-"},
                    {"`{", "`{"},
                    {"\xe4\xf6", "\xe4\xf6"}};
  for (const auto& row : rows) {
    EXPECT_STREQ(Pool("", row.tag).record().tag->name, row.name);
  }
  EXPECT_EQ(Qk_mem_num_tags, 7);
}

TEST(Tag, IsSharedByAllHandlesOfItsName) {
  Scene scene("");
  Pool one("", "ab");
  Pool two("OVERHEAD", "AB");
  Pool other("", "A");
  EXPECT_EQ(one.record().tag, two.record().tag);
  EXPECT_NE(one.record().tag, other.record().tag);
  EXPECT_EQ(Qk_mem_num_tags, 2);
}

TEST(Tag, SumsTheDataOfItsHandles) {
  Scene scene("");
  Pool one("", "AB");
  Pool two("", "AB");
  Pool other("", "CD");
  EXPECT_EQ(tag_of("AB"), "0 for 0") << "bookkeeping isn't summed";
  void* memory = allocate(one, 100);
  EXPECT_EQ(tag_of("AB"), "1 for 100");
  allocate(two, 30);
  EXPECT_EQ(tag_of("AB"), "2 for 130");
  allocate(other, 7);
  EXPECT_EQ(tag_of("CD"), "1 for 7");
  release(one, memory);
  EXPECT_EQ(tag_of("AB"), "1 for 30");
}

TEST(Tag, OutlivesItsHandles) {
  Scene scene("");
  Pool pool("", "AB");
  const qk_mem_tag* tag = pool.record().tag;
  qk_mem_idel_handle(pool, "src/app.c", 7);
  EXPECT_EQ(Qk_mem_num_tags, 1);
  EXPECT_EQ(Pool("", "AB").record().tag, tag);
}

TEST(GlobalTag, SumsHandlesWithoutATag) {
  Scene scene("");
  Pool plain;
  Pool with_null("", nullptr);
  EXPECT_EQ(plain.record().tag, &Qk_mem_global_tag);
  EXPECT_EQ(with_null.record().tag, &Qk_mem_global_tag);
  EXPECT_EQ(handle_of(1).tag, &Qk_mem_global_tag);
  EXPECT_EQ(handle_of(2).tag, &Qk_mem_global_tag);
  allocate(plain, 100);
  allocate(with_null, 30);
  EXPECT_EQ(tag_of(""), "2 for 130");
  EXPECT_EQ(Qk_mem_num_tags, 0);
  EXPECT_STREQ(Qk_mem_global_tag.name, "");
  EXPECT_EQ(qk_mem_tag_size(""), 0) << "it has no name for a query";
}

TEST(TagSize, ReturnsTheBytesForANameInEitherCase) {
  Scene scene("");
  Pool pool("", "ab");
  Pool single("", "c");
  allocate(pool, 100);
  allocate(single, 7);
  EXPECT_EQ(qk_mem_tag_size("AB"), 100);
  EXPECT_EQ(qk_mem_tag_size("ab"), 100);
  EXPECT_EQ(qk_mem_tag_size("aB"), 100);
  EXPECT_EQ(qk_mem_tag_size("c"), 7);
}

TEST(TagSize, IsZeroForEveryOtherName) {
  Scene scene("EXCEPTIONS");
  Pool pool("", "AB");
  allocate(pool, 100);
  scene.skip_log();
  for (const char* name :
       {"", "A", "B", "AC", "ABC", "AB ", "NONE", static_cast<const char*>(nullptr)}) {
    EXPECT_EQ(qk_mem_tag_size(name), 0) << (name == nullptr ? "null" : name);
  }
  EXPECT_EQ(qk_mem_error(), 0);
  EXPECT_EQ(scene.log(), "");
}

TEST(TagSize, ReturnsMoreThan32Bits) {
  Scene scene("");
  Pool pool("", "AB");
  pool.record().tag->amount = 5000000000;
  EXPECT_EQ(qk_mem_tag_size("AB"), 5000000000);
}

TEST(TagSize, DoesNotStartTheLibrary) {
  Scene scene("");
  EXPECT_EQ(qk_mem_tag_size("AB"), 0);
  EXPECT_EQ(Qk_mem_initialized, 0);
}

TEST(TagSize, ExcludesTheBytesOfADeletedHandle) {
  Scene scene("");
  Pool one("", "AB");
  Pool two("", "AB");
  allocate(one, 100);
  allocate(two, 30);
  qk_mem_idel_handle(one, "src/app.c", 7);
  EXPECT_EQ(qk_mem_tag_size("AB"), 30);
}

}  // namespace
