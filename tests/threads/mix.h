#ifndef TESTS_THREADS_MIX_H_
#define TESTS_THREADS_MIX_H_

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <random>
#include <string>
#include <vector>

#include "core/handle_array.h"
#include "core/kinds.h"
#include "core/records.h"
#include "core/registry.h"
#include "qkmem/qkmem.hpp"
#include "tests/kit/charges.h"
#include "tests/kit/scene.h"

/**
 * Threads that make calls of every kind, on shared handles and on handles of their own, and keep
 * sums of them. The library must show what the sums of all threads add up to.
 */
namespace mix {

/** The handles that all threads use. */
enum SharedHandle { kPlain, kTagged, kPieces, kCleared, kData, kSharedHandles };

[[nodiscard]] constexpr kit::HandleKind kind_of(SharedHandle shared) {
  if (shared == kCleared) return kit::HandleKind::kBlocks;
  return shared == kPieces ? kit::HandleKind::kPieces : kit::HandleKind::kOrdinary;
}

constexpr std::uint64_t kBlocksize = 4096;
constexpr std::uint64_t kTracker = 16;  // as a tracker is accounted

struct SharedHandles {
  int ids[kSharedHandles] = {
      qk_mem_new_handle("MULTITHREADED", "SA"), qk_mem_new_handle("MULTITHREADED", "SB"),
      qk_mem_new_handle("MULTITHREADED BLOCKMGMT BLOCKFREE BLOCKSIZE=4096", "SC"),
      qk_mem_new_handle("MULTITHREADED BLOCKMGMT BLOCKSIZE=4096", "SD"), QK_MEM_DATA_HANDLE};
};
constexpr const char* kTags[kSharedHandles] = {"SA", "SB", "SC", "SD", ""};

/** Memory or an object of a thread on a shared handle. All its bytes are equal. */
struct Item {
  enum Kind { kMemory, kExternal, kObject, kArrayOfObjects } kind;
  SharedHandle handle;
  unsigned char* address;
  std::size_t size;
};

struct Thing {
  explicit Thing(unsigned char byte) { std::memset(bytes, byte, sizeof bytes); }
  Thing() : Thing(0) {}
  unsigned char bytes[24];
};

/** Items that one thread has allocated and any thread may release. */
class Exchange {
 public:
  Item swap(const Item& mine) {
    const std::lock_guard lock(mutex_);
    if (items_.size() < 64) {
      items_.push_back(mine);
      return {Item::kMemory, kPlain, nullptr, 0};
    }
    Item& theirs = items_[next_++ % items_.size()];
    return std::exchange(theirs, mine);
  }
  /** For the end, after the threads have finished. */
  [[nodiscard]] const std::vector<Item>& left() const { return items_; }

 private:
  std::mutex mutex_;
  std::vector<Item> items_;
  std::size_t next_ = 0;
};

/** Events of the blocks and the pointer arrays of a handle. */
[[nodiscard]] inline std::uint32_t structure_events(const qk_mem_handle& handle) {
  std::uint32_t events = handle.track_blocks != 0 ? handle.num_blocks : 0;
  for (const qk_mem_ptr_array& array : handle.ptrs) {
    if (array.capacity > 0) events += static_cast<std::uint32_t>((array.capacity - 16) / 64 + 1);
  }
  return events;
}

/** The number of records of the handle itself and its mutex. */
[[nodiscard]] inline std::uint32_t own_records(const qk_mem_handle& handle) {
  if (handle.track == 0) return 0;
  return handle.mtx == nullptr ? 1 : 2;
}

/** The calls of one thread. */
class Worker {
 public:
  Worker(const SharedHandles& shared, Exchange& exchange, unsigned seed, bool configures)
      : shared_(shared), exchange_(exchange), random_(seed), configures_(configures) {
    items_.reserve(kMostItems);
  }
  Worker(const Worker&) = delete;
  Worker& operator=(const Worker&) = delete;
  ~Worker() { std::fclose(nowhere_); }

  void step() {
    // Reports and configuration calls take as long as hundreds of calls on memory.
    const unsigned dice = below(1000);
    if (dice < 2) return report();
    if (dice < 4) return configures_ ? configure() : ask();
    if (dice < 10) return ask();
    if (dice < 12) return many_handles();
    if (dice < 30) return own_handle();
    if (dice < 60) return misuse();
    if (dice < 100) return grow_array();
    if (dice < 150) return use_cleared();
    if (dice < 250) return resize();
    if (dice < 300) return exchange();
    if (items_.size() < 2 || (items_.size() < kMostItems && below(2) == 0)) return make();
    release(take_any());
  }

  /** Releases all items of the thread. */
  void release_all() {
    while (!items_.empty()) release(take_any());
  }

  void release(const Item& item) {
    expect(is_intact(item), "no other thread wrote to the memory");
    const int hid = shared_.ids[item.handle];
    switch (item.kind) {
      case Item::kMemory:
        qk_mem_free(hid, item.address);
        return charge(item.handle, kit::Event::kFree, item.size);
      case Item::kExternal:
        qk_mem_deregister(hid, QK_MEM_EXTERNAL, item.address);
        std::free(item.address);
        return charge(item.handle, kit::Event::kRemoveExternal, item.size);
      case Item::kObject:
        qk::destroy(qk::On(hid), reinterpret_cast<Thing*>(item.address));
        break;
      case Item::kArrayOfObjects:
        qk::destroy<Thing[]>(qk::On(hid), reinterpret_cast<Thing*>(item.address));
        break;
    }
    charge(item.handle, kit::Event::kDeregisterObject, item.size);
    charge(item.handle, kit::Event::kRemoveTracker, kTracker);
  }

  [[nodiscard]] const std::vector<Item>& items() const { return items_; }
  /** What the thread's calls have changed on a shared handle. */
  [[nodiscard]] const kit::Sums& sums(SharedHandle handle) const { return sums_[handle]; }
  [[nodiscard]] std::uint32_t events() const { return events_; }
  /** What the thread's own handles have left in their tags. */
  [[nodiscard]] const kit::Sums& leftovers() const { return leftovers_; }
  [[nodiscard]] const std::string& errors() const { return errors_; }

 private:
  static constexpr std::size_t kMostItems = 150;

  unsigned below(unsigned limit) { return static_cast<unsigned>(random_()) % limit; }
  template <std::size_t n>
  const char* one_of(const char* const (&texts)[n]) {
    return texts[below(n)];
  }

  void expect(bool holds, const char* claim) {
    if (!holds && errors_.size() < 1000) errors_ += std::string(claim) + "\n";
  }

  [[nodiscard]] bool is_recorded(SharedHandle handle) const {
    return qk_mem_debug_on() != 0 || handle != kData;
  }

  /** Each change of a record is an event. */
  void charge(SharedHandle handle, kit::Event event, std::uint64_t bytes) {
    if (!is_recorded(handle)) return;
    ++events_;
    kit::charge(sums_[handle], event, kind_of(handle), bytes);
  }

  [[nodiscard]] static bool is_intact(const Item& item) {
    for (std::size_t i = 1; i < item.size; ++i) {
      if (item.address[i] != item.address[0]) return false;
    }
    return true;
  }

  Item take_any() {
    std::swap(items_[below(static_cast<unsigned>(items_.size()))], items_.back());
    const Item item = items_.back();
    items_.pop_back();
    return item;
  }

  SharedHandle any_handle() {
    constexpr SharedHandle kSuitable[] = {kPlain, kTagged, kPieces, kData};
    return kSuitable[below(4)];
  }

  void fill(const Item& item) {
    std::memset(item.address, static_cast<int>(below(255) + 1), item.size);
  }

  void make() {
    switch (below(8)) {
      case 0:
        return make_object();
      case 1:
        return make_objects();
      case 2:
        return enter_external();
      default:
        return make_memory();
    }
  }

  void make_memory() {
    Item item = {Item::kMemory, any_handle(), nullptr, below(600) + 1};
    const int hid = shared_.ids[item.handle];
    void* memory = nullptr;
    switch (below(3)) {
      case 0:
        memory = qk_mem_malloc(hid, item.size);
        break;
      case 1:
        memory = qk_mem_calloc(hid, 1, item.size);
        break;
      default:
        item.size = 12;
        memory = qk_mem_strdup(hid, "aaaaaaaaaaa");
    }
    item.address = static_cast<unsigned char*>(memory);
    fill(item);
    charge(item.handle, kit::Event::kAllocate, item.size);
    items_.push_back(item);
  }

  void enter_external() {
    Item item = {Item::kExternal, any_handle(), nullptr, below(100) + 1};
    item.address = static_cast<unsigned char*>(std::malloc(item.size));
    fill(item);
    qk_mem_register(shared_.ids[item.handle], QK_MEM_EXTERNAL, item.address, item.size);
    charge(item.handle, kit::Event::kRegisterExternal, item.size);
    items_.push_back(item);
  }

  void make_object() {
    Item item = {Item::kObject, any_handle(), nullptr, sizeof(Thing)};
    Thing* thing =
        qk::make<Thing>(qk::On(shared_.ids[item.handle]), static_cast<unsigned char>(below(255)));
    item.address = thing->bytes;
    note_object(item);
  }

  void make_objects() {
    const std::size_t count = below(5) + 1;
    Item item = {Item::kArrayOfObjects, any_handle(), nullptr, count * sizeof(Thing)};
    item.address = qk::make_array<Thing>(qk::On(shared_.ids[item.handle]), count)->bytes;
    note_object(item);
  }

  void note_object(const Item& item) {
    items_.push_back(item);
    charge(item.handle, kit::Event::kRegisterObject, item.size);
    charge(item.handle, kit::Event::kRecordTracker, kTracker);
  }

  void resize() {
    if (items_.empty()) return;
    Item& item = items_[below(static_cast<unsigned>(items_.size()))];
    if (item.kind != Item::kMemory) return;
    const std::size_t size = below(600) + 1;
    const int hid = shared_.ids[item.handle];
    void* memory = below(2) == 0 ? qk_mem_realloc(hid, item.address, size)
                                 : qk_mem_recalloc(hid, item.address, size, 1, item.size);
    charge(item.handle, kit::Event::kFree, item.size);
    charge(item.handle, kit::Event::kAllocate, size);
    if (is_recorded(item.handle)) --events_;  // the two are one event
    item.address = static_cast<unsigned char*>(memory);
    item.size = size;
    fill(item);
  }

  /** Exchanges an item for one of another thread. */
  void exchange() {
    if (items_.empty()) return;
    const Item other = exchange_.swap(take_any());
    if (other.address != nullptr) items_.push_back(other);
  }

  /** Never accesses memory of this handle, since any thread may clear it. */
  void use_cleared() {
    const int hid = shared_.ids[kCleared];
    if (below(10) == 0) {
      expect(qk_mem_clear_handle(hid) == 0, "the handle can be cleared");
      ++events_;
    } else {
      expect(qk_mem_malloc(hid, below(300) + 1) != nullptr, "there is a piece");
      if (qk::mem::handle_slots().at(hid - 1)->track != 0) ++events_;
    }
  }

  void grow_array() {
    const int hid = shared_.ids[below(2) == 0 ? kPlain : kPieces];
    void* array = nullptr;
    const int elements = static_cast<int>(below(20)) + 1;
    for (int i = 0; i < elements; ++i) {
      expect(qk_mem_marralloc(hid, &array, sizeof(int), 4) == i,
             "the index is that of the new element");
      static_cast<int*>(array)[i] = i;
    }
    for (int i = 0; i < elements; ++i) {
      expect(static_cast<int*>(array)[i] == i, "arrays keep their elements");
    }
    qk_mem_arrfree(hid, &array);
    events_ += static_cast<std::uint32_t>((elements - 1) / 4) + 2;
  }

  /** The whole life of a handle that no other thread knows. */
  void own_handle() {
    static constexpr const char* kOptions[] = {"",
                                               "MULTITHREADED",
                                               "AUTOFREE",
                                               "OVERHEAD",
                                               "BLOCKMGMT",
                                               "BLOCKMGMT BLOCKFREE BLOCKINITIAL=3",
                                               "BLOCKMGMT MULTITHREADED BLOCKSIZE=128"};
    static constexpr const char* kOwnTags[] = {"OA", "OB"};
    const int hid = qk_mem_new_handle(one_of(kOptions), one_of(kOwnTags));
    const qk_mem_handle& handle = *qk::mem::handle_slots().at(hid - 1);
    const bool blocks = handle.blockmgmt != 0;
    std::uint64_t bytes = 0;
    for (unsigned i = below(60); i > 0; --i) {
      const std::size_t size = below(100) + 1;
      expect(qk_mem_malloc(hid, size) != nullptr, "there is memory");
      bytes += size;
      if (handle.track != 0) ++events_;
    }
    if (!blocks) expect(qk_mem_size(hid) == bytes, "the size of a handle is that of its memory");
    if (blocks && below(2) == 0) qk_mem_clear_handle(hid), ++events_;
    delete_own(hid);
  }

  void delete_own(int hid) {
    const qk_mem_handle& handle = *qk::mem::handle_slots().at(hid - 1);
    const std::uint32_t records = own_records(handle);
    events_ += structure_events(handle) + records + 2;
    for (std::uint32_t i = 0; i < records; ++i) {
      kit::charge(leftovers_, kit::Event::kDeleteOwnMemory, kit::HandleKind::kOrdinary, 0);
    }
    expect(qk_mem_del_handle(hid) == 0, "a handle can be deleted");
  }

  /** So many that the handle array must grow if all threads do this at once. */
  void many_handles() {
    int ids[120];
    for (int& hid : ids) hid = qk_mem_new_handle("", "OA");
    for (const int hid : ids) delete_own(hid);
  }

  void misuse() {
    qk_mem_free(shared_.ids[kPlain], std::malloc(10));
    qk_mem_free(shared_.ids[kTagged], nullptr);
    qk_mem_free(shared_.ids[kPieces], this);
    expect(qk_mem_malloc(100000, 1) == nullptr, "there is no such handle");
    expect(qk_mem_error() == QK_MEM_ERROR_HANDLE, "a thread's error is its own");
    expect(qk_mem_new_handle("NONSENSE", "") == 0, "options are checked");
    expect(qk_mem_error() == QK_MEM_ERROR_OPTIONS, "a thread's error is its own");
    events_ += 1;  // the deletion of the handle that was refused
  }

  static constexpr const char* kFilters[] = {
      "",          "TYPE=DATA TAG=SA", "AUTOFREE=TRUE", "BLOCKMGMT=TRUE", "TAG=NONE",
      "NONSENSE=", "NEW_HANDLE=TRUE",  "NEW_PTRS=TRUE", "HANDLE=3"};

  void report() {
    if (below(2) == 0) qk_mem_baseline(one_of(kFilters));
    // Any combination of sections; the two that suppress others only now and then.
    const unsigned sections = below(64) | (below(4) == 0 ? below(8) << 6U : 0U);
    qk_mem_dump(nowhere_, one_of(kFilters), sections);
  }

  void ask() {
    static constexpr const char* kQueries[] = {
        "INITIAL_HEAP",  "CURRENT_HEAP", "UNTRACKED",      "HEAP_PCT_SINCE_BASELINE",
        "CURRENT_ALLOC", "CURRENT_PTRS", "BASELINE_ALLOC", "PCT_SINCE_BASELINE"};
    long answer = 0;
    qk_mem_info(one_of(kQueries), one_of(kFilters), &answer);
    expect(qk_mem_tag_size("SA") >= 0 && qk_mem_tag_size("zz") == 0, "tags have sizes");
    expect(qk_mem_size(shared_.ids[kPlain]) < (1UL << 40U), "handles have sizes");
    if (!items_.empty()) {
      const Item& item = items_.front();
      expect(qk_mem_is_recorded(shared_.ids[item.handle], item.address, __FILE__, __LINE__) ==
                 (is_recorded(item.handle) ? 1 : 0),
             "items are recorded");
    }
    expect(qk_mem_frees_singly(shared_.ids[kCleared], __FILE__, __LINE__) == 0,
           "pieces can't be freed");
    expect(qk_heapsize() >= 0, "the heap has a size");
    qk_mem_init();
    qk_mallinfo();
  }

  /** Each of these turns something on, so that the data handle keeps its records throughout. */
  void configure() {
    static constexpr const char* kSwitches[] = {
        "TRACE",
        "EXCEPTIONS LOG=NONE",
        "EXCEPTIONS LOG=first.log",
        "DEBUG LOG=second.log FLUSH",
        "DEBUG='not qk_ifree' LOG=/dev/null",
        "SUMMARY TRACE EXCEPTIONS=qk_irealloc LOG=/dev/null APPEND",
        "CTRLBLKS=qk_mem_iclear_handle LOG=third.log"};
    static constexpr const char* kSections[] = {"OPTIONS=SUMMARY,HANDLES,BLOCKS,POINTERS",
                                                "OPTIONS=MGMT,HEAPSIZE", "OPTIONS=GROWTH,TERSE",
                                                "OPTIONS=COMPARISON"};
    static constexpr const char* kModule[] = {"HEAPSIZE", "DB=/dev/null HEAPSIZE", ""};
    qk::Status status;
    expect(qk_mem_debug_config(one_of(kSwitches), &status) == 0, "switches can be set");
    expect(qk_mem_dump_config(one_of(kSections), &status) == 0, "sections can be set");
    expect(qk_mem_options(one_of(kModule), &status) == 0, "options can be set");
    char text[QK_MEM_SETTINGS_SIZE];
    expect(qk_mem_debug_settings(text, &status) == 0 && text[0] != '\0', "settings can be read");
  }

  const SharedHandles& shared_;
  Exchange& exchange_;
  std::minstd_rand random_;
  const bool configures_;
  FILE* nowhere_ = std::fopen("/dev/null", "w");
  std::vector<Item> items_;
  kit::Sums sums_[kSharedHandles];
  kit::Sums leftovers_;
  std::uint32_t events_ = 0;
  std::string errors_;
};

}  // namespace mix

#endif  // TESTS_THREADS_MIX_H_
