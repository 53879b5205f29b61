#include "qkmem/version.h"

#include <gtest/gtest.h>

#include <string>

#include "core/registry.h"
#include "qkmem/qkmem.h"

namespace {

TEST(Version, OfTheLibraryIsThatOfItsHeaders) { EXPECT_STREQ(qk_mem_version(), QK_MEM_VERSION); }

TEST(Version, IsWrittenAsThreeNumbers) {
  EXPECT_EQ(QK_MEM_VERSION, std::to_string(QK_MEM_VERSION_MAJOR) + "." +
                                std::to_string(QK_MEM_VERSION_MINOR) + "." +
                                std::to_string(QK_MEM_VERSION_PATCH));
}

TEST(Version, IsToldWithoutAStartUp) {
  qk_mem_version();
  EXPECT_EQ(Qk_mem_initialized, 0);
  qk_mem_init();
  EXPECT_EQ(Qk_mem_initialized, 1);
}

}  // namespace
