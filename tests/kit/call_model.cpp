#include "tests/kit/call_model.h"

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <string_view>

#include "core/handle_array.h"
#include "core/registry.h"
#include "core/tag_shares.h"
#include "qkmem/qkmem.hpp"

namespace kit {
namespace {

constexpr char kFile[] = "src/app.c";
constexpr std::size_t kMostHandles = 12;
constexpr std::size_t kMostRecords = 150;
constexpr std::uint64_t kTracker = 16;  // as a tracker is accounted
constexpr int kOutOfMemory = 5012;
constexpr const char* kTags[] = {"AA", "B", "ZZ"};

struct Thing {
  Thing() { ++alive; }
  Thing(const Thing&) = delete;
  Thing& operator=(const Thing&) = delete;
  ~Thing() { --alive; }
  static long alive;
  long value = 42;
};

long Thing::alive = 0;

void fill(char* memory, std::uint64_t bytes) {
  std::memset(memory, static_cast<int>(bytes % 251), bytes);
}

qk_mem_handle* record_of(int hid) { return qk::mem::handle_slots().at(hid - 1); }

/** The events that add a record to the sums and subtract it. */
struct EventsOfRecord {
  Event recorded;
  Event removed;
  Event cleared;
  Event deleted;
};

template <class Kind>
const EventsOfRecord& events_of(Kind kind) {
  static constexpr EventsOfRecord kAllocated = {Event::kAllocate, Event::kFree,
                                                Event::kClearAllocated, Event::kDeleteAllocated};
  static constexpr EventsOfRecord kExternal = {Event::kRegisterExternal, Event::kRemoveExternal,
                                               Event::kClearExternal, Event::kDeleteRegistered};
  static constexpr EventsOfRecord kObject = {Event::kRegisterObject, Event::kDeregisterObject,
                                             Event::kClearObject, Event::kDeleteRegistered};
  if (kind == Kind::kAllocated) return kAllocated;
  return kind == Kind::kExternal ? kExternal : kObject;
}

/** The sums of a handle as the library has them. */
Sums real_sums_of(const qk_mem_handle& handle) {
  return {handle.amount, handle.qty, handle.overhead_amount, handle.overhead_qty};
}

/** The sums of a tag as the library has them; zero when there is none. */
Sums real_sums_of_tag(std::string_view name) {
  const qk::mem::RegistryLock lock;
  qk::mem::fold_tag_shares();
  Sums sums;
  qk::mem::for_each_tag([&](const qk_mem_tag& tag) {
    if (tag.name == name) sums = {tag.amount, tag.qty};
  });
  return sums;
}

bool is_recorded(int hid, const void* memory) {
  return qk_mem_is_recorded(hid, memory, kFile, 1) != 0;
}

}  // namespace

CallModel::CallModel(Choices& choices) : choices_(choices) {
  qk_mem_init();
  // The data handle and the tags outlive each run of calls.
  const qk_mem_handle& data = *record_of(QK_MEM_DATA_HANDLE);
  Sums sums = real_sums_of(data);
  sums -= sums_of_structure(data, HandleKind::kOrdinary);
  handles_.push_back(std::make_unique<Handle>(
      Handle{QK_MEM_DATA_HANDLE, HandleKind::kOrdinary, "", sums, {}, {}}));
  for (const char* tag : kTags) leftovers_[tag] = real_sums_of_tag(tag);
}

CallModel::~CallModel() = default;

bool CallModel::step() {
  struct Row {
    const char* name;
    void (CallModel::*call)();
    unsigned weight;
  };
  static constexpr Row kRows[] = {
      {"create", &CallModel::create, 3},
      {"destroy", &CallModel::destroy, 2},
      {"clear", &CallModel::clear, 1},
      {"allocate", &CallModel::allocate, 25},
      {"allocate too much", &CallModel::allocate_too_much, 1},
      {"resize", &CallModel::resize, 10},
      {"release", &CallModel::release, 18},
      {"release on the wrong handle", &CallModel::release_on_wrong_handle, 3},
      {"resize on the wrong handle", &CallModel::resize_on_wrong_handle, 2},
      {"register", &CallModel::register_external, 6},
      {"register twice", &CallModel::register_twice, 3},
      {"register on another handle", &CallModel::register_on_other_handle, 2},
      {"deregister", &CallModel::deregister, 6},
      {"create an object", &CallModel::create_object, 5},
      {"destroy an object", &CallModel::destroy_object, 4},
      {"push", &CallModel::push, 8},
      {"free an array", &CallModel::free_array, 1},
      {"use an invalid handle", &CallModel::use_invalid_handle, 2},
      {"report", &CallModel::report, 1},
  };
  constexpr unsigned kAll = 103;
  unsigned number = pick(kAll);
  const Row* row = kRows;
  for (; number >= row->weight; ++row) number -= row->weight;
  call_ = row->name;
  (this->*row->call)();
  expect_same_sums();
  return error_.empty();
}

bool CallModel::finish() {
  call_ = "finish";
  Handle& data = *handles_[0];
  while (!data.records.empty()) {
    const auto entry = data.records.begin();
    char* memory = entry->first;
    if (entry->second.kind == Kind::kObject) {
      qk::destroy(data.hid, reinterpret_cast<Thing*>(memory));
      data.charge(Event::kRemoveTracker, kTracker);
      --data.trackers;
      remove_record(data, entry);
    } else {
      deregister_all(data, memory);
      std::free(memory);
    }
  }
  if (data.array != nullptr) {
    data.charge(Event::kFreeArray, data.array_bytes());
    qk_mem_iarrfree(data.hid, reinterpret_cast<void**>(&data.array), kFile, 1);
  }
  while (handles_.size() > 1) delete_handle(handles_.size() - 1);
  expect_same_sums();
  for (const char* tag : kTags) expect(qk_mem_tag_size(tag) == 0, "a tag holds bytes");
  expect(Thing::alive == 0, "objects are left");
  return error_.empty();
}

// ---- Handles

void CallModel::create() {
  static constexpr struct {
    const char* options;
    HandleKind kind;
  } kKinds[] = {
      {"", HandleKind::kOrdinary},
      {"DATA AUTOFREE", HandleKind::kOrdinary},
      {"multithreaded overhead", HandleKind::kOrdinary},
      {"BLOCKMGMT", HandleKind::kBlocks},
      {"BLOCKMGMT BLOCKSIZE=100 BLOCKINITIAL=0", HandleKind::kBlocks},
      {"BLOCKMGMT,BLOCKFREE,BLOCKSIZE=300,", HandleKind::kPieces},
      {"BLOCKMGMT BLOCKFREE MULTITHREADED BLOCKSIZE=64 BLOCKINITIAL=3", HandleKind::kPieces},
  };
  static constexpr const char* kNames[] = {"", "aa", "AA", "b", "Zz"};
  static constexpr const char* kUpper[] = {"", "AA", "AA", "B", "ZZ"};
  if (handles_.size() >= kMostHandles) return destroy();
  const unsigned kind = pick(std::size(kKinds) + 1);
  const unsigned tag = pick(std::size(kNames));
  if (kind == std::size(kKinds)) {
    expect(qk_mem_inew_handle("BLOCKMGMT NONSENSE", kNames[tag], kFile, 1) == 0, "bad options");
    return expect_code(11102, "bad options leave a wrong error code");
  }
  std::string options = kKinds[kind].options;
  // A comma after a value would become part of the value.
  for (char& c : options) c = c == ',' ? ' ' : c;
  const int hid = qk_mem_inew_handle(options.c_str(), kNames[tag], kFile, 1);
  expect(hid > 2, "a handle is refused");
  if (hid <= 2) return;
  handles_.push_back(
      std::make_unique<Handle>(Handle{hid, kKinds[kind].kind, kUpper[tag], {}, {}, {}}));
}

void CallModel::destroy() {
  const std::size_t index = pick(static_cast<unsigned>(handles_.size()));
  if (index == 0) {
    expect(qk_mem_idel_handle(QK_MEM_DATA_HANDLE, kFile, 1) == 5566, "the data handle is deleted");
    return expect_code(5566, "a wrong error code");
  }
  delete_handle(index);
}

void CallModel::delete_handle(std::size_t index) {
  const Handle& handle = *handles_[index];
  const qk_mem_handle& real = *record_of(handle.hid);
  Sums left = sums_of(handle);
  const auto leave = [&](Event event, std::uint64_t bytes) {
    charge(left, event, handle.kind, bytes);
  };
  leave(Event::kDeleteHandle, left.amount);
  leave(Event::kDeleteOwnMemory, sizeof real);
  if (real.mtx != nullptr) leave(Event::kDeleteOwnMemory, sizeof *real.mtx);
  for (const qk_mem_block* block = real.blocks; block != nullptr; block = block->next) {
    leave(Event::kDeleteBlock, bytes_of(*block));
  }
  for (const auto& [memory, entry] : handle.records) {
    leave(events_of(entry.kind).deleted, entry.bytes);
    if (entry.kind == Kind::kObject) leave(Event::kDeleteTracker, kTracker);
  }
  for (const auto& [memory, size] : handle.unrecorded) leave(Event::kDeleteAllocated, size);
  if (handle.array != nullptr) {
    leave(Event::kDeleteAllocated, handle.array_bytes());
  }
  leftovers_[handle.tag] += left;
  const long objects = Thing::alive - static_cast<long>(handle.trackers);
  expect(qk_mem_idel_handle(handle.hid, kFile, 1) == 0, "deletion fails");
  expect(Thing::alive == objects, "deletion leaves objects");
  handles_.erase(handles_.begin() + static_cast<std::ptrdiff_t>(index));
}

void CallModel::clear() {
  Handle& handle = any_handle();
  const int result = qk_mem_iclear_handle(handle.hid, kFile, 1);
  for (const auto& [memory, entry] : handle.records) {
    handle.charge(events_of(entry.kind).cleared, entry.bytes);
    if (entry.kind == Kind::kObject) handle.charge(Event::kClearTracker, kTracker);
  }
  for (const auto& [memory, size] : handle.unrecorded) handle.charge(Event::kClearAllocated, size);
  if (handle.array != nullptr) {
    handle.charge(Event::kClearAllocated, handle.array_bytes());
  }
  if (!handle.is_blockmgmt()) {
    expect(result == 5566, "an ordinary handle is cleared");
    return expect_code(5566, "a wrong error code");
  }
  expect(result == 0, "clear fails");
  handle.records.clear();
  handle.unrecorded.clear();
  handle.trackers = 0;
  handle.array = nullptr;
  handle.capacity = handle.count = 0;
}

// ---- Memory

char* CallModel::allocate_memory(Handle& handle, std::uint64_t size) {
  const int hid = handle.hid;
  switch (pick(5)) {
    case 0:
      return static_cast<char*>(qk_mem_imalloc(hid, size, 16, kFile, 1));
    case 1:
      return static_cast<char*>(qk_mem_icalloc(hid, 1, size, 8, kFile, 2));
    case 2:
      return static_cast<char*>(qk_mem_irealloc(hid, nullptr, size, 4, kFile, 3));
    case 3:
      return static_cast<char*>(qk_mem_irecalloc(hid, nullptr, size, 1, 0, 16, kFile, 4));
    default: {
      if (size == 0) return static_cast<char*>(qk_mem_icalloc(hid, 0, 7, 1, kFile, 5));
      const std::string text(size - 1, 'x');
      return qk_mem_istrdup(hid, text.c_str(), kFile, 6);
    }
  }
}

void CallModel::allocate() {
  Handle& handle = any_handle();
  if (handle.records.size() >= kMostRecords) return release();
  if (handle.unrecorded.size() >= kMostRecords) return clear();
  const std::uint64_t size = pick_size(handle);
  add_memory(handle, allocate_memory(handle, size), size);
}

void CallModel::add_memory(Handle& handle, char* memory, std::uint64_t size) {
  expect(memory != nullptr, "memory is refused");
  if (memory == nullptr) return;
  fill(memory, size);
  if (!handle.records_allocations()) {
    handle.charge(Event::kAllocate, size);
    handle.unrecorded[memory] = size;
    return expect(!is_recorded(handle.hid, memory), "a piece is recorded");
  }
  add_record(handle, memory, size, Kind::kAllocated);
}

void CallModel::allocate_too_much() {
  Handle& handle = any_handle();
  static constexpr std::size_t kHuge[] = {SIZE_MAX, SIZE_MAX / 2 + 1, SIZE_MAX - 15};
  const std::size_t size = kHuge[pick(std::size(kHuge))];
  char* memory = nullptr;
  Qk_mem_error = 0;
  switch (pick(4)) {
    case 0:
      memory = static_cast<char*>(qk_mem_imalloc(handle.hid, size, 16, kFile, 1));
      break;
    case 1:
      memory = static_cast<char*>(qk_mem_icalloc(handle.hid, size, 3, 16, kFile, 1));
      break;
    case 2:
      memory = static_cast<char*>(qk_mem_irecalloc(handle.hid, nullptr, 8, size, 2, 16, kFile, 1));
      break;
    default: {
      if (handle.array != nullptr) return;
      void* array = nullptr;
      expect(qk_mem_imarralloc(handle.hid, &array, size, 3, kFile, 1) == -2,
             "a huge array is created");
      expect(array == nullptr, "a huge array has an address");
    }
  }
  expect(memory == nullptr, "too much memory is allocated");
  expect_code(kOutOfMemory, "a failed allocation leaves a wrong error code");
}

void CallModel::resize() {
  Handle& handle = any_handle();
  const std::uint64_t size = pick_size(handle);
  if (!handle.records_allocations()) {
    if (handle.unrecorded.empty()) return;
    char* piece = handle.unrecorded.begin()->first;
    return expect(qk_mem_irealloc(handle.hid, piece, size, 8, kFile, 1) == nullptr,
                  "a piece without a record is resized");
  }
  const auto entry =
      handle.is_blockmgmt() ? pick_record(handle, Kind::kAllocated) : pick_memory(handle);
  if (entry == handle.records.end() || handle.records.count(entry->first) > 1) return;
  char* const before = entry->first;
  const std::uint64_t kept = handle.is_blockmgmt() ? 0 : std::min(size, entry->second.bytes);
  char const first = entry->second.bytes > 0 ? *before : '\0';
  const bool stays = handle.is_blockmgmt() && size <= entry->second.bytes;
  remove_record(handle, entry);
  auto* memory = static_cast<char*>(qk_mem_irealloc(handle.hid, before, size, 8, kFile, 2));
  if (size == 0) return expect(memory == nullptr, "a resize to zero bytes returns memory");
  expect(!stays || memory == before, "a piece that fits has moved");
  if (memory != nullptr && kept > 0) {
    expect(*memory == first && memory[kept - 1] == first, "a resize lost contents");
  }
  add_memory(handle, memory, size);
}

void CallModel::release() {
  Handle& handle = any_handle();
  if (!handle.records_allocations() && !handle.unrecorded.empty() && pick(2) == 0) {
    const auto& [piece, size] = *handle.unrecorded.begin();
    handle.charge(Event::kFree, size);
    qk_mem_ifree(handle.hid, piece, kFile, 1);
    return expect_filled(piece, size);
  }
  const auto entry = pick_memory(handle);
  if (entry == handle.records.end()) return qk_mem_ifree(handle.hid, nullptr, kFile, 2);
  char* const memory = entry->first;
  // free would remove any one of several records of an address, and leave the others dangling.
  const auto [first, last] = handle.records.equal_range(memory);
  if (std::next(first) != last) {
    deregister_all(handle, memory);
    return std::free(memory);
  }
  remove_record(handle, entry);
  qk_mem_ifree(handle.hid, memory, kFile, 3);
  expect(!is_recorded(handle.hid, memory), "freed memory is recorded");
}

/** An ordinary handle frees unknown memory; the record on the right handle stays. */
void CallModel::release_on_wrong_handle() {
  Handle& handle = any_handle();
  Handle* other = other_handle(handle);
  const auto entry = pick_memory(handle);
  if (other == nullptr || entry == handle.records.end()) return;
  char* const memory = entry->first;
  const bool piece = handle.is_blockmgmt() && entry->second.kind == Kind::kAllocated;
  if (piece && !other->is_blockmgmt()) return;
  qk_mem_ifree(other->hid, memory, kFile, 1);
  expect(is_recorded(handle.hid, memory), "a free on another handle removes the record");
  if (other->is_blockmgmt()) return;
  deregister_all(handle, memory);
}

/** An ordinary handle resizes unknown memory without recording it. */
void CallModel::resize_on_wrong_handle() {
  Handle& handle = any_handle();
  Handle* other = other_handle(handle);
  const auto entry = pick_memory(handle);
  if (other == nullptr || entry == handle.records.end()) return;
  if (handle.is_blockmgmt() && entry->second.kind == Kind::kAllocated) return;
  char* const memory = entry->first;
  void* resized = qk_mem_irealloc(other->hid, memory, 50, 16, kFile, 1);
  if (other->is_blockmgmt())
    return expect(resized == nullptr, "a block-managed handle resizes unknown memory");
  expect(resized != nullptr && !is_recorded(other->hid, resized), "unknown memory is recorded");
  deregister_all(handle, memory);
  std::free(resized);
}

// ---- External memory and objects

void CallModel::register_external() {
  Handle& handle = any_handle();
  if (handle.records.size() >= kMostRecords) return deregister();
  const std::uint64_t size = pick(100);
  auto* memory = static_cast<char*>(std::malloc(size + 1));
  fill(memory, size);
  qk_mem_iregister(handle.hid, QK_MEM_EXTERNAL, memory, nullptr, size, kFile, 1);
  add_record(handle, memory, size, Kind::kExternal);
}

void CallModel::register_twice() {
  Handle& handle = any_handle();
  const auto entry = pick_record(handle, Kind::kExternal);
  if (entry == handle.records.end()) return;
  qk_mem_iregister(handle.hid, QK_MEM_EXTERNAL, entry->first, nullptr, entry->second.bytes, kFile,
                   2);
  add_record(handle, entry->first, entry->second.bytes, Kind::kExternal);
}

void CallModel::register_on_other_handle() {
  Handle& handle = any_handle();
  Handle* other = other_handle(handle);
  const auto entry = pick_record(handle, Kind::kExternal);
  if (other == nullptr || entry == handle.records.end()) return;
  char* const memory = entry->first;
  qk_mem_iregister(other->hid, QK_MEM_EXTERNAL, memory, nullptr, 10, kFile, 3);
  add_record(*other, memory, 10, Kind::kExternal);
  expect_same_sums(*other);
  qk_mem_ideregister(other->hid, QK_MEM_EXTERNAL, memory, kFile, 4);
  remove_record(*other, other->records.find(memory));
  expect(is_recorded(handle.hid, memory), "a deregistration on another handle removes the record");
}

void CallModel::deregister() {
  Handle& handle = any_handle();
  const auto entry = pick_memory(handle);
  if (entry == handle.records.end()) {
    int nothing = 0;
    return qk_mem_ideregister(handle.hid, QK_MEM_EXTERNAL, &nothing, kFile, 5);
  }
  if (handle.is_blockmgmt() && entry->second.kind == Kind::kAllocated) return;
  char* const memory = entry->first;
  expect_filled(memory, entry->second.bytes);
  deregister_all(handle, memory);
  std::free(memory);
}

void CallModel::create_object() {
  Handle& handle = any_handle();
  if (handle.records.size() >= kMostRecords) return destroy_object();
  Thing* const thing = qk::make<Thing>(handle.hid);
  add_record(handle, reinterpret_cast<char*>(thing), sizeof(Thing), Kind::kObject);
  handle.charge(Event::kRecordTracker, kTracker);
  ++handle.trackers;
}

void CallModel::destroy_object() {
  Handle& handle = any_handle();
  const auto entry = pick_record(handle, Kind::kObject);
  if (entry == handle.records.end()) return;
  auto* const thing = reinterpret_cast<Thing*>(entry->first);
  remove_record(handle, entry);
  expect(thing->value == 42, "an object has changed");
  if (pick(3) != 0) {
    qk::destroy(handle.hid, thing);
  } else {  // deregistered as an array, which is misuse
    qk::detail::deregister(handle.hid, QK_MEM_ARRAY, qk::detail::name_of_object(thing));
    delete thing;
  }
  handle.charge(Event::kRemoveTracker, kTracker);
  --handle.trackers;
}

// ---- Managed arrays

void CallModel::push() {
  Handle& handle = any_handle();
  const std::uint64_t factor = 1 + pick(20);
  const bool full = handle.array != nullptr && handle.count == handle.capacity;
  void* array = handle.array;
  const std::int64_t index = qk_mem_imarralloc(handle.hid, &array, kElement, factor, kFile, 1);
  if (full) handle.charge(Event::kGrowArray, factor * kElement);
  if (full && !handle.records_allocations()) {
    expect(index == -2 && array == handle.array,
           "an array grows though its piece can't be resized");
    return;
  }
  expect(index == static_cast<std::int64_t>(handle.count), "a wrong index");
  if (index < 0) return;
  if (handle.array == nullptr) handle.charge(Event::kCreateArray, kHeader + factor * kElement);
  if (handle.array == nullptr || full) handle.capacity += factor;
  handle.array = static_cast<char*>(array);
  for (std::uint64_t i = 0; i < handle.count; ++i) {
    expect(handle.array[kElement * i] == 'e', "an element has changed");
  }
  char* const element = handle.array + kElement * handle.count;
  for (std::uint64_t i = 0; i < kElement; ++i) expect(element[i] == 0, "a new element isn't zero");
  std::memset(element, 'e', kElement);
  ++handle.count;
}

void CallModel::free_array() {
  Handle& handle = any_handle();
  void* array = handle.array;
  qk_mem_iarrfree(handle.hid, &array, kFile, 2);
  expect(array == nullptr, "a freed array has an address");
  if (handle.array != nullptr) {
    handle.charge(Event::kFreeArray, handle.array_bytes());
  }
  handle.array = nullptr;
  handle.capacity = handle.count = 0;
}

// ---- Misuse and reports

void CallModel::use_invalid_handle() {
  static constexpr int kNumbers[] = {0, -1, INT_MIN, INT_MAX, 513, 300, 100000};
  const int hid = kNumbers[pick(std::size(kNumbers))];
  Handle& handle = any_handle();
  Qk_mem_error = 0;
  expect(qk_mem_imalloc(hid, 8, 16, kFile, 1) == nullptr, "memory on an invalid handle");
  expect(qk_mem_istrdup(hid, "x", kFile, 1) == nullptr, "a copy on an invalid handle");
  expect(qk_mem_isize(hid, kFile, 1) == static_cast<std::size_t>(-1),
         "a size of an invalid handle");
  expect(qk_mem_idel_handle(hid, kFile, 1) == 5566, "an invalid handle is deleted");
  expect(qk_mem_iclear_handle(hid, kFile, 1) == 5566, "an invalid handle is cleared");
  if (const auto entry = pick_memory(handle); entry != handle.records.end()) {
    char* const memory = entry->first;
    qk_mem_ifree(hid, memory, kFile, 1);
    expect(qk_mem_irealloc(hid, memory, 50, 16, kFile, 1) == nullptr,
           "a resize on an invalid handle");
    qk_mem_iregister(hid, QK_MEM_EXTERNAL, memory, nullptr, 5, kFile, 1);
    qk_mem_ideregister(hid, QK_MEM_EXTERNAL, memory, kFile, 1);
    expect_filled(memory, entry->second.bytes);
  }
  expect_code(5566, "a wrong error code");
}

void CallModel::report() {
  static FILE* const nowhere = std::fopen("/dev/null", "w");
  const Handle& handle = any_handle();
  char filter[32];
  std::snprintf(filter, sizeof filter, "HANDLE=%d", handle.hid);
  qk_mem_dump(nowhere, pick(2) == 0 ? "" : filter, pick(0x200));
  if (pick(2) == 0) expect(qk_mem_baseline(filter) == 0, "the baseline fails");
  long answer = -1;
  expect(qk_mem_info("CURRENT_ALLOC", filter, &answer) == 0, "the query fails");
  expect(static_cast<std::size_t>(answer) == qk_mem_isize(handle.hid, kFile, 1), "a wrong answer");
}

// ---- The sums

Sums CallModel::sums_of(const Handle& handle) {
  Sums sums = handle.sums;
  sums += sums_of_structure(*record_of(handle.hid), handle.kind);
  return sums;
}

CallModel::Handle& CallModel::any_handle() {
  return *handles_[pick(static_cast<unsigned>(handles_.size()))];
}

CallModel::Handle* CallModel::other_handle(const Handle& handle) {
  Handle& other = any_handle();
  return &other == &handle ? nullptr : &other;
}

/** Pieces have at least one byte, since empty ones can share an address. */
std::uint64_t CallModel::pick_size(const Handle& handle) {
  const std::uint64_t size = pick(20) == 0 ? pick(5000) : pick(120);
  return handle.is_blockmgmt() && size == 0 ? 1 : size;
}

CallModel::Records::iterator CallModel::pick_record(Handle& handle, Kind kind) {
  if (handle.records.empty()) return handle.records.end();
  const auto begin =
      std::next(handle.records.begin(), pick(static_cast<unsigned>(handle.records.size())));
  for (auto entry = begin; entry != handle.records.end(); ++entry) {
    if (entry->second.kind == kind) return entry;
  }
  return handle.records.end();
}

CallModel::Records::iterator CallModel::pick_memory(Handle& handle) {
  return pick_record(handle, pick(2) == 0 ? Kind::kAllocated : Kind::kExternal);
}

void CallModel::add_record(Handle& handle, char* memory, std::uint64_t bytes, Kind kind) {
  handle.records.insert({memory, {bytes, kind}});
  handle.charge(events_of(kind).recorded, bytes);
  expect(is_recorded(handle.hid, memory), "memory isn't recorded");
}

void CallModel::remove_record(Handle& handle, Records::iterator entry) {
  handle.charge(events_of(entry->second.kind).removed, entry->second.bytes);
  handle.records.erase(entry);
}

/** Removes all records of an address; the memory stays. */
void CallModel::deregister_all(Handle& handle, char* memory) {
  for (auto entry = handle.records.find(memory); entry != handle.records.end();
       entry = handle.records.find(memory)) {
    qk_mem_ideregister(handle.hid, QK_MEM_EXTERNAL, memory, kFile, 7);
    remove_record(handle, entry);
  }
  expect(!is_recorded(handle.hid, memory), "deregistered memory is recorded");
}

void CallModel::expect_filled(const char* memory, std::uint64_t bytes) {
  const char mark = static_cast<char>(bytes % 251);
  for (std::uint64_t i = 0; i < bytes; ++i) {
    if (memory[i] != mark) return expect(false, "memory has changed");
  }
}

void CallModel::expect_code(int code, const char* what) { expect(qk_mem_error() == code, what); }

void CallModel::expect(bool holds, const char* what) {
  if (holds || !error_.empty()) return;
  error_ = "step " + std::to_string(steps_) + ", " + call_ + ": " + what;
}

void CallModel::expect_same_sums(const Handle& handle) {
  const qk_mem_handle* real = record_of(handle.hid);
  expect(real != nullptr, "a handle is missing");
  if (real == nullptr) return;
  const Sums sums = sums_of(handle);
  expect(real->amount == sums.amount, "a wrong amount");
  expect(real->qty == sums.qty, "a wrong quantity");
  expect(real->overhead_amount == sums.overhead_amount, "a wrong amount of overhead");
  expect(real->overhead_qty == sums.overhead_qty, "a wrong quantity of overhead");
  expect(qk_mem_isize(handle.hid, kFile, 1) == real->amount, "a wrong size");
}

void CallModel::expect_same_tag(const char* name) {
  Sums sums = leftovers_[name];
  for (const auto& handle : handles_) {
    if (handle->tag == name) sums += sums_of(*handle);
  }
  const Sums real = real_sums_of_tag(name);
  expect(real.amount == sums.amount, "a wrong amount of a tag");
  expect(real.qty == sums.qty, "a wrong quantity of a tag");
  expect(qk_mem_tag_size(name) == static_cast<std::int64_t>(sums.amount), "a wrong size of a tag");
}

void CallModel::expect_same_sums() {
  ++steps_;
  for (const auto& handle : handles_) expect_same_sums(*handle);
  for (const char* tag : kTags) expect_same_tag(tag);
  const auto live = static_cast<std::int32_t>(handles_.size()) + 1;
  expect(Qk_mem_num_handles == live, "a wrong number of handles");
}

}  // namespace kit
