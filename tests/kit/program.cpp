#include "tests/kit/program.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "core/handle_array.h"
#include "core/kinds.h"
#include "core/registry.h"
#include "core/switches.h"
#include "qkmem/qkmem.h"
#include "tests/kit/failing_allocator.h"
#include "tests/kit/failing_runs.h"
#include "tests/kit/library_memory.h"
#include "tests/kit/live_memory.h"
#include "tests/kit/scene.h"

namespace kit {
namespace {

constexpr char kFile[] = "src/app.c";

bool is_blockmgmt(int hid) { return has_handle(hid) && handle_of(hid).blockmgmt != 0; }

bool tracks(int hid) { return has_handle(hid) && handle_of(hid).track != 0; }

/** With nothing configured, calls on the data handle are calls of the system's allocator. */
bool bypasses(int hid) { return hid == QK_MEM_DATA_HANDLE && qk_mem_debug_on() == 0; }

bool is_recorded(int hid, const void* memory) {
  return qk_mem_is_recorded(hid, memory, kFile, 1) != 0;
}

/** A block-managed handle frees no unknown memory, and pieces only with BLOCKFREE. */
bool can_free(int hid, const void* memory) {
  if (bypasses(hid)) return true;
  if (!has_handle(hid)) return false;
  if (!is_blockmgmt(hid)) return true;
  return is_recorded(hid, memory) && (handle_of(hid).blockfree != 0 || is_live(memory));
}

/** A piece of a block can be resized only if its handle records its size. */
bool can_resize(int hid, const void* memory) {
  return !is_blockmgmt(hid) || (handle_of(hid).blockfree != 0 && is_recorded(hid, memory));
}

}  // namespace

bool has_handle(int hid) { return qk::mem::handle_slots().at(hid - 1) != nullptr; }

bool has_lost_handle_array() { return qk::mem::handle_slots().count < Qk_mem_avail_handles; }

/** A call that fails for lack of memory must succeed when repeated, if the handle exists. */
template <class Call>
void* Program::attempt(int hid, Call call) {
  void* memory = call();
  if (memory != nullptr) return memory;
  require(qk_mem_error() == (bypasses(hid) || has_handle(hid) ? 5012 : 5566),
          "a failure with a wrong error code");
  if (has_failed()) note_failure();
  let_succeed();
  check();
  if (!bypasses(hid) && !has_handle(hid)) return nullptr;
  memory = call();
  require(memory != nullptr, "the repeated call fails as well");
  return memory;
}

/** A failed resize must not change the record. */
template <class Call>
void* Program::attempt_resize(const Piece& piece, Call call) {
  const bool recorded = !bypasses(piece.hid) && is_recorded(piece.hid, piece.memory);
  return attempt(piece.hid, [&] {
    void* memory = call();
    require(memory != nullptr || recorded == is_recorded(piece.hid, piece.memory),
            "a failed resize has changed the record");
    return memory;
  });
}

/** A handle is created even if its own record is missing. */
int Program::note_created(int hid) {
  if (hid != 0 && tracks(hid) && !is_recorded(hid, &handle_of(hid))) note_failure();
  return hid;
}

int Program::create_handle(const char* options, const char* tag) {
  int hid = qk_mem_inew_handle(options, tag, kFile, 1);
  if (hid != 0) return note_created(hid);
  require(qk_mem_error() == 5012 || has_lost_handle_array(),
          "a handle is refused with a wrong error code");
  note_failure();
  let_succeed();
  check();
  hid = qk_mem_inew_handle(options, tag, kFile, 1);
  require(hid != 0 || has_lost_handle_array(), "the repeated creation fails as well");
  if (hid == 0) require(qk_mem_error() == 5566, "a refused handle and a wrong error code");
  return note_created(hid);
}

void Program::delete_handle(int hid) {
  check();
  const bool exists = has_handle(hid) && hid != QK_MEM_DATA_HANDLE;
  bool is_released[kMost] = {};
  for (int i = 0; i < count_; ++i) {
    is_released[i] = exists && pieces_[i].hid == hid && is_recorded(hid, pieces_[i].memory);
  }
  const bool pieces_of_blocks = is_blockmgmt(hid);
  require(qk_mem_idel_handle(hid, kFile, 2) == (exists ? 0 : 5566), "deletion");
  if (!exists) return;
  for (int i = 0; i < count_; ++i) {
    if (pieces_[i].memory == nullptr || pieces_[i].hid != hid) continue;
    void* memory = pieces_[i].memory;
    if (is_released[i]) require(!is_live(memory), "recorded memory outlives its handle");
    if (!is_released[i] && (!pieces_of_blocks || is_live(memory))) std::free(memory);
    forget(i);
  }
}

void Program::clear(int hid) {
  check();
  const int expected = is_blockmgmt(hid) ? 0 : 5566;
  bool is_released[kMost] = {};
  for (int i = 0; i < count_; ++i) {
    const Piece& piece = pieces_[i];
    is_released[i] = piece.memory != nullptr && piece.hid == hid &&
                     (!is_live(piece.memory) || is_recorded(hid, piece.memory));
  }
  require(qk_mem_iclear_handle(hid, kFile, 3) == expected, "clear");
  if (expected != 0) return;
  for (int i = 0; i < count_; ++i) {
    if (!is_released[i]) continue;
    require(!is_live(pieces_[i].memory), "memory outlives the clear");
    forget(i);
  }
  check();
}

int Program::malloc(int hid, std::size_t size) {
  return hold(hid, attempt(hid, [&] { return qk_mem_imalloc(hid, size, 16, kFile, 4); }), size);
}

int Program::calloc(int hid, std::size_t num, std::size_t size) {
  void* memory = attempt(hid, [&] { return qk_mem_icalloc(hid, num, size, 16, kFile, 5); });
  const auto* bytes = static_cast<const char*>(memory);
  for (std::size_t i = 0; memory != nullptr && i < num * size; ++i) {
    require(bytes[i] == 0, "memory of calloc isn't zero");
  }
  return hold(hid, memory, num * size);
}

int Program::strdup(int hid, const char* text) {
  void* memory = attempt(hid, [&] { return qk_mem_istrdup(hid, text, kFile, 6); });
  require(memory == nullptr || std::strcmp(static_cast<char*>(memory), text) == 0, "copy");
  return hold(hid, memory, std::strlen(text) + 1);
}

int Program::realloc_new(int hid, std::size_t size) {
  void* memory = attempt(hid, [&] { return qk_mem_irealloc(hid, nullptr, size, 16, kFile, 7); });
  return hold(hid, memory, size);
}

void Program::realloc(int index, std::size_t size) {
  if (!holds_at(index)) return;
  const Piece piece = pieces_[index];
  if (!can_resize(piece.hid, piece.memory)) return;
  void* memory = attempt(
      piece.hid, [&] { return qk_mem_irealloc(piece.hid, piece.memory, size, 16, kFile, 8); });
  const std::size_t kept = is_blockmgmt(piece.hid) ? 0 : std::min(size, piece.size);
  for (std::size_t i = 0; i < kept; ++i) {
    require(static_cast<char*>(memory)[i] == piece.mark, "realloc lost contents");
  }
  pieces_[index].memory = static_cast<char*>(memory);
  pieces_[index].size = size;
  std::memset(memory, piece.mark, size);
  check();
}

void Program::recalloc(int index, std::size_t num, std::size_t size) {
  if (!holds_at(index)) return;
  const Piece piece = pieces_[index];
  if (!can_resize(piece.hid, piece.memory)) return;
  const std::size_t old_num = piece.size / size;
  void* memory = attempt_resize(piece, [&] {
    return qk_mem_irecalloc(piece.hid, piece.memory, num, size, old_num, 16, kFile, 9);
  });
  for (std::size_t i = old_num * size; i < num * size; ++i) {
    require(static_cast<char*>(memory)[i] == 0, "new elements aren't zero");
  }
  pieces_[index].memory = static_cast<char*>(memory);
  pieces_[index].size = num * size;
  std::memset(memory, piece.mark, num * size);
  check();
}

void Program::free(int index) {
  if (!holds_at(index)) return;
  const Piece piece = pieces_[index];
  forget(index);
  const bool stays = !can_free(piece.hid, piece.memory);
  qk_mem_ifree(piece.hid, piece.memory, kFile, 10);
  require(!is_live(piece.memory) || stays, "free left the memory");
  if (is_live(piece.memory)) std::free(piece.memory);
  require(stays || !is_recorded(piece.hid, piece.memory), "free left the record");
  check();
}

int Program::register_external(int hid, std::size_t size) {
  void* memory = std::malloc(size);
  if (memory == nullptr) {
    // A failure of the program's own request is not what is tested.
    let_succeed();
    memory = std::malloc(size);
  }
  qk_mem_iregister(hid, QK_MEM_EXTERNAL, memory, nullptr, size, kFile, 11);
  return hold(hid, memory, size);
}

void Program::deregister(int index) {
  if (!holds_at(index)) return;
  const Piece piece = pieces_[index];
  qk_mem_ideregister(piece.hid, QK_MEM_EXTERNAL, piece.memory, kFile, 12);
  check();
  require(!is_recorded(piece.hid, piece.memory), "deregistration left the record");
  forget(index);
  std::free(piece.memory);
}

void Program::push(int hid, std::size_t block_factor) {
  void* const before = array_.elements;
  std::int64_t index = qk_mem_imarralloc(hid, &array_.elements, 8, block_factor, kFile, 13);
  if (index < 0) {
    require(index == -2, "a wrong index");
    require(array_.elements == before, "an array has moved in a failed growth");
    if (has_failed()) note_failure();
    let_succeed();
    check();
    if (!bypasses(hid) && !has_handle(hid)) return;
    if (before != nullptr && !can_resize(hid, static_cast<char*>(before) - 16)) return;
    index = qk_mem_imarralloc(hid, &array_.elements, 8, block_factor, kFile, 13);
  }
  require(index == array_.count, "a wrong index");
  std::memcpy(static_cast<char*>(array_.elements) + 8 * index, "abcdefgh", 8);
  ++array_.count;
  check();
}

void Program::free_array(int hid) {
  qk_mem_iarrfree(hid, &array_.elements, kFile, 14);
  require(array_.elements == nullptr, "a freed array has an address");
  array_.count = 0;
  check();
}

void Program::check() const {
  note_code();
  for (int i = 0; i < count_; ++i) {
    const Piece& piece = pieces_[i];
    for (std::size_t at = 0; at < piece.size; ++at) {
      require(piece.memory[at] == piece.mark, "memory has changed");
    }
  }
  for (std::int64_t i = 0; i < array_.count; ++i) {
    require(std::memcmp(static_cast<char*>(array_.elements) + 8 * i, "abcdefgh", 8) == 0,
            "an element has changed");
  }
}

void Program::expect_nothing_lost() const {
  check();
  const LibraryMemory library;
  for_each_live([&](const void* memory) {
    if (!holds(memory) && !library.has(memory)) require(false, "lost memory");
  });
}

int Program::hold(int hid, void* memory, std::size_t size) {
  if (memory == nullptr) return -1;
  require(count_ < kMost, "too many pieces for the program");
  if (tracks(hid) && !bypasses(hid) && !is_recorded(hid, memory)) note_failure();
  pieces_[count_] = {static_cast<char*>(memory), size, hid, ++mark_};
  std::memset(memory, mark_, size);
  check();
  return count_++;
}

void Program::forget(int index) { pieces_[index] = {}; }

bool Program::holds_at(int index) const { return index >= 0 && pieces_[index].memory != nullptr; }

bool Program::holds(const void* memory) const {
  if (array_.elements != nullptr && static_cast<char*>(array_.elements) - 16 == memory) return true;
  return std::any_of(pieces_, pieces_ + count_,
                     [&](const Piece& piece) { return piece.memory == memory; });
}

}  // namespace kit
