#ifndef TESTS_KIT_CALL_MODEL_H_
#define TESTS_KIT_CALL_MODEL_H_

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "tests/kit/charges.h"

/** A simple model of the accounting, compared with the library over arbitrary calls. */
namespace kit {

/** Chooses the next call: a random sequence, or the bytes of an input. */
class Choices {
 public:
  virtual ~Choices() = default;

  /** A number below `end`, which is at least 1. */
  [[nodiscard]] virtual unsigned pick(unsigned end) = 0;
};

/**
 * Makes calls on handles of every kind, correct ones and misuse whose outcome is documented, and
 * compares the library's sums with its own after each call. Tracing must be on when the library
 * starts, so that the data handle keeps records too.
 */
class CallModel {
 public:
  explicit CallModel(Choices& choices);
  ~CallModel();
  CallModel(const CallModel&) = delete;
  CallModel& operator=(const CallModel&) = delete;

  /** Makes one call, or a few. Returns false if something is wrong. */
  bool step();

  /** Releases everything. Returns false if something is left. */
  bool finish();

  /** The first thing that was wrong. */
  [[nodiscard]] const std::string& error() const { return error_; }

 private:
  enum class Kind { kAllocated, kExternal, kObject };
  struct Entry {
    std::uint64_t bytes;
    Kind kind;
  };
  using Records = std::multimap<char*, Entry>;

  static constexpr std::uint64_t kHeader = 16;  // of a managed array
  static constexpr std::uint64_t kElement = 8;

  struct Handle {
    int hid;
    HandleKind kind;
    std::string tag;  // upper case
    Sums sums;        // without sums_of_structure()
    Records records;
    std::map<char*, std::uint64_t> unrecorded;  // pieces of blocks
    std::uint32_t trackers = 0;
    char* array = nullptr;  // its managed array, with elements of 8 bytes
    std::uint64_t capacity = 0;
    std::uint64_t count = 0;

    [[nodiscard]] bool is_blockmgmt() const { return kind != HandleKind::kOrdinary; }
    [[nodiscard]] bool records_allocations() const { return kind != HandleKind::kBlocks; }
    [[nodiscard]] std::uint64_t array_bytes() const { return kHeader + kElement * capacity; }
    void charge(Event event, std::uint64_t bytes) { kit::charge(sums, event, kind, bytes); }
  };

  static Sums sums_of(const Handle& handle);
  void create();
  void destroy();
  void delete_handle(std::size_t index);
  void clear();
  void allocate();
  void allocate_too_much();
  void resize();
  void release();
  void release_on_wrong_handle();
  void resize_on_wrong_handle();
  void register_external();
  void register_twice();
  void register_on_other_handle();
  void deregister();
  void create_object();
  void destroy_object();
  void push();
  void free_array();
  void use_invalid_handle();
  void report();

  unsigned pick(unsigned end) { return choices_.pick(end); }
  Handle& any_handle();
  Handle* other_handle(const Handle& handle);
  std::uint64_t pick_size(const Handle& handle);
  Records::iterator pick_record(Handle& handle, Kind kind);
  Records::iterator pick_memory(Handle& handle);

  char* allocate_memory(Handle& handle, std::uint64_t size);
  void add_memory(Handle& handle, char* memory, std::uint64_t size);
  void add_record(Handle& handle, char* memory, std::uint64_t bytes, Kind kind);
  void remove_record(Handle& handle, Records::iterator entry);
  void deregister_all(Handle& handle, char* memory);
  void expect_filled(const char* memory, std::uint64_t bytes);
  void expect_code(int code, const char* what);
  void expect(bool holds, const char* what);
  void expect_same_sums(const Handle& handle);
  void expect_same_tag(const char* name);
  void expect_same_sums();

  Choices& choices_;
  std::vector<std::unique_ptr<Handle>> handles_;
  std::map<std::string, Sums> leftovers_;  // of deleted handles in the sums of their tags
  std::string error_;
  std::string call_;
  unsigned steps_ = 0;
};

}  // namespace kit

#endif  // TESTS_KIT_CALL_MODEL_H_
