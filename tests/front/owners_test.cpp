#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <map>
#include <memory_resource>
#include <optional>
#include <string>
#include <typeinfo>
#include <utility>
#include <vector>

#include "qkmem/qkmem.hpp"
#include "tests/kit/failing_allocator.h"
#include "tests/kit/live_memory.h"
#include "tests/kit/logging_tracker.h"
#include "tests/kit/placement.h"
#include "tests/kit/scene.h"
#include "tests/kit/standalone_handle.h"

/**
 * Objects on a handle that own something on the same handle, and are left to the handle's end. With
 * kit::align_requests(), memory of malloc is recorded before the objects of plain `new`. Objects
 * that are aligned to 128 bytes are recorded in one row with that memory, in the order of creation.
 */
namespace {

using kit::Environment;
using kit::Scene;

template <class T>
using Vector = std::vector<T, qk::allocator<T>>;

/** Counts what exists. */
struct Counted {
  Counted() { ++alive; }
  Counted(const Counted&) = delete;
  Counted& operator=(const Counted&) = delete;
  ~Counted() { --alive; }

  static inline int alive = 0;
};

/** Ends a handle by its deletion, or by a clear if it is block-managed. */
void end_by_deletion(std::optional<qk::Handle>& pool) { pool.reset(); }
void end_by_clear(std::optional<qk::Handle>& pool) { EXPECT_EQ(pool->clear(), 0); }

struct Way {
  const char* name;
  const char* options;
  void (*end)(std::optional<qk::Handle>& pool);
  Environment environment;
};

const Environment kExceptions{"EXCEPTIONS", "", ""};
const Environment kTraced{"EXCEPTIONS", "DB HEAPSIZE", ""};

/** Tests are listed with it; the bytes of a Way would differ from run to run. */
void PrintTo(const Way& way, std::ostream* out) { *out << way.name; }

const Way kWays[] = {
    {"Deletion", "", &end_by_deletion, kExceptions},
    {"DeletionUnwatched", "", &end_by_deletion, {}},
    {"DeletionTraced", "", &end_by_deletion, kTraced},
    {"DeletionOfShared", "MULTITHREADED", &end_by_deletion, kExceptions},
    {"DeletionOfBlocks", "BLOCKMGMT", &end_by_deletion, kExceptions},
    {"DeletionOfPieces", "BLOCKMGMT BLOCKFREE", &end_by_deletion, kExceptions},
    {"ClearOfBlocks", "BLOCKMGMT", &end_by_clear, kExceptions},
    {"ClearOfPieces", "BLOCKMGMT BLOCKFREE", &end_by_clear, kExceptions},
};

/** A handle, in each way to end it. Misuse would be logged. */
class Owners : public ::testing::TestWithParam<Way> {
 protected:
  Owners() {
    kit::align_requests();
    pool_.emplace(GetParam().options, "OW");
    hid_ = pool_->number();
    scene_.skip_log();
  }

  /** Ends the handle. Nothing may be left, and nothing may be logged. */
  void end() {
    GetParam().end(pool_);
    EXPECT_EQ(Counted::alive, 0);
    EXPECT_EQ(scene_.log(), "");
    EXPECT_EQ(qk_mem_error(), 0);
  }

  [[nodiscard]] bool frees_pieces() const { return qk_mem_frees_singly(hid_, "lib/a.c", 1) != 0; }

  Scene scene_{GetParam().environment};
  std::optional<qk::Handle> pool_;
  int hid_ = 0;
};

INSTANTIATE_TEST_SUITE_P(Ways, Owners, ::testing::ValuesIn(kWays),
                         [](const auto& tested) { return std::string(tested.param.name); });

/** Frees memory in its destructor, as C code would. */
struct Freeing : Counted {
  Freeing(int owned_on, void* owned) : hid(owned_on), memory(owned) {}
  ~Freeing() {
    if (qk_mem_frees_singly(hid, "lib/a.c", 1) != 0) qk_mem_free(hid, memory);
  }
  int hid;
  void* memory;
};
struct alignas(128) FreeingEarly : Freeing {
  using Freeing::Freeing;
};

TEST_P(Owners, MayFreeMemoryRecordedBeforeThem) {
  for (int i = 0; i < 100; ++i) {
    static_cast<void>(qk::make<Freeing>(*pool_, hid_, qk_mem_malloc(hid_, 40)));
  }
  end();
}

TEST_P(Owners, MayFreeMemoryRecordedAfterThem) {
  for (int i = 0; i < 100; ++i) {
    auto* const owner = qk::make<FreeingEarly>(*pool_, hid_, nullptr);
    owner->memory = qk_mem_malloc(hid_, 40);
  }
  end();
}

TEST_P(Owners, MayFreeEveryKindOfMemory) {
  char* const text = qk_mem_strdup(hid_, "text");
  static_cast<void>(qk::make<Freeing>(*pool_, hid_, text));
  static_cast<void>(qk::make<Freeing>(*pool_, hid_, qk_mem_calloc(hid_, 3, 5)));
  static_cast<void>(qk::make<Freeing>(*pool_, hid_, qk_mem_realloc(hid_, nullptr, 30)));
  void* const external = std::malloc(20);
  qk_mem_register(hid_, QK_MEM_EXTERNAL, external, 20);
  static_cast<void>(qk::make<Freeing>(*pool_, hid_, external));
  end();
}

/** Frees a growable array. */
struct Growing : Counted {
  explicit Growing(int owned_on) : hid(owned_on) {}
  ~Growing() {
    if (qk_mem_frees_singly(hid, "lib/a.c", 1) != 0) qk_mem_arrfree(hid, &numbers);
  }
  int hid;
  int* numbers = nullptr;
};

TEST_P(Owners, MayFreeGrowableArrays) {
  auto* const owner = qk::make<Growing>(*pool_, hid_);
  qk_mem_marralloc(hid_, &owner->numbers, sizeof(int), 10);
  end();
}

struct First {
  virtual ~First() = default;
  long number = 1;
};
struct Second {
  virtual ~Second() = default;
  long number = 2;
};
struct Both : First, Second, Counted {};

/** Owns objects, an array, and an object through a base that isn't at its address. */
struct Owning : Counted {
  qk::unique<Counted> single;
  qk::unique<Counted[]> several;
  qk::unique<Second> base;

  void create_all(const qk::Handle& pool) {
    single = qk::make_unique<Counted>(pool);
    several = qk::make_unique<Counted[]>(pool, 3);
    base = qk::make_unique<Both>(pool);
  }
};

TEST_P(Owners, MayDestroyObjectsRecordedAfterThem) {
  for (int i = 0; i < 50; ++i) qk::make<Owning>(*pool_)->create_all(*pool_);
  EXPECT_EQ(Counted::alive, 50 * 6);
  end();
}

TEST_P(Owners, MayDestroyObjectsRecordedBeforeThem) {
  for (int i = 0; i < 50; ++i) {
    Owning all;
    all.create_all(*pool_);
    auto* const owner = qk::make<Owning>(*pool_);
    owner->single = std::move(all.single);
    owner->several = std::move(all.several);
    owner->base = std::move(all.base);
  }
  EXPECT_EQ(Counted::alive, 50 * 6);
  end();
}

TEST_P(Owners, CanBeContainersOfContainers) {
  for (int i = 0; i < 20; ++i) {
    auto* const rows = qk::make<Vector<Vector<int>>>(*pool_, qk::allocator<Vector<int>>(*pool_));
    for (std::size_t row = 0; row < 10; ++row) {
      rows->emplace_back(row, 1, qk::allocator<int>(*pool_));
    }
  }
  end();
}

/** A map whose memory is on the handle that it is on itself. */
struct Names : Counted {
  explicit Names(qk::On on) : resource(on), numbers(&resource) {}
  qk::memory_resource resource;
  std::pmr::map<std::pmr::string, std::pmr::vector<int>> numbers;
};

TEST_P(Owners, CanBeContainersOfAMemoryResource) {
  for (int i = 0; i < 20; ++i) {
    auto* const names = qk::make<Names>(*pool_, *pool_);
    for (const char* name : {"a name that needs memory of its own", "and another one like it"}) {
      names->numbers[std::pmr::string(name, &names->resource)].resize(20);
    }
  }
  end();
}

TEST_P(Owners, CanBeArrays) {
  auto* const rows = qk::make_array<Vector<int>>(*pool_, 3);
  for (int row = 0; row < 3; ++row) {
    rows[row] = Vector<int>(10, 1, qk::allocator<int>(*pool_));
  }
  auto* const owners = qk::make_array<Owning>(*pool_, 3);
  for (int i = 0; i < 3; ++i) owners[i].create_all(*pool_);
  end();
}

TEST_P(Owners, MayOwnOveralignedElements) {
  struct alignas(64) Wide {
    char bytes[64];
  };
  qk::make<Vector<Wide>>(*pool_, qk::allocator<Wide>(*pool_))->resize(3);
  end();
}

/** A list of pieces of memory, which its destructor walks. */
struct List : Counted {
  struct Node {
    Node* next;
  };
  explicit List(int owned_on) : hid(owned_on) {
    for (int i = 0; i < 5; ++i) {
      auto* const node = static_cast<Node*>(qk_mem_malloc(hid, 40));
      node->next = first;
      first = node;
    }
  }
  ~List() {
    const bool frees = qk_mem_frees_singly(hid, "lib/a.c", 1) != 0;
    while (first != nullptr) {
      Node* const next = first->next;
      is_readable = is_readable && (kit::is_live(first) || is_in_block);
      if (frees) qk_mem_free(hid, first);
      first = next;
    }
  }
  int hid;
  Node* first = nullptr;

  static inline bool is_readable = true;
  static inline bool is_in_block = false;
};

TEST_P(Owners, FindTheirMemoryReadable) {
  if (GetParam().environment.options == "") {
    kit::watch_memory();
    List::is_in_block =
        std::string(GetParam().options) != "" && std::string(GetParam().options) != "MULTITHREADED";
    static_cast<void>(qk::make<List>(*pool_, hid_));
    end();
    EXPECT_TRUE(List::is_readable);
  }
}

TEST_P(Owners, LeaveNoMemoryBehind) {
  kit::watch_memory();
  const auto count = [] {
    int live = 0;
    kit::for_each_live([&](const void*) { ++live; });
    return live;
  };
  pool_.emplace(GetParam().options, "OW");
  const int before = count();
  qk::make<Owning>(*pool_)->create_all(*pool_);
  static_cast<void>(qk::make<Freeing>(*pool_, hid_, qk_mem_malloc(hid_, 40)));
  auto* const rows = qk::make<Vector<Vector<int>>>(*pool_, qk::allocator<Vector<int>>(*pool_));
  rows->emplace_back(10U, 1, qk::allocator<int>(*pool_));
  GetParam().end(pool_);
  const bool is_cleared = pool_.has_value();
  pool_.reset();
  EXPECT_LT(count(), before) << (is_cleared ? "cleared" : "deleted");
}

/** Replaces its object by one that isn't registered. */
struct Replacing : Counted {
  qk::unique<Counted> part;
  ~Replacing() { part.reset(new Counted); }
};

TEST(OwnerOfAnUnrecordedObject, DestroysIt) {
  kit::align_requests();
  const Scene scene("");
  std::optional<qk::Handle> pool(std::in_place);
  for (int i = 0; i < 10; ++i) {
    auto part = qk::make_unique<Counted>(*pool);
    auto* const early = qk::make<Owning>(*pool);
    early->single = std::move(part);
    early->single.reset(new Counted);
    auto* const late = qk::make<Replacing>(*pool);
    late->part = qk::make_unique<Counted>(*pool);
  }
  EXPECT_EQ(Counted::alive, 40);
  pool.reset();
  EXPECT_EQ(Counted::alive, 0);
}

TEST(OwnerOfMemory, HasItFreedAtOnceIfTheHeapIsShown) {
  kit::align_requests();
  const Scene scene(Environment{"EXCEPTIONS", "DB", ""});
  kit::watch_memory();
  std::optional<qk::Handle> pool(std::in_place);
  static void* memory;
  static bool was_live;
  memory = qk_mem_malloc(pool->number(), 40);
  struct Watching {
    ~Watching() { was_live = kit::is_live(memory); }
  };
  was_live = true;
  static_cast<void>(qk::make<Watching>(*pool));
  pool.reset();
  EXPECT_FALSE(was_live);
}

TEST(OwnerOfMemory, LeavesTheRowsInTheOrderOfRecords) {
  kit::align_requests();
  Scene scene(Environment{"DEBUG=qk_mem_idel_handle", "", ""});
  std::optional<qk::Handle> pool(std::in_place);
  auto* const numbers = qk::make<Vector<char>>(*pool, 10U, 'x', qk::allocator<char>(*pool));
  EXPECT_EQ(numbers->size(), 10U);
  scene.skip_log();
  pool.reset();
  const std::string log = scene.log("qk_mem_idel_handle");
  const std::size_t memory = log.find("; M 10 ");
  const std::size_t object = log.find("; W ");
  EXPECT_NE(memory, std::string::npos) << log;
  EXPECT_NE(object, std::string::npos) << log;
  EXPECT_LT(memory, object);
}

/** Resizes its memory once more before it frees it. */
struct Resizing : Counted {
  Resizing(int owned_on, void* owned) : hid(owned_on), memory(owned) {}
  ~Resizing() {
    memory = qk_mem_realloc(hid, memory, 5000);
    resized = memory != nullptr;
    qk_mem_free(hid, memory);
  }
  int hid;
  void* memory;

  static inline bool resized = false;
};

TEST(OwnerThatResizesItsMemory, GetsItBackIfItIsStillThere) {
  kit::align_requests();
  const Scene scene("");
  kit::watch_memory();
  std::optional<qk::Handle> pool(std::in_place);
  void* const memory = qk_mem_malloc(pool->number(), 40);
  static_cast<void>(qk::make<Resizing>(*pool, pool->number(), memory));
  pool.reset();
  EXPECT_TRUE(Resizing::resized);
  EXPECT_FALSE(kit::is_live(memory));
}

TEST(OwnerThatResizesItsMemory, GetsNullIfItIsFree) {
  kit::align_requests();
  const Scene scene(Environment{"EXCEPTIONS", "DB", ""});
  std::optional<qk::Handle> pool(std::in_place);
  void* const memory = qk_mem_malloc(pool->number(), 40);
  static_cast<void>(qk::make<Resizing>(*pool, pool->number(), memory));
  Resizing::resized = true;
  pool.reset();
  EXPECT_FALSE(Resizing::resized);
}

TEST(OwnerThatReleasesTwice, IsWarnedOfTheSecondTime) {
  kit::align_requests();
  Scene scene("EXCEPTIONS=qk_ideregister");
  std::optional<qk::Handle> pool(std::in_place);
  static int hid;
  static void* memory;
  hid = pool->number();
  memory = qk_mem_malloc(hid, 40);
  struct Deregistering {
    ~Deregistering() {
      for (int i = 0; i < 2; ++i) {
        qk_mem_ideregister(hid, QK_MEM_EXTERNAL, memory, "lib/a.c", i);
      }
    }
  };
  static_cast<void>(qk::make<Deregistering>(*pool));
  scene.skip_log();
  pool.reset();
  const std::string warning = "   qk_mem_ideregister: WARNING:   3 [p1] ptr not found at a.c:1\n";
  EXPECT_EQ(scene.log(), warning + warning);
}

/** Registers another object when it ends, in a later array, which the handle destroys too. */
struct Registering {
  Registering(int on, std::uintptr_t other) : hid(on), address(other) {}
  ~Registering() {
    qk_mem_register(hid, QK_MEM_OBJECT, new kit::LoggingTracker("other", kit::at(address), ends),
                    1);
  }
  int hid;
  std::uintptr_t address;

  static inline std::string ends;
};

/** Frees memory in the place of an object at any address. */
class FreeingTracker : public qk::MemTracker {
 public:
  FreeingTracker(int hid, void* memory, void* tracked) : hid_(hid), memory_(memory) {
    address = tracked;
  }
  ~FreeingTracker() override { qk_mem_free(hid_, memory_); }
  [[nodiscard]] const std::type_info& tracked_type() const override { return typeid(int); }
  [[nodiscard]] bool same_type(const qk::MemTracker& /*other*/) const override { return true; }

 private:
  int hid_;
  void* memory_;
};

TEST(OwnerThatRegistersAnObject, LeavesTheNotesOfTheWalkInPlace) {
  kit::align_requests();
  Scene scene("EXCEPTIONS");
  std::optional<qk::Handle> pool(std::in_place);
  const int hid = pool->number();
  void* const memory = qk_mem_malloc(hid, 40);
  for (const std::uintptr_t address : {0x5050U, 0x50d0U, 0x5150U}) {
    static_cast<void>(qk::make<Registering>(*pool, hid, address));
  }
  qk_mem_register(hid, QK_MEM_OBJECT, new FreeingTracker(hid, memory, kit::at(0x5070)), 1);
  scene.skip_log();
  pool.reset();
  EXPECT_EQ(Registering::ends,
            "other destroys its object\nother destroys its object\nother destroys its object\n");
  EXPECT_EQ(scene.log(), "");
}

TEST(OwnerOfAHandle, EndsItWithObjectsThatUseTheOuterOne) {
  kit::align_requests();
  Scene scene("EXCEPTIONS");
  struct Nested : Counted {
    qk::Handle inner;
  };
  std::optional<qk::Handle> pool(std::in_place);
  void* const memory = qk_mem_malloc(pool->number(), 40);
  auto* const nested = qk::make<Nested>(*pool);
  static_cast<void>(qk::make<Freeing>(nested->inner, pool->number(), memory));
  scene.skip_log();
  pool.reset();
  EXPECT_EQ(Counted::alive, 0);
  EXPECT_EQ(scene.log(), "");
}

TEST(OwnerWithoutMemoryForNotes, EndsBeforeWhatItOwns) {
  for (const int request : {1, 2}) {
    kit::align_requests();
    Scene scene("EXCEPTIONS");
    std::optional<qk::Handle> pool(std::in_place);
    for (int i = 0; i < 10; ++i) {
      void* const memory = qk_mem_malloc(pool->number(), 40);
      static_cast<void>(qk::make<Freeing>(*pool, pool->number(), memory));
      auto part = qk::make_unique<Counted>(*pool);
      qk::make<Owning>(*pool)->single = std::move(part);
    }
    kit::watch_memory();
    static_cast<void>(qk::make<List>(*pool, pool->number()));
    scene.skip_log();
    kit::fail_requests_from(request);
    pool.reset();
    EXPECT_TRUE(kit::has_failed());
    kit::let_succeed();
    EXPECT_EQ(Counted::alive, 0);
    EXPECT_TRUE(List::is_readable);
    EXPECT_EQ(scene.log(), "");
  }
}

TEST(OwnerOnAnAutofreeHandle, EndsOnceAtExit) {
  const Scene scene("");
  const auto ended = kit::run({"EXCEPTIONS LOG=STDERR", "", ""}, [] {
    kit::align_requests();
    const int pool = qk_mem_new_handle("AUTOFREE", "");
    void* const memory = qk_mem_malloc(pool, 40);
    static_cast<void>(qk::make<Freeing>(qk::On(pool), pool, memory));
    auto part = qk::make_unique<Counted>(pool);
    qk::make<Owning>(qk::On(pool))->single = std::move(part);
    qk::make<Vector<Vector<int>>>(qk::On(pool), qk::allocator<Vector<int>>(pool))
        ->emplace_back(10U, 1, qk::allocator<int>(pool));
  });
  EXPECT_EQ(ended.exit_code, 0);
  EXPECT_EQ(ended.err, "QK_MEM_DEBUG:  initializing options [EXCEPTIONS LOG=STDERR]\n");
}

}  // namespace
