#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "qkmem/qkmem.hpp"
#include "tests/kit/line_above.h"
#include "tests/kit/scene.h"

namespace {

using kit::line_above;
using kit::Scene;

struct Tile {
  int x;
  int y;
};

/** A handle, and an array of tiles that doesn't exist yet. Warnings are logged. */
class GrowableArray : public ::testing::Test {
 protected:
  GrowableArray() { scene_.skip_log(); }

  Scene scene_{"EXCEPTIONS"};
  qk::Handle pool_;
  Tile* tiles_ = nullptr;
};

TEST_F(GrowableArray, GrowsThroughATypedPointer) {
  for (int i = 0; i < 100; ++i) {
    const std::int64_t index = qk_mem_marralloc(pool_.number(), &tiles_, sizeof *tiles_, 8);
    ASSERT_EQ(index, i);
    EXPECT_EQ(tiles_[index].y, 0);
    tiles_[index] = {i, i * i};
  }
  for (int i = 0; i < 100; ++i) EXPECT_EQ(tiles_[i].y, i * i);
  EXPECT_EQ(pool_.size(), 16 + 104 * sizeof(Tile));
  qk_mem_arrfree(pool_.number(), &tiles_);
  EXPECT_EQ(tiles_, nullptr);
  EXPECT_EQ(pool_.size(), 0U);
  EXPECT_EQ(scene_.log(), "");
}

TEST_F(GrowableArray, GrowsInBlocksThroughATypedPointer) {
  const qk::Handle arena("BLOCKMGMT BLOCKFREE");
  scene_.skip_log();
  for (int i = 0; i < 100; ++i) {
    ASSERT_EQ(qk_mem_marralloc(arena.number(), &tiles_, sizeof *tiles_, 8), i);
    tiles_[i].x = i;
  }
  for (int i = 0; i < 100; ++i) EXPECT_EQ(tiles_[i].x, i);
  qk_mem_arrfree(arena.number(), &tiles_);
  EXPECT_EQ(scene_.log(), "");
}

TEST_F(GrowableArray, StaysWhenItCannotGrow) {
  ASSERT_EQ(qk_mem_marralloc(pool_.number(), &tiles_, sizeof *tiles_, 1), 0);
  Tile* const before = tiles_;
  tiles_->x = 42;
  EXPECT_EQ(qk_mem_marralloc(99, &tiles_, sizeof *tiles_, 1), -2);
  EXPECT_EQ(qk_mem_error(), 5566);
  EXPECT_EQ(tiles_, before);
  EXPECT_EQ(tiles_->x, 42);
}

TEST_F(GrowableArray, WarnsOfANullAddressAtTheCaller) {
  Tile** const none = nullptr;
  EXPECT_EQ(qk_mem_marralloc(pool_.number(), none, sizeof(Tile), 1), -1);
  EXPECT_EQ(scene_.log(),
            "   qk_mem_imarralloc: WARNING: marralloc of NULL address at " + line_above() + "\n");
  scene_.skip_log();
  EXPECT_EQ(qk_mem_error(), 5014);
  qk_mem_arrfree(pool_.number(), none);
  EXPECT_NE(scene_.log().find("WARNING"), std::string::npos);
}

}  // namespace
