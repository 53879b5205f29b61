// Allocators of single pieces: the library, and those that it is compared with.
#ifndef QKMEM_BENCH_RATIOS_ALLOCATORS_H_
#define QKMEM_BENCH_RATIOS_ALLOCATORS_H_

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <mutex>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "qkmem/qkmem.h"

#ifdef HAVE_TALLOC
#include <talloc.h>
#endif

namespace ratios {

struct Malloc {
  void* allocate(std::size_t size) { return std::malloc(size); }
  void* resize(void* memory, std::size_t size) { return std::realloc(memory, size); }
  void release(void* memory) { std::free(memory); }
};

/** A library whose calls only forward: the lower limit for any library. */
struct EmptyCall {
  void* allocate(std::size_t size);
  void release(void* memory);
};

class Qkmem {
 public:
  explicit Qkmem(const char* options)
      : id_(options == nullptr ? QK_MEM_DATA_HANDLE : qk_mem_new_handle(options, "QB")) {}
  explicit Qkmem(const std::string& options) : Qkmem(options.c_str()) {}
  ~Qkmem() {
    if (id_ != QK_MEM_DATA_HANDLE) qk_mem_del_handle(id_);
  }
  Qkmem(const Qkmem&) = delete;
  Qkmem& operator=(const Qkmem&) = delete;

  void* allocate(std::size_t size) { return qk_mem_malloc(id_, size); }
  void* resize(void* memory, std::size_t size) { return qk_mem_realloc(id_, memory, size); }
  void release(void* memory) { qk_mem_free(id_, memory); }
  void clear() { qk_mem_clear_handle(id_); }

 private:
  int id_;
};

/** The record of a live pointer for the recording allocators below: 40 bytes and the address. */
struct Note {
  std::size_t size;
  std::size_t count;
  const char* file;
  std::uint64_t sequence;
  int line;
  int kind;
};

/** The usual way to record live pointers: a hash table with a mutex. */
class HashTable {
 public:
  void* allocate(std::size_t size) {
    void* memory = std::malloc(size);
    const std::lock_guard lock(mutex_);
    bytes_ += size;
    notes_.emplace(memory, Note{size, 1, __FILE__, ++sequence_, __LINE__, 'M'});
    return memory;
  }

  void* resize(void* memory, std::size_t size) {
    const std::lock_guard lock(mutex_);
    auto note = notes_.extract(memory);
    bytes_ += size - note.mapped().size;
    note.key() = std::realloc(memory, size);
    note.mapped() = Note{size, 1, __FILE__, ++sequence_, __LINE__, 'R'};
    return notes_.insert(std::move(note)).position->first;
  }

  void release(void* memory) {
    {
      const std::lock_guard lock(mutex_);
      const auto note = notes_.find(memory);
      bytes_ -= note->second.size;
      notes_.erase(note);
    }
    std::free(memory);
  }

 private:
  std::mutex mutex_;
  std::unordered_map<void*, Note> notes_;
  std::size_t bytes_ = 0;
  std::uint64_t sequence_ = 0;
};

/** The simplest way: an array of records that is searched from the front. */
class LinearSearch {
 public:
  void* allocate(std::size_t size) {
    void* memory = std::malloc(size);
    records_.push_back({memory, Note{size, 1, __FILE__, ++sequence_, __LINE__, 'M'}});
    return memory;
  }

  void release(void* memory) {
    std::size_t i = 0;
    while (records_[i].address != memory) ++i;
    records_[i] = records_.back();
    records_.pop_back();
    std::free(memory);
  }

 private:
  struct Record {
    void* address;
    Note note;
  };
  static_assert(sizeof(Record) == 48);

  std::vector<Record> records_;
  std::uint64_t sequence_ = 0;
};

#ifdef HAVE_TALLOC

class Talloc {
 public:
  Talloc() : context_(talloc_new(nullptr)) {}
  ~Talloc() { talloc_free(context_); }
  Talloc(const Talloc&) = delete;
  Talloc& operator=(const Talloc&) = delete;

  void* allocate(std::size_t size) { return talloc_size(context_, size); }
  void* resize(void* memory, std::size_t size) {
    return talloc_realloc_size(context_, memory, size);
  }
  void release(void* memory) { talloc_free(memory); }
  void clear() { talloc_free_children(context_); }

  [[nodiscard]] TALLOC_CTX* context() const { return context_; }

 private:
  TALLOC_CTX* context_;
};

class LockedTalloc {
 public:
  void* allocate(std::size_t size) {
    const std::lock_guard lock(mutex_);
    return talloc_.allocate(size);
  }

  void release(void* memory) {
    const std::lock_guard lock(mutex_);
    talloc_.release(memory);
  }

 private:
  std::mutex mutex_;
  Talloc talloc_;
};

#endif  // HAVE_TALLOC

}  // namespace ratios

#endif  // QKMEM_BENCH_RATIOS_ALLOCATORS_H_
