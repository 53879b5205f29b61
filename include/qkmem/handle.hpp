/** Handles of C++ programs, and the location of a call. See qkmem.hpp for the conventions. */
#ifndef QKMEM_HANDLE_HPP_
#define QKMEM_HANDLE_HPP_

#include <cstddef>
#include <cstdint>
#include <type_traits>
#include <utility>

#if __cplusplus >= 202002L && __has_include(<source_location>)
#include <source_location>
#endif

#include "qkmem/qkmem.h"

#pragma GCC visibility push(default)

namespace qk {

#if defined(__cpp_lib_source_location)
using Location = std::source_location;
#else
/** A location in the source. As a default argument, current() is the caller's location. */
class Location {
 public:
  [[nodiscard]] static constexpr Location current(
      const char* file = __builtin_FILE(), std::uint_least32_t line = __builtin_LINE()) noexcept {
    return Location(file, line);
  }

  [[nodiscard]] constexpr const char* file_name() const noexcept { return file_; }
  [[nodiscard]] constexpr std::uint_least32_t line() const noexcept { return line_; }

 private:
  constexpr Location(const char* file, std::uint_least32_t line) noexcept
      : file_(file), line_(line) {}

  const char* file_;
  std::uint_least32_t line_;
};
#endif

class Handle;

namespace detail {

/** Whether a type is a number, but not one that handles have. */
template <class Number>
inline constexpr bool kIsOtherNumber =
    std::conjunction_v<std::disjunction<std::is_arithmetic<Number>, std::is_enum<Number>>,
                       std::negation<std::is_same<Number, int>>,
                       std::negation<std::is_same<Number, decltype(QK_MEM_DATA_HANDLE)>>>;

}  // namespace detail

/**
 * The number of a handle, and the location of the call that uses it. Owns nothing. Made from a
 * qk::Handle, it also knows the handle's generation, and is refused when the handle is gone, even
 * if a new one has the number. Made from a number, it means the handle that has the number at a
 * call.
 */
class On {
 public:
  // Implicit, so that callers pass only the handle.
  On(const Handle& handle, Location where = Location::current()) noexcept;
  On(int number, Location where = Location::current()) noexcept
      : file_(where.file_name()), line_(static_cast<int>(where.line())), number_(number) {}

  /** Handles' numbers are of type int, or QK_MEM_DATA_HANDLE. Others are something else. */
  template <class Number, class = std::enable_if_t<detail::kIsOtherNumber<Number>>>
  On(Number number, Location where = Location::current()) = delete;

  [[nodiscard]] int number() const noexcept { return number_; }
  /** As qk_mem_generation() returns it; 0 if not known. */
  [[nodiscard]] std::uint32_t generation() const noexcept { return generation_; }
  [[nodiscard]] const char* file() const noexcept { return file_; }
  [[nodiscard]] int line() const noexcept { return line_; }

 private:
  const char* file_;  // not a Location, whose size depends on the language version
  int line_;
  int number_;
  std::uint32_t generation_ = 0;
};

namespace detail {

/** Whether the handle still exists, as far as that is known. If not, reports the QK_MEM_CALL_. */
[[nodiscard]] inline bool is_current(const On& on, int call) noexcept {
  return qk_mem_is_current(on.number(), on.generation(), call, on.file(), on.line()) != 0;
}

/**
 * Whether two mean the same handle. A number alone means whichever handle has it.
 */
[[nodiscard]] inline bool is_same_handle(const On& one, const On& other) noexcept {
  return one.number() == other.number() && (one.generation() == other.generation() ||
                                            one.generation() == 0 || other.generation() == 0);
}

}  // namespace detail

/**
 * Owns a handle. The destructor deletes it with everything that is still on it, WITHOUT a warning in
 * the log, and the report at the end of the program doesn't list it any more. To see what was
 * forgotten: switch the profile on (QK_MEM_PROFILE=SITES), which then tells how much it was and
 * where it was allocated, once for each line that makes handles, but for AUTOFREE and BLOCKMGMT
 * ones; let the destructor log each pointer with QK_MEM_DEBUG="DEBUG=qk_mem_idel_handle"; print a
 * report with qk_mem_dump() before it; or release() the handle, which the report at the end then
 * lists.
 *
 * A handle that was deleted by its number is not deleted again, nor is another one that has got the
 * number: the destructor and clear() log an error. Can be moved, not copied.
 */
class Handle {
 public:
  /**
   * Creates a handle. On failure this object is empty and qk_mem_error() returns the code.
   *
   * @param options,tag  as in qk_mem_inew_handle().
   */
  explicit Handle(const char* options = "", const char* tag = "",
                  Location where = Location::current()) noexcept
      : file_(where.file_name()),
        line_(static_cast<int>(where.line())),
        number_(qk_mem_inew_handle(options, tag, file_, line_)),
        generation_(number_ == 0 ? 0 : qk_mem_generation(number_)) {}

  /** Takes the handle over, which leaves `other` empty. */
  Handle(Handle&& other) noexcept
      : file_(other.file_),
        line_(other.line_),
        number_(std::exchange(other.number_, 0)),
        generation_(std::exchange(other.generation_, 0)) {}

  /** Deletes the present handle, and takes over the one of `other`, which is then empty. */
  Handle& operator=(Handle&& other) noexcept {
    Handle taken(std::move(other));
    std::swap(file_, taken.file_);
    std::swap(line_, taken.line_);
    std::swap(number_, taken.number_);
    std::swap(generation_, taken.generation_);
    return *this;
  }

  Handle(const Handle&) = delete;
  Handle& operator=(const Handle&) = delete;

  /** Deletes the handle, see above. Log lines show the location where it was created. */
  ~Handle() {
    if (number_ != 0 &&
        qk_mem_is_current(number_, generation_, QK_MEM_CALL_DEL_HANDLE, file_, line_) != 0) {
      qk_mem_tell_forgotten(number_, file_, line_);
      qk_mem_idel_handle(number_, file_, line_);
    }
  }

  /** Returns the number for the functions of qkmem.h, or 0 if empty. */
  [[nodiscard]] int number() const noexcept { return number_; }

  /** Returns the generation, as qk_mem_generation() does, or 0 if empty. */
  [[nodiscard]] std::uint32_t generation() const noexcept { return generation_; }

  /** Returns whether there is a handle. */
  [[nodiscard]] explicit operator bool() const noexcept { return number_ != 0; }

  /** Returns the bytes of data on the handle, as qk_mem_isize() does. */
  [[nodiscard]] std::size_t size(Location where = Location::current()) const noexcept {
    return qk_mem_isize(number_, where.file_name(), static_cast<int>(where.line()));
  }

  /** Empties a block-managed handle, as qk_mem_iclear_handle() does. Returns 0 or 5566. */
  int clear(Location where = Location::current()) noexcept {
    const On on(*this, where);
    if (!detail::is_current(on, QK_MEM_CALL_CLEAR_HANDLE)) return QK_MEM_ERROR_HANDLE;
    return qk_mem_iclear_handle(number_, on.file(), on.line());
  }

  /** Returns the number and leaves this object empty. The caller then deletes the handle. */
  [[nodiscard]] int release() noexcept {
    generation_ = 0;
    return std::exchange(number_, 0);
  }

 private:
  const char* file_;
  int line_;
  int number_;
  std::uint32_t generation_;
};

inline On::On(const Handle& handle, Location where) noexcept : On(handle.number(), where) {
  generation_ = handle.generation();
}

}  // namespace qk

#pragma GCC visibility pop

#endif  // QKMEM_HANDLE_HPP_
