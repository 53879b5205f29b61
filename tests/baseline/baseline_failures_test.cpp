#include <gtest/gtest.h>

#include <string>

#include "core/registry.h"
#include "tests/kit/heap.h"
#include "tests/kit/report.h"
#include "tests/kit/scene.h"

namespace {

using kit::contents;
using kit::hold;
using kit::Scene;
using kit::set_heap;
using kit::Stage;

constexpr char kLogged[] = "DEBUG=qk_mem_baseline LOG=baseline.log FLUSH";

void configure(const char* debug) {
  qk::Status status;
  ASSERT_EQ(qk_mem_debug_config(debug, &status), 0);
}

/** A handle with a pointer and a tag, without a baseline. */
class WithoutBaseline {
 public:
  WithoutBaseline()
      : handle_(stage_.handle(1, 'D', "AB")), record_(hold(handle_, 0x1000, 'M', 1, 100)) {
    set_heap(4096);
  }

  [[nodiscard]] bool changed() const {
    return handle_.baselined != 0 || handle_.base_qty != 0 || handle_.base_amount != 0 ||
           handle_.base_overhead_qty != 0 || handle_.base_overhead_amount != 0 ||
           record_.baselined != 0 || handle_.tag->base_qty != 0 || handle_.tag->base_amount != 0 ||
           Qk_mem_base_heap != 0;
  }

 private:
  Stage stage_;
  qk_mem_handle& handle_;
  qk_mem_ptr& record_;
};

TEST(RefusedBaseline, ReturnsMinusOneWithoutConfiguration) {
  const Scene scene;
  EXPECT_EQ(qk_mem_baseline(""), -1);
  EXPECT_EQ(kit::handle_of(QK_MEM_DATA_HANDLE).baselined, 0);
  EXPECT_EQ(Qk_mem_base_heap, 0);
  EXPECT_EQ(qk_mem_error(), 0);
}

TEST(RefusedBaseline, ReturnsMinusOneAfterOffAndChangesNothing) {
  const WithoutBaseline unmarked;
  configure(kLogged);
  configure("OFF");
  EXPECT_EQ(qk_mem_baseline(""), -1);
  EXPECT_FALSE(unmarked.changed());
  EXPECT_EQ(contents("baseline.log"), "");
}

TEST(RefusedBaseline, DoesNotReadTheFilterWithoutConfiguration) {
  const Scene scene;
  EXPECT_EQ(qk_mem_baseline("NONSENSE"), -1);
  EXPECT_EQ(qk_mem_error(), 0);
}

TEST(RefusedBaseline, ReturnsZeroForABadFilterAndChangesNothing) {
  const struct {
    std::string filter;
    int code;
  } cases[] = {
      {"NONSENSE=1", 11102},
      {"HANDLE", 11102},
      {"TAG=AB NONSENSE", 11102},
      {"AND=1", 11102},
      {"TYPE='DATA", 11102},
      {"TAG=ABC", 11103},
      {"HANDLE=1 TAG=ABC", 11103},
      {std::string(257, ' '), 11102},
      {"HANDLE=1" + std::string(249, ' '), 11102},
  };
  const WithoutBaseline unmarked;
  configure(kLogged);
  for (const auto& one : cases) {
    Qk_mem_error.set(0);
    EXPECT_EQ(qk_mem_baseline(one.filter.c_str()), 0) << one.filter;
    EXPECT_EQ(qk_mem_error(), one.code) << one.filter;
    EXPECT_FALSE(unmarked.changed()) << one.filter;
  }
  EXPECT_EQ(contents("baseline.log"), "");
}

TEST(Baseline, AcceptsAFilterOf256Characters) {
  const WithoutBaseline unmarked;
  EXPECT_EQ(qk_mem_baseline(("HANDLE=1" + std::string(248, ' ')).c_str()), 0);
  EXPECT_EQ(qk_mem_error(), 0);
  EXPECT_TRUE(unmarked.changed());
}

TEST(Baseline, StartsTheLibraryAndCoversItsStandingHandles) {
  const Scene scene("TRACE");
  EXPECT_EQ(Qk_mem_initialized, 0);
  EXPECT_EQ(qk_mem_baseline(""), 0);
  EXPECT_EQ(Qk_mem_initialized, 1);
  EXPECT_EQ(kit::handle_of(QK_MEM_OVERHEAD_HANDLE).baselined, 1);
  EXPECT_EQ(kit::handle_of(QK_MEM_DATA_HANDLE).baselined, 1);
}

TEST(Baseline, StartsTheLibraryEvenIfItIsRefused) {
  const Scene scene;
  EXPECT_EQ(qk_mem_baseline(""), -1);
  EXPECT_EQ(Qk_mem_initialized, 1);
}

}  // namespace
