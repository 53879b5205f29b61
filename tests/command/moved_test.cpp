#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/command/command.h"
#include "tests/kit/scene.h"

namespace {

using kit::output_of;
using kit::Scene;

/**
 * Two blocks of one size, and a realloc that has moved one of them: it names only the new address.
 * Rows that follow can show which one.
 */
std::string leaks_after(const std::vector<std::string>& rows) {
  std::vector<std::string> all = {"1 3 N 0 0 0 0 main.c 1", "2 3 M 1000 1 100 100 old.c 1",
                                  "3 3 M 2000 1 100 200 new.c 2",
                                  "4 3 R 3000 1 150 250 grow.c 3 0 0 0 50"};
  all.insert(all.end(), rows.begin(), rows.end());
  kit::write_file("t.tdf", kit::table_of(all));
  EXPECT_EQ(0, kit::qkmem({"check", "--fail", "t.tdf"}).status);
  const std::string csv = output_of({"top", "--sort", "made", "--csv", "t.tdf"});
  return csv.substr(csv.find('\n') + 1);
}

TEST(MovedRealloc, IsTakenToHaveMovedTheNewestBlockOfTheSize) {
  const Scene scene;
  EXPECT_EQ(
      "150,1,150,1,150,3,grow.c:3\n"
      "100,1,100,1,100,3,old.c:1\n"
      "0,0,0,1,100,3,new.c:2\n",
      leaks_after({}));
}

TEST(MovedRealloc, HasNotMovedABlockThatIsReleasedLater) {
  const Scene scene;
  EXPECT_EQ(
      "150,1,150,1,150,3,grow.c:3\n"
      "0,0,100,1,100,3,old.c:1\n"
      "0,0,0,1,100,3,new.c:2\n",
      leaks_after({"5 3 F 2000 1 100 150 new.c 9"}));
}

TEST(MovedRealloc, HasMovedABlockWhoseAddressIsAllocatedAnew) {
  const Scene scene;
  EXPECT_EQ(
      "150,1,150,1,150,3,grow.c:3\n"
      "0,0,0,1,100,3,old.c:1\n"
      "100,1,100,1,100,3,new.c:2\n"
      "7,1,7,1,7,3,again.c:4\n",
      leaks_after({"5 3 M 1000 1 7 257 again.c 4"}));
}

TEST(MovedRealloc, ThatFindsNoBlockOfTheSizeIsTold) {
  const Scene scene;
  kit::write_file(
      "t.tdf", kit::table_of({"1 3 N 0 0 0 0 main.c 1", "2 3 R 3000 1 150 150 grow.c 3 0 0 0 50"}));
  EXPECT_NE(std::string::npos,
            output_of({"check", "t.tdf"}).find("reallocs of a block that is not in the table"));
}

}  // namespace
