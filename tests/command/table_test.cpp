#include <gtest/gtest.h>

#include <string>

#include "tests/command/command.h"
#include "tests/kit/scene.h"

namespace {

using kit::output_of;
using kit::Scene;

TEST(Table, OfDeletedHandlesReleasesTheirBlocksAndNoOthers) {
  const Scene scene;
  kit::write_file("t.tdf", kit::table_of({"1 3 N 0 0 0 0 main.c 1",      //
                                          "2 4 N 0 0 0 0 main.c 2",      //
                                          "3 5 N 0 0 0 0 main.c 3",      //
                                          "4 3 M 1000 1 10 10 a.c 1",    //
                                          "5 3 D 0 0 0 0 main.c 4",      //
                                          "6 4 M 2000 1 20 20 b.c 1",    //
                                          "7 4 M 3000 1 30 50 b.c 2",    //
                                          "8 4 F 2000 1 20 30 b.c 3",    //
                                          "9 5 M 2000 1 500 500 c.c 1",  // in place of what is gone
                                          "10 4 D 0 0 0 0 main.c 5",     //
                                          "11 5 M 3000 1 600 1100 c.c 2"}));
  EXPECT_EQ(0, kit::qkmem({"check", "--fail", "t.tdf"}).status);
  const std::string csv = output_of({"top", "--csv", "t.tdf"});
  EXPECT_EQ(
      "600,1,600,1,600,5,c.c:2\n"
      "500,1,500,1,500,5,c.c:1\n"
      "0,0,0,1,30,4,b.c:2\n"
      "0,0,0,1,20,4,b.c:1\n"
      "0,0,0,1,10,3,a.c:1\n",
      csv.substr(csv.find('\n') + 1));
}

TEST(Table, OfHandlesWithTheSameNumberKeepsThemApart) {
  const Scene scene;
  kit::write_file("t.tdf", kit::table_of({"1 3 N 0 0 0 0 main.c 1", "2 3 M 1000 1 10 10 a.c 1",
                                          "3 3 D 0 0 0 0 main.c 2", "4 3 N 0 0 0 0 main.c 3",
                                          "5 3 M 2000 1 20 20 a.c 1"}));
  EXPECT_EQ(0, kit::qkmem({"check", "--fail", "t.tdf"}).status);
  EXPECT_NE(std::string::npos, output_of({"leaks", "t.tdf"}).find("20 B in 1 block was never"));
}

TEST(Table, OfHandlesOfAnyNumberIsRead) {
  const Scene scene;
  for (const char* const number : {"0", "-1", "64", "2147483647", "-2147483648"}) {
    kit::write_file("t.tdf", kit::table_of({"1 " + std::string(number) + " M 1000 1 9 9 a.c 1",
                                            "2 7 M 2000 1 8 8 a.c 1"}));
    const std::string leaks = output_of({"leaks", "t.tdf"});
    EXPECT_NE(std::string::npos, leaks.find("17 B in 2 blocks were never released")) << number;
  }
}

}  // namespace
