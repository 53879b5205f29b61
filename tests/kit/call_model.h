#ifndef TESTS_KIT_CALL_MODEL_H_
#define TESTS_KIT_CALL_MODEL_H_

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "tests/kit/charges.h"

/** Calls of the library in any order, beside the plainest books of what they must come to. */
namespace kit {

/** Where the next call comes from: a random sequence, or the bytes of an input. */
class Choices {
 public:
  virtual ~Choices() = default;

  /** A number below `end`, which is at least 1. */
  [[nodiscard]] virtual unsigned pick(unsigned end) = 0;
};

/**
 * Makes calls on handles of every kind, right ones and misuse whose outcome is documented, and
 * compares the library's sums with its own after each. Works where the library was started with
 * tracing on, so that the data handle keeps records too.
 */
class CallModel {
 public:
  explicit CallModel(Choices& choices);
  ~CallModel();
  CallModel(const CallModel&) = delete;
  CallModel& operator=(const CallModel&) = delete;

  /** Makes one call, or a few; false when something was not as it should be. */
  bool step();

  /** Gives everything back; false when something is left. */
  bool finish();

  /** What was wrong first. */
  [[nodiscard]] const std::string& complaint() const { return complaint_; }

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
  void allocate_in_vain();
  void resize();
  void release();
  void release_on_another();
  void resize_on_another();
  void enter();
  void enter_twice();
  void enter_on_another();
  void take_out();
  void make_object();
  void unmake_object();
  void push();
  void drop_array();
  void use_bad_number();
  void report();

  unsigned pick(unsigned end) { return choices_.pick(end); }
  Handle& any();
  Handle* another(const Handle& handle);
  std::uint64_t pick_size(const Handle& handle);
  Records::iterator pick_record(Handle& handle, Kind kind);
  Records::iterator pick_memory(Handle& handle);

  char* obtain(Handle& handle, std::uint64_t size);
  void hold(Handle& handle, char* memory, std::uint64_t size);
  void record(Handle& handle, char* memory, std::uint64_t bytes, Kind kind);
  void forget(Handle& handle, Records::iterator entry);
  void take_out_all(Handle& handle, char* memory);
  void expect_filled(const char* memory, std::uint64_t bytes);
  void expect_code(int code, const char* what);
  void expect(bool holds, const char* what);
  void expect_same_sums(const Handle& handle);
  void expect_same_tag(const char* name);
  void expect_same_sums();

  Choices& choices_;
  std::vector<std::unique_ptr<Handle>> handles_;
  std::map<std::string, Sums> leftovers_;  // what deleted handles have left in their tags
  std::string complaint_;
  std::string doing_;
  unsigned steps_ = 0;
};

}  // namespace kit

#endif  // TESTS_KIT_CALL_MODEL_H_
