#include <gtest/gtest.h>

#include <string>

#include "core/registry.h"
#include "core/switches.h"
#include "tests/kit/scene.h"
#include "tests/kit/status.h"

namespace {

using kit::Scene;

std::string configure(const char* options) {
  qk::Status status = kit::used_status();
  const int result = qk_mem_dump_config(options, &status);
  EXPECT_EQ(result, status.code);
  return kit::text_of(status);
}

constexpr char kSuccess[] = "0 details 0 0 numbers 0 0 subject [] arguments [] []";

TEST(DumpConfig, StartsWithSummaryHandlesBlocksAndPointers) {
  const Scene scene;
  EXPECT_EQ(Qk_mem_dump_opts, 53U);
  EXPECT_EQ(Qk_mem_dump_opts, static_cast<unsigned>(QK_MEM_DUMP_SUMMARY | QK_MEM_DUMP_HANDLES |
                                                    QK_MEM_DUMP_BLOCKS | QK_MEM_DUMP_POINTERS));
}

TEST(DumpConfig, SelectsExactlyTheSectionsOfTheList) {
  const Scene scene;
  const struct {
    const char* options;
    unsigned sections;
  } cases[] = {
      {"OPTIONS=SUMMARY", 1},
      {"OPTIONS=HEAPSIZE", 2},
      {"OPTIONS=HANDLES", 4},
      {"OPTIONS=MGMT", 8},
      {"OPTIONS=BLOCKS", 16},
      {"OPTIONS=POINTERS", 32},
      {"OPTIONS=COMPARISON", 64},
      {"OPTIONS=GROWTH", 128},
      {"OPTIONS=TERSE", 256},
      {"OPTIONS=SUMMARY,GROWTH", 129},
      {"OPTIONS='GROWTH SUMMARY'", 129},
      {"options=terse,Growth,TERSE", 384},
      {"OPTIONS=SUMMARY,HEAPSIZE,HANDLES,MGMT,BLOCKS,POINTERS,COMPARISON,GROWTH,TERSE", 511},
      {"OPTIONS=MGMT OPTIONS=TERSE", 256},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(configure(c.options), kSuccess) << c.options;
    EXPECT_EQ(Qk_mem_dump_opts, c.sections) << c.options;
  }
}

TEST(DumpConfig, AcceptsShortFormsOfHeapsizeAndHandles) {
  const Scene scene;
  for (const char* options : {"OPTIONS=HEAP", "OPTIONS=heaps", "OPTIONS=HEAPSIZ"}) {
    EXPECT_EQ(configure(options), kSuccess) << options;
    EXPECT_EQ(Qk_mem_dump_opts, 2U) << options;
  }
  EXPECT_EQ(configure("OPTIONS=HANDLE"), kSuccess);
  EXPECT_EQ(Qk_mem_dump_opts, 4U);
}

TEST(DumpConfig, KeepsTheSectionsWithoutOptions) {
  const Scene scene;
  for (const char* options : {"", "  ", ","}) {
    EXPECT_EQ(configure(options), kSuccess);
    EXPECT_EQ(Qk_mem_dump_opts, 53U);
  }
  configure("OPTIONS=TERSE");
  EXPECT_EQ(configure(""), kSuccess);
  EXPECT_EQ(Qk_mem_dump_opts, 256U);
}

TEST(DumpConfig, NamesAnInvalidWordAndKeepsTheSections) {
  const Scene scene;
  const struct {
    const char* options;
    const char* code;
    const char* word;
  } cases[] = {
      {"SUMMARY", "10041", "SUMMARY"},
      {"OPTION=SUMMARY", "10041", "OPTION"},
      {"OPTIONS", "10043", "OPTIONS"},
      {"OPTIONS= SUMMARY", "10043", "OPTIONS"},
      {"OPTIONS=SUMMARY GROWTH", "10041", "GROWTH"},
      {"OPTIONS='SUMMARY", "10044", "OPTIONS"},
      {"OPTIONS=SUMMARY,ALL", "10041", "ALL"},
      {"OPTIONS=SUMMAR", "10041", "SUMMAR"},
      {"OPTIONS=HEA", "10041", "HEA"},
      {"OPTIONS=HANDL", "10041", "HANDL"},
      {"OPTIONS=MGM", "10041", "MGM"},
      {"OPTIONS=BLOCK", "10041", "BLOCK"},
      {"OPTIONS=POINTER", "10041", "POINTER"},
      {"OPTIONS=COMPARISO", "10041", "COMPARISO"},
      {"OPTIONS=GROWT", "10041", "GROWT"},
      {"OPTIONS=TERS", "10041", "TERS"},
      {"OPTIONS=SUMMARY=1", "10042", "SUMMARY"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(configure(c.options), std::string(c.code) +
                                        " details 0 0 numbers 0 0 subject [] arguments [" + c.word +
                                        "] [] at qkmem.cpp(qk_mem_dump_config):# on this host")
        << c.options;
    EXPECT_EQ(Qk_mem_dump_opts, 53U) << c.options;
  }
}

TEST(DumpConfig, AcceptsAStringOf256Characters) {
  const Scene scene;
  EXPECT_EQ(configure(("OPTIONS=TERSE" + std::string(243, ' ')).c_str()), kSuccess);
  EXPECT_EQ(Qk_mem_dump_opts, 256U);
}

TEST(DumpConfig, RefusesAStringOf257Characters) {
  const Scene scene;
  EXPECT_EQ(configure(("OPTIONS=TERSE" + std::string(244, ' ')).c_str()),
            "10037 details 0 0 numbers 257 256 subject [] arguments [passed_option_list] [] "
            "at qkmem.cpp(qk_mem_dump_config):# on this host");
  EXPECT_EQ(Qk_mem_dump_opts, 53U);
}

TEST(DumpConfig, RefusesNullOptions) {
  const Scene scene;
  EXPECT_EQ(configure(nullptr),
            "10036 details 0 0 numbers 0 0 subject [] "
            "arguments [passed_option_list] [qk_mem_dump_config] "
            "at qkmem.cpp(qk_mem_dump_config):# on this host");
  EXPECT_EQ(Qk_mem_dump_opts, 53U);
}

TEST(DumpConfig, DoesNothingWithoutAStatus) {
  const Scene scene;
  EXPECT_EQ(qk_mem_dump_config("OPTIONS=TERSE", nullptr), 10047);
  EXPECT_EQ(qk_mem_dump_config(nullptr, nullptr), 10047);
  EXPECT_EQ(Qk_mem_dump_opts, 53U);
}

TEST(DumpConfig, DoesNotStartTheLibrary) {
  const Scene scene;
  configure("OPTIONS=TERSE");
  EXPECT_EQ(Qk_mem_initialized, 0);
  qk_mem_init();
  EXPECT_EQ(Qk_mem_dump_opts, 256U);
}

TEST(DumpConfig, DecidesWhatAReportWithoutSectionsShows) {
  const Scene scene("TRACE");
  qk_mem_init();
  configure("OPTIONS=BLOCKS");
  EXPECT_EQ(kit::dump("", 0), kit::dump("", QK_MEM_DUMP_BLOCKS));
}

}  // namespace
