// Which of the library's files a program that is started by exec inherits.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

#include "qkmem/qkmem.h"
#include "tests/kit/scene.h"

namespace {

/** The files of the descriptors of a program that this one starts. */
std::string descriptors_of_a_started_program() {
  std::string text;
  FILE* listing = popen("ls -l /proc/self/fd", "r");
  for (int c = std::fgetc(listing); c != EOF; c = std::fgetc(listing)) {
    text += static_cast<char>(c);
  }
  pclose(listing);
  return text;
}

TEST(StartedProgram, InheritsNeitherLogNorTraceFile) {
  const kit::Scene scene({"DEBUG LOG=here.log", "DB=here.tdf", ""});
  const kit::Pool pool;
  qk_mem_imalloc(pool, 10, 16, "app.c", 1);
  FILE* own = std::fopen("inherited.txt", "w");
  const std::string inherited = descriptors_of_a_started_program();
  EXPECT_NE(inherited.find("inherited.txt"), std::string::npos) << inherited;
  EXPECT_EQ(inherited.find("here.log"), std::string::npos) << inherited;
  EXPECT_EQ(inherited.find("here.tdf"), std::string::npos) << inherited;
  std::fclose(own);
}

}  // namespace
