// Many threads do everything at once. Nothing breaks, and in the end every figure is exact.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "core/tag_shares.h"
#include "diag/trace_file.h"
#include "profile/misuses.h"
#include "qkmem/check.h"
#include "table/slot.h"
#include "tests/threads/mix.h"

namespace {

using mix::SharedHandle;
using mix::Worker;

constexpr int kThreads = 8;

/** Sanitizers find only what happens in a run, so they get more time. */
std::chrono::seconds duration() {
  if (const char* seconds = std::getenv("QKMEM_STRESS_SECONDS")) {
    return std::chrono::seconds(std::atoi(seconds));
  }
#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__)
  return std::chrono::seconds(30);
#else
  return std::chrono::seconds(5);
#endif
}

/** Figures of a handle that its pointer table shows and the workers don't keep. */
struct Table {
  std::uint32_t records = 0;  // of data and blocks
  std::uint64_t overhead = 0;

  explicit Table(const qk_mem_handle& handle) {
    const qk::mem::RegistryLock lock;
    qk::mem::for_each_record(handle, [this](const qk_mem_ptr& record) {
      if (qk::mem::is_management(record.kind)) {
        overhead += qk::mem::bytes_of(record);
      } else {
        ++records;
      }
    });
  }
};

class StressedLibrary : public ::testing::Test {
 protected:
  /** Runs the threads. */
  void stress(bool configures, std::chrono::seconds seconds = duration()) {
    const std::uint32_t events_before = Qk_mem_seq - shared_structure_events();
    const bool traced_before = Qk_mem_db != nullptr;
    const std::int32_t slots_before = Qk_mem_avail_handles;
    for (unsigned i = 0; i < kThreads; ++i) {
      workers_.push_back(std::make_unique<Worker>(shared_, exchange_, i + 1, configures));
    }
    run_until(std::chrono::steady_clock::now() + seconds);
    expected_events_ = events_before + shared_structure_events() +
                       (Qk_mem_db != nullptr && !traced_before ? 1 : 0) +
                       2 * static_cast<std::uint32_t>((Qk_mem_avail_handles - slots_before) / 512);
    for (const auto& worker : workers_) {
      expected_events_ += worker->events();
      EXPECT_EQ(worker->errors(), "");
    }
  }

  void expect_exact_accounting() {
    EXPECT_EQ(Qk_mem_seq, expected_events_);
    for (const SharedHandle shared : {mix::kPlain, mix::kTagged, mix::kPieces, mix::kData}) {
      expect_exact(shared);
    }
    EXPECT_EQ(kit::handle_of(shared_.ids[mix::kCleared]).amount, bytes_of_blocks(mix::kCleared));
    EXPECT_EQ(qk_mem_tag_size("OA") + qk_mem_tag_size("OB"), 0);
    EXPECT_EQ(qty_of_tag("OA") + qty_of_tag("OB"), leftovers().qty);
  }

  /** Releases and deletes everything, and expects what there was at the start. */
  void expect_nothing_left() {
    for (const auto& worker : workers_) worker->release_all();
    for (const mix::Item& item : exchange_.left()) workers_.front()->release(item);
    EXPECT_EQ(qk_mem_clear_handle(shared_.ids[mix::kCleared]), 0);
    for (const SharedHandle shared : {mix::kPlain, mix::kTagged, mix::kPieces, mix::kCleared}) {
      EXPECT_EQ(kit::handle_of(shared_.ids[shared]).amount, bytes_of_blocks(shared)) << shared;
      EXPECT_EQ(qk_mem_del_handle(shared_.ids[shared]), 0);
      EXPECT_EQ(qk_mem_tag_size(mix::kTags[shared]), 0);
    }
    EXPECT_EQ(qk_mem_size(QK_MEM_DATA_HANDLE), 0U);
    EXPECT_EQ(amount_of_global_tag(), 0U);
    EXPECT_EQ(Qk_mem_num_handles, 2);
  }

 private:
  void run_until(std::chrono::steady_clock::time_point end) {
    std::vector<std::thread> threads;
    for (const auto& worker : workers_) {
      threads.emplace_back([&worker, end] {
        while (std::chrono::steady_clock::now() < end) {
          for (int i = 0; i < 20; ++i) worker->step();
        }
      });
    }
    for (std::thread& thread : threads) thread.join();
  }

  void expect_exact(SharedHandle shared) {
    const qk_mem_handle& handle = kit::handle_of(shared_.ids[shared]);
    const bool is_recorded = shared != mix::kData || qk_mem_debug_on() != 0;
    kit::Sums sums;
    if (is_recorded) {
      sums += kit::sums_of_structure(handle, mix::kind_of(shared), handle.track_blocks != 0);
    }
    for (const auto& worker : workers_) sums += worker->sums(shared);
    const Table table(handle);
    EXPECT_EQ(handle.amount, sums.amount) << shared;
    EXPECT_EQ(handle.qty, sums.qty) << shared;
    EXPECT_EQ(handle.overhead_amount, sums.overhead_amount) << shared;
    EXPECT_EQ(handle.overhead_qty, sums.overhead_qty) << shared;
    EXPECT_EQ(handle.overhead_amount, table.overhead) << shared;
    if (is_recorded) {
      EXPECT_EQ(table.records, held_on(shared) + records_of_blocks(shared)) << shared;
    }
    if (shared == mix::kData) return;  // it shares its tag with the library's own handles
    EXPECT_EQ(static_cast<std::uint64_t>(qk_mem_tag_size(mix::kTags[shared])), sums.amount);
    EXPECT_EQ(qty_of_tag(mix::kTags[shared]), sums.qty) << shared;
  }

  [[nodiscard]] std::uint32_t held_on(SharedHandle shared) const {
    std::uint32_t count = 0;
    auto add = [&](const mix::Item& item) { count += item.handle == shared ? 1 : 0; };
    for (const auto& worker : workers_) {
      for (const mix::Item& item : worker->items()) add(item);
    }
    for (const mix::Item& item : exchange_.left()) add(item);
    return count;
  }

  [[nodiscard]] std::uint64_t bytes_of_blocks(SharedHandle shared) const {
    const qk_mem_handle& handle = kit::handle_of(shared_.ids[shared]);
    return handle.num_blocks * (mix::kBlocksize + Qk_mem_blocksize);
  }

  [[nodiscard]] std::uint32_t records_of_blocks(SharedHandle shared) const {
    const qk_mem_handle& handle = kit::handle_of(shared_.ids[shared]);
    return handle.track_blocks != 0 ? handle.num_blocks : 0;
  }

  /** Events of arrays and blocks on the handles that exist all the time. */
  [[nodiscard]] std::uint32_t shared_structure_events() const {
    std::uint32_t events = mix::structure_events(kit::handle_of(QK_MEM_OVERHEAD_HANDLE));
    for (const int hid : shared_.ids) events += mix::structure_events(kit::handle_of(hid));
    return events;
  }

  [[nodiscard]] static std::uint64_t amount_of_global_tag() {
    const qk::mem::RegistryLock lock;
    qk::mem::fold_tag_shares();
    return Qk_mem_global_tag.amount;
  }

  [[nodiscard]] static std::uint32_t qty_of_tag(const std::string& name) {
    const qk::mem::RegistryLock lock;
    qk::mem::fold_tag_shares();
    std::uint32_t qty = 0;
    qk::mem::for_each_tag([&](const qk_mem_tag& tag) {
      if (tag.name == name) qty = tag.qty;
    });
    return qty;
  }

  [[nodiscard]] kit::Sums leftovers() const {
    kit::Sums sums;
    for (const auto& worker : workers_) sums += worker->leftovers();
    return sums;
  }

  mix::SharedHandles shared_;
  mix::Exchange exchange_;
  std::vector<std::unique_ptr<Worker>> workers_;
  std::uint32_t expected_events_ = 0;
};

/** The environment must be set before the first handle is created. */
class StressUnderTrace : public kit::Scene, public StressedLibrary {
 protected:
  StressUnderTrace() : Scene("TRACE LOG=NONE") {}
};

class StressUnderDebug : public kit::Scene, public StressedLibrary {
 protected:
  StressUnderDebug() : Scene({"DEBUG LOG=/dev/null", "DB=/dev/null HEAPSIZE", ""}) {}
};

class UnconfiguredStress : public kit::Scene, public StressedLibrary {};

class CheckedStress : public kit::Scene, public StressedLibrary {};

TEST_F(StressUnderTrace, LeavesExactAccountingDespiteReconfiguration) {
  stress(true);
  expect_exact_accounting();
  expect_nothing_left();
}

TEST_F(StressUnderDebug, LeavesExactAccountingWithLogAndTraceFile) {
  stress(false);
  expect_exact_accounting();
  expect_nothing_left();
}

TEST_F(UnconfiguredStress, LeavesExactAccounting) {
  stress(false);
  expect_exact_accounting();
  expect_nothing_left();
}

/** Workers release what is no block, too, which is told. They damage nothing. */
TEST_F(CheckedStress, FindsNoDamage) {
  ASSERT_EQ(0, qk_mem_check_config("GUARD FILL QUARANTINE=1M SCAN=10000"));
  stress(false, std::max(duration() / 5, std::chrono::seconds(1)));
  EXPECT_EQ(0, qk_mem_check(0));
  expect_exact_accounting();
  EXPECT_EQ(0, qk_mem_check_config(nullptr));
  for (std::uint32_t i = 1; i <= qk::mem::profile::misuses.count(); ++i) {
    const qk::mem::profile::Misuse& misuse = qk::mem::profile::misuses.at(i);
    EXPECT_EQ(0, misuse.place.damage) << misuse.words();
  }
  expect_nothing_left();
}

}  // namespace
