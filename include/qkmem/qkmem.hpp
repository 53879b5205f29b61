/**
 * The C++ interface of qkmem: handles that delete themselves, objects that are registered when they
 * are created, and standard containers whose memory is on a handle. C++17 and later. Everything
 * here is inline and calls qkmem.h, which explains handles, options and the log.
 *
 *   qk::Handle pool("MULTITHREADED", "PA");
 *   auto* map = qk::make<Map>(pool, 640, 480);                         // new and registration
 *   qk::unique<Tile[]> tiles = qk::make_unique<Tile[]>(pool, 12);      // the same for a scope
 *   std::vector<int, qk::allocator<int>> heights(pool);                // a standard container
 *   qk::memory_resource resource(pool);
 *   std::pmr::map<std::pmr::string, int> names(&resource);             // and a pmr one
 *   qk::destroy(pool, map);                                            // deregistration, delete
 *   Tile* row = nullptr;                                               // a growable array
 *   qk_mem_marralloc(pool.number(), &row, sizeof *row, 16);
 *
 * Conventions. They hold for everything below unless its comment says otherwise. The conventions of
 * qkmem.h hold too.
 *
 * (1) Location. Records and log lines show the caller's source location. A default argument takes
 *     it, so don't pass `where`. What happens at the end of a scope shows the location where the
 *     object of that scope was created.
 *
 * (2) Handles. Functions take a handle as a qk::On, to which a qk::Handle and the number of a
 *     handle convert. The number is an int: other types don't convert. qk::make() and
 *     qk::make_unique() refuse a literal, or another int without a name, that the constructor could
 *     take as well, since the handle may have been forgotten: write qk::On(number). A temporary
 *     qk::Handle, which ends with the expression, is refused where the result needs it longer.
 *
 * (3) Errors. If there is no memory, std::bad_alloc is thrown, as by `new`. An exception of a
 *     constructor is passed on, and nothing is left behind. Nothing else throws. If the handle
 *     can't record an object, or doesn't exist, the object is created and destroyed all the same.
 *     The handle's deletion then doesn't destroy it.
 *
 * (4) Lifetime. What is on a handle ends before the handle. Deletion and clear of a handle destroy
 *     the objects that are registered on it and free its memory, in the order of its records, and
 *     log nothing unless DEBUG is on. An object that the program destroys after that is destroyed
 *     twice. So is an object B, if an object A on the same handle owns it and the record of B comes
 *     first: destroy such objects yourself before the handle ends.
 *
 * (5) Threads. As in qkmem.h. One thread at a time uses an object of these classes.
 *
 * (6) Flags of the compiler. With -fno-exceptions, std::abort() is called instead of a throw. With
 *     -fno-rtti, objects and arrays can't be on handles (make(), make_array(), destroy(), unique),
 *     and a qk::memory_resource is equal only to itself. All files of a program use the same flags.
 */
#ifndef QKMEM_QKMEM_HPP_
#define QKMEM_QKMEM_HPP_

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>
#include <memory_resource>
#include <new>
#include <type_traits>
#include <typeinfo>
#include <utility>

#if __cplusplus >= 202002L && __has_include(<source_location>)
#include <source_location>
#endif

#include "qkmem/qkmem.h"

#pragma GCC visibility push(default)

namespace qk {

/* ---- The caller's location ----------------------------------------------------------------- */

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

/** The number of a handle, and the location of the call that uses it. Owns nothing. */
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
  [[nodiscard]] const char* file() const noexcept { return file_; }
  [[nodiscard]] int line() const noexcept { return line_; }

 private:
  const char* file_;  // not a Location, whose size depends on the language version
  int line_;
  int number_;
};

/* ---- Handles ------------------------------------------------------------------------------- */

/**
 * Owns a handle. The destructor deletes it with everything that is still on it, WITHOUT a warning,
 * and the report at the end of the program doesn't list it any more. To see what was forgotten: let
 * the destructor log it with QK_MEM_DEBUG="DEBUG=qk_mem_idel_handle", print a report with
 * qk_mem_dump() before it, or release() the handle, which the report at the end then lists.
 *
 * Can be moved, not copied.
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
        number_(qk_mem_inew_handle(options, tag, file_, line_)) {}

  /** Takes the handle over, which leaves `other` empty. */
  Handle(Handle&& other) noexcept
      : file_(other.file_), line_(other.line_), number_(other.release()) {}

  /** Deletes the present handle, and takes over the one of `other`, which is then empty. */
  Handle& operator=(Handle&& other) noexcept {
    Handle taken(std::move(other));
    std::swap(file_, taken.file_);
    std::swap(line_, taken.line_);
    std::swap(number_, taken.number_);
    return *this;
  }

  Handle(const Handle&) = delete;
  Handle& operator=(const Handle&) = delete;

  /** Deletes the handle, see above. Log lines show the location where it was created. */
  ~Handle() {
    if (number_ != 0) qk_mem_idel_handle(number_, file_, line_);
  }

  /** Returns the number for the functions of qkmem.h, or 0 if empty. */
  [[nodiscard]] int number() const noexcept { return number_; }

  /** Returns whether there is a handle. */
  [[nodiscard]] explicit operator bool() const noexcept { return number_ != 0; }

  /** Returns the bytes of data on the handle, as qk_mem_isize() does. */
  [[nodiscard]] std::size_t size(Location where = Location::current()) const noexcept {
    return qk_mem_isize(number_, where.file_name(), static_cast<int>(where.line()));
  }

  /** Empties a block-managed handle, as qk_mem_iclear_handle() does. Returns 0 or 5566. */
  int clear(Location where = Location::current()) noexcept {
    return qk_mem_iclear_handle(number_, where.file_name(), static_cast<int>(where.line()));
  }

  /** Returns the number and leaves this object empty. The caller then deletes the handle. */
  [[nodiscard]] int release() noexcept { return std::exchange(number_, 0); }

 private:
  const char* file_;
  int line_;
  int number_;
};

inline On::On(const Handle& handle, Location where) noexcept : On(handle.number(), where) {}

/* ---- Objects and arrays -------------------------------------------------------------------- */

namespace detail {

/** False for every type, but known only where a template is used. */
template <class T>
inline constexpr bool kNever = false;

/** Returns typeid(T). */
template <class T>
[[nodiscard]] const std::type_info& type_of() noexcept {
#if defined(__cpp_rtti)
  return typeid(T);
#else
  static_assert(kNever<T>, "objects on handles need RTTI: compile this without -fno-rtti");
  std::abort();
#endif
}

}  // namespace detail

/** Tracks an object of type T that `new` created. The destructor deletes the object. */
template <class T>
class Tracker : public MemTracker {
 public:
  /** @param object  what to track. The tracker owns it until `address` is set to null. */
  explicit Tracker(T* object = nullptr) noexcept {
    address = const_cast<std::remove_cv_t<T>*>(object);
  }

  ~Tracker() override { delete static_cast<T*>(address); }

  [[nodiscard]] const std::type_info& tracked_type() const override { return detail::type_of<T>(); }

  [[nodiscard]] bool same_type(const MemTracker& other) const override {
    return other.tracked_type() == detail::type_of<T>();
  }
};

/** Tracks an array of T that `new[]` created. The destructor deletes the array. */
template <class T>
class Tracker<T[]> : public MemTracker {
 public:
  /** @param elements  what to track. The tracker owns it until `address` is set to null. */
  explicit Tracker(T* elements = nullptr) noexcept {
    address = const_cast<std::remove_cv_t<T>*>(elements);
  }

  ~Tracker() override { delete[] static_cast<T*>(address); }

  [[nodiscard]] const std::type_info& tracked_type() const override { return detail::type_of<T>(); }

  [[nodiscard]] bool same_type(const MemTracker& other) const override {
    return other.tracked_type() == detail::type_of<T>();
  }
};

namespace detail {

/** Identifies an object or array to the library, without owning it. */
class Name final : public MemTracker {
 public:
  Name(void* object, const std::type_info& type) noexcept : type_(type) { address = object; }

  [[nodiscard]] const std::type_info& tracked_type() const override { return type_; }

  [[nodiscard]] bool same_type(const MemTracker& other) const override {
    return other.tracked_type() == type_;
  }

 private:
  const std::type_info& type_;
};

/** Identifies the complete object, of which `object` can be a base. */
template <class T>
[[nodiscard]] Name name_of_object(T* object) {
  void* const address = const_cast<std::remove_cv_t<T>*>(object);
#if defined(__cpp_rtti)
  if constexpr (std::is_polymorphic_v<T>) {
    if (object != nullptr) {
      return Name(dynamic_cast<void*>(const_cast<std::remove_cv_t<T>*>(object)), typeid(*object));
    }
  }
#endif
  return Name(address, type_of<T>());
}

template <class T>
[[nodiscard]] Name name_of_array(T* elements) noexcept {
  return Name(const_cast<std::remove_cv_t<T>*>(elements), type_of<T>());
}

[[nodiscard]] inline bool is_recorded(const On& on, const void* address) noexcept {
  return qk_mem_is_recorded(on.number(), address, on.file(), on.line()) != 0;
}

/** Registers what a tracker owns. If the handle doesn't record it, deletes the tracker only. */
inline bool enroll(const On& on, int type, std::unique_ptr<MemTracker> tracker, std::size_t size) {
  qk_mem_iregister(on.number(), type, tracker.get(), nullptr, size, on.file(), on.line());
  // The tracker's record is the latest and found fastest. It can be missing, though.
  const bool taken = is_recorded(on, tracker.get()) || is_recorded(on, tracker->address);
  if (!taken) tracker->address = nullptr;
  if (taken) static_cast<void>(tracker.release());
  return taken;
}

inline void deregister(const On& on, int type, Name name) noexcept {
  MemTracker* const tracker = &name;
  qk_mem_ideregister(on.number(), type, tracker, on.file(), on.line());
}

/** A new object or array, and whether its handle has recorded it. */
template <class T>
struct Made {
  T* address;
  bool recorded;
};

template <class T, class = void, class... Args>
inline constexpr bool kTakesInBraces = false;
template <class T, class... Args>
inline constexpr bool
    kTakesInBraces<T, std::void_t<decltype(T{std::declval<Args>()...})>, Args...> = true;

/** A number that converts to the type of the member that it initializes, even if it is narrower. */
template <class Number>
class Converting {
 public:
  explicit constexpr Converting(Number number) noexcept : number_(number) {}

  template <class Member, class = std::enable_if_t<std::is_arithmetic_v<Member>>>
  constexpr operator Member() const noexcept {
    return static_cast<Member>(number_);
  }

 private:
  Number number_;
};

/** Passes a number on as Converting, and everything else as it is. */
template <class Arg>
[[nodiscard]] constexpr decltype(auto) converting(Arg&& arg) noexcept {
  using Value = std::remove_cv_t<std::remove_reference_t<Arg>>;
  if constexpr (std::is_arithmetic_v<Value>) {
    return Converting<Value>(arg);
  } else {
    return std::forward<Arg>(arg);
  }
}

template <class T, class... Args>
inline constexpr bool kTakesConverted =
    kTakesInBraces<T, void, decltype(converting(std::declval<Args>()))...>;

/** Whether make() can create a T from the arguments. */
template <class T, class... Args>
struct CanBeMade
    : std::bool_constant<std::is_constructible_v<T, Args...> || kTakesInBraces<T, void, Args...> ||
                         kTakesConverted<T, Args...>> {};

/**
 * Whether the handle may be missing in a call: the first argument is an int without a name, and
 * the constructor could take it as well, like the 640 in make<Image>(640, 480).
 */
template <class T, class Number, class... Args>
inline constexpr bool kMayLackHandle =
    std::conjunction_v<std::negation<std::is_array<T>>, std::is_same<Number, int>,
                       CanBeMade<T, Number, Args...>>;

/**
 * Passes the arguments to a constructor or, if an aggregate has none, to its members. Numbers
 * convert as in the call of a constructor. Parentheses come last for aggregates, because the
 * version of the language decides whether they take members, and which warnings they cause.
 */
template <class T, class... Args>
[[nodiscard]] T* construct(Args&&... args) {
  static_assert(CanBeMade<T, Args...>::value,
                "no constructor, nor the members, take these arguments");
  constexpr bool kHasMembers = std::is_aggregate_v<T> && sizeof...(Args) > 0;
  if constexpr (!kHasMembers && std::is_constructible_v<T, Args...>) {
    return new T(std::forward<Args>(args)...);
  } else if constexpr (kTakesInBraces<T, void, Args...>) {
    return new T{std::forward<Args>(args)...};
  } else if constexpr (kTakesConverted<T, Args...>) {
    return new T{converting(std::forward<Args>(args))...};
  } else if constexpr (std::is_constructible_v<T, Args...>) {
    return new T(std::forward<Args>(args)...);
  } else {
    return nullptr;
  }
}

template <class T, class... Args>
[[nodiscard]] Made<T> make_object(const On& on, Args&&... args) {
  // The tracker is created first, because nothing may throw after the object exists.
  auto tracker = std::make_unique<Tracker<T>>();
  T* const object = construct<T>(std::forward<Args>(args)...);
  tracker->address = const_cast<std::remove_cv_t<T>*>(object);
  return {object, enroll(on, QK_MEM_OBJECT, std::move(tracker), sizeof(T))};
}

template <class T>
[[nodiscard]] Made<T> make_elements(const On& on, std::size_t n) {
  auto tracker = std::make_unique<Tracker<T[]>>();
  T* const elements = new T[n]();
  tracker->address = const_cast<std::remove_cv_t<T>*>(elements);
  return {elements, enroll(on, QK_MEM_ARRAY, std::move(tracker), n * sizeof(T))};
}

template <class T>
inline constexpr bool kIsArrayOfAnyLength = false;
template <class T>
inline constexpr bool kIsArrayOfAnyLength<T[]> = true;

}  // namespace detail

/**
 * Creates an object with `new` and registers it on a handle, with a size of sizeof(T).
 *
 * @param on    the handle, which owns the object until destroy().
 * @param args  for the constructor, or for the members of an aggregate. A number converts to the
 *              type of its member as it does for a constructor.
 * @return the object, never null.
 */
template <class T, class... Args>
[[nodiscard]] std::enable_if_t<!std::is_array_v<T>, T*> make(On on, Args&&... args) {
  return detail::make_object<T>(on, std::forward<Args>(args)...).address;
}

/** A handle that ends with the expression would take the object with it. */
template <class T, class... Args>
std::enable_if_t<!std::is_array_v<T>, T*> make(const Handle&& temporary, Args&&... args) = delete;

/** Is `number` a handle, or is it the first argument? Pass a handle as qk::On(number). */
template <class T, class Number, class... Args>
std::enable_if_t<detail::kMayLackHandle<T, Number, Args...>, T*> make(Number&& number,
                                                                      Args&&... args) = delete;

/**
 * Creates an array of `n` value-initialised elements with `new[]` and registers it on a handle. The
 * record shows one element with the bytes of the array. An `n` of 0 is warned about; destroy() must
 * be called for the result all the same.
 *
 * @return the first element, never null.
 */
template <class T>
[[nodiscard]] T* make_array(On on, std::size_t n) {
  return detail::make_elements<T>(on, n).address;
}

template <class T>
T* make_array(const Handle&& temporary, std::size_t n) = delete;

/**
 * Deregisters an object and deletes it.
 *
 * @param on      its handle. With another one it warns, and deletes the object, but not the record:
 *                the deletion of its own handle then destroys it a second time.
 * @param object  as returned by make(), or a base of it with a virtual destructor. Null is warned
 *                about.
 */
template <class T>
std::enable_if_t<!std::is_array_v<T>> destroy(On on, T* object) {
  static_assert(sizeof(T) > 0, "the class must be complete where its object is destroyed");
  detail::deregister(on, QK_MEM_OBJECT, detail::name_of_object(object));
  delete object;
}

/** The same for an array of make_array(): `qk::destroy<T[]>(on, elements)`. */
template <class Array>
std::enable_if_t<detail::kIsArrayOfAnyLength<Array>> destroy(
    On on, std::remove_extent_t<Array>* elements) {
  static_assert(sizeof(*elements) > 0, "the class must be complete where its array is destroyed");
  detail::deregister(on, QK_MEM_ARRAY, detail::name_of_array(elements));
  delete[] elements;
}

/**
 * The deleter of a qk::unique. Calls destroy() on the handle, with the location where the object
 * was created. If the handle didn't record the object, it only deletes it.
 */
template <class T>
class Deleter {
 public:
  Deleter() noexcept = default;

  /** @param recorded  whether the objects are registered on the handle. */
  explicit Deleter(On on, bool recorded = true) noexcept : on_(on), recorded_(recorded) {}

  /** The handle must not end with the expression. */
  explicit Deleter(const Handle&& temporary, bool recorded = true) = delete;

  /** Allows the conversion to a pointer to a base, if T can be deleted through it. */
  template <class U,
            class = std::enable_if_t<std::conjunction_v<
                std::negation<std::is_same<U, T>>, std::is_convertible<U*, T*>,
                std::disjunction<std::is_same<const U, T>, std::has_virtual_destructor<T>>>>>
  Deleter(const Deleter<U>& other) noexcept : on_(other.on()), recorded_(other.recorded()) {}

  void operator()(T* object) const {
    if (recorded_) {
      qk::destroy(on_, object);
    } else {
      delete object;
    }
  }

  [[nodiscard]] const On& on() const noexcept { return on_; }
  [[nodiscard]] bool recorded() const noexcept { return recorded_; }

 private:
  On on_ = On(0);
  bool recorded_ = false;
};

/** The same for arrays. */
template <class T>
class Deleter<T[]> {
 public:
  Deleter() noexcept = default;

  explicit Deleter(On on, bool recorded = true) noexcept : on_(on), recorded_(recorded) {}

  explicit Deleter(const Handle&& temporary, bool recorded = true) = delete;

  /** Allows the conversion to an array of constants. */
  template <class U, class = std::enable_if_t<std::conjunction_v<
                         std::negation<std::is_same<U, T>>, std::is_convertible<U (*)[], T (*)[]>>>>
  Deleter(const Deleter<U[]>& other) noexcept : on_(other.on()), recorded_(other.recorded()) {}

  void operator()(T* elements) const {
    if (recorded_) {
      qk::destroy<T[]>(on_, elements);
    } else {
      delete[] elements;
    }
  }

  [[nodiscard]] const On& on() const noexcept { return on_; }
  [[nodiscard]] bool recorded() const noexcept { return recorded_; }

 private:
  On on_ = On(0);
  bool recorded_ = false;
};

/** A std::unique_ptr to an object on a handle, or for T[] to an array, see make_unique(). */
template <class T>
using unique = std::unique_ptr<T, Deleter<T>>;

/** Like make(). The object is destroyed at the end of the scope. */
template <class T, class... Args>
[[nodiscard]] std::enable_if_t<!std::is_array_v<T>, unique<T>> make_unique(On on, Args&&... args) {
  const auto made = detail::make_object<T>(on, std::forward<Args>(args)...);
  return unique<T>(made.address, Deleter<T>(on, made.recorded));
}

template <class T, class... Args>
std::enable_if_t<!std::is_array_v<T>, unique<T>> make_unique(const Handle&& temporary,
                                                             Args&&... args) = delete;

template <class T, class Number, class... Args>
std::enable_if_t<detail::kMayLackHandle<T, Number, Args...>, unique<T>> make_unique(
    Number&& number, Args&&... args) = delete;

/** Like make_array(), for a scope: `qk::make_unique<T[]>(on, n)`. */
template <class Array>
[[nodiscard]] std::enable_if_t<detail::kIsArrayOfAnyLength<Array>, unique<Array>> make_unique(
    On on, std::size_t n) {
  const auto made = detail::make_elements<std::remove_extent_t<Array>>(on, n);
  return unique<Array>(made.address, Deleter<Array>(on, made.recorded));
}

template <class Array>
std::enable_if_t<detail::kIsArrayOfAnyLength<Array>, unique<Array>> make_unique(
    const Handle&& temporary, std::size_t n) = delete;

/* ---- Containers ---------------------------------------------------------------------------- */

namespace detail {

inline constexpr std::size_t kAlignment = QK_MEM_ALIGNMENT;

/** Throws or, if there are no exceptions, ends the program. */
template <class Exception>
[[noreturn]] void fail() {
#if defined(__cpp_exceptions)
  throw Exception();
#else
  std::abort();
#endif
}

[[nodiscard]] inline void* allocate_plain(const On& on, std::size_t size, std::size_t alignment) {
  void* const memory = qk_mem_imalloc(on.number(), size == 0 ? 1 : size,
                                      static_cast<int>(alignment), on.file(), on.line());
  if (memory == nullptr) fail<std::bad_alloc>();
  return memory;
}

/** Aligns inside a larger allocation, and stores its address in front of the aligned one. */
[[nodiscard]] inline void* allocate_aligned(const On& on, std::size_t size, std::size_t alignment) {
  if (size > std::numeric_limits<std::size_t>::max() - alignment) fail<std::bad_alloc>();
  void* const base = allocate_plain(on, size + alignment, kAlignment);
  const auto offset = alignment - reinterpret_cast<std::uintptr_t>(base) % alignment;
  char* const memory = static_cast<char*>(base) + offset;
  std::memcpy(memory - sizeof base, &base, sizeof base);
  return memory;
}

[[nodiscard]] inline void* base_of_aligned(const void* memory) noexcept {
  void* base = nullptr;
  std::memcpy(&base, static_cast<const char*>(memory) - sizeof base, sizeof base);
  return base;
}

[[nodiscard]] inline void* allocate(const On& on, std::size_t size, std::size_t alignment) {
  return alignment <= kAlignment ? allocate_plain(on, size, alignment)
                                 : allocate_aligned(on, size, alignment);
}

/** Does nothing if the handle doesn't free singly or doesn't exist: all is released together. */
inline void deallocate(const On& on, void* memory, std::size_t alignment) noexcept {
  if (qk_mem_frees_singly(on.number(), on.file(), on.line()) == 0) return;
  void* const base = alignment <= kAlignment ? memory : base_of_aligned(memory);
  qk_mem_ifree(on.number(), base, on.file(), on.line());
}

}  // namespace detail

/**
 * Allocates the memory of std::pmr containers on a handle. On a block-managed handle without
 * BLOCKFREE it is an arena, whose memory is released when the handle is cleared or deleted.
 *
 * Records and log lines show the location where the resource was created. An alignment above 16
 * takes that many bytes more, which the record includes. A size of 0 takes 1 byte. Two resources
 * are equal if they have the same handle.
 *
 * The resource must live longer than the containers that use it, and the handle longer than both.
 * It can be copied, but not assigned.
 */
class memory_resource : public std::pmr::memory_resource {
 public:
  explicit memory_resource(On on) noexcept : on_(on) {}

  /** A handle that ends with the expression can't serve containers. */
  explicit memory_resource(const Handle&& temporary) = delete;

  memory_resource(const memory_resource&) = default;

  /** Containers that live on the memory would return it to the wrong handle. */
  memory_resource& operator=(const memory_resource&) = delete;

  /** Returns the number of the handle. */
  [[nodiscard]] int handle() const noexcept { return on_.number(); }

 private:
  void* do_allocate(std::size_t size, std::size_t alignment) override {
    return detail::allocate(on_, size, alignment);
  }

  void do_deallocate(void* memory, std::size_t /*size*/, std::size_t alignment) override {
    detail::deallocate(on_, memory, alignment);
  }

  [[nodiscard]] bool do_is_equal(const std::pmr::memory_resource& other) const noexcept override {
#if defined(__cpp_rtti)
    const auto* const same = dynamic_cast<const memory_resource*>(&other);
    return same != nullptr && same->handle() == handle();
#else
    return this == &other;
#endif
  }

  On on_;
};

/**
 * An allocator for standard containers that aren't std::pmr ones. Memory, locations and alignments
 * are as with qk::memory_resource.
 *
 * A container that is copy-assigned keeps its handle. A container that is copied, moved,
 * move-assigned or swapped has the handle that its elements come from.
 *
 * An allocator that is created from nothing has the data handle. Containers create such allocators
 * themselves, for the elements that resize() adds to a container of containers, for instance, and
 * std::basic_string does so for the result of substr(). So `text = text.substr(1)` moves `text` to
 * the data handle; `text.erase(0, 1)` doesn't.
 */
template <class T>
class allocator {
 public:
  using value_type = T;
  using propagate_on_container_copy_assignment = std::false_type;
  using propagate_on_container_move_assignment = std::true_type;
  using propagate_on_container_swap = std::true_type;
  using is_always_equal = std::false_type;

  /** For QK_MEM_DATA_HANDLE. If a container creates it, it has a location in the container. */
  allocator(Location where = Location::current()) noexcept : on_(QK_MEM_DATA_HANDLE, where) {}

  /** Implicit, to allow `std::vector<int, qk::allocator<int>> v(pool)`. */
  allocator(const Handle& handle, Location where = Location::current()) noexcept
      : on_(handle, where) {}

  /** A handle that ends with the expression can't serve a container. */
  allocator(const Handle&& temporary) = delete;
  allocator(const Handle&& temporary, Location where) = delete;

  /** For the number of a handle. Explicit, since a container takes a number for its size. */
  explicit allocator(On on) noexcept : on_(on) {}

  /** The same handle and location for elements of another type. */
  template <class U>
  allocator(const allocator<U>& other) noexcept : on_(other.on()) {}

  /** Returns memory for `n` elements. On overflow throws std::bad_array_new_length. */
  [[nodiscard]] T* allocate(std::size_t n) {
    if (n > std::numeric_limits<std::size_t>::max() / sizeof(T)) {
      detail::fail<std::bad_array_new_length>();
    }
    return static_cast<T*>(detail::allocate(on_, n * sizeof(T), alignof(T)));
  }

  void deallocate(T* elements, std::size_t /*n*/) noexcept {
    detail::deallocate(on_, elements, alignof(T));
  }

  /** Returns the number of the handle. */
  [[nodiscard]] int handle() const noexcept { return on_.number(); }

  [[nodiscard]] const On& on() const noexcept { return on_; }

 private:
  On on_;
};

/** Equal if memory of one can be deallocated through the other. */
template <class T, class U>
[[nodiscard]] bool operator==(const allocator<T>& one, const allocator<U>& other) noexcept {
  return one.handle() == other.handle();
}

template <class T, class U>
[[nodiscard]] bool operator!=(const allocator<T>& one, const allocator<U>& other) noexcept {
  return !(one == other);
}

/* ---- Growable arrays ----------------------------------------------------------------------- */

namespace detail {

/** Fails to compile if T can't be moved as bytes and begin as zeroes. */
template <class T>
constexpr void check_element() noexcept {
  static_assert(std::is_trivially_copyable_v<T>,
                "elements of a growable array must be trivially copyable: it moves their bytes");
  static_assert(!std::is_const_v<T> && !std::is_volatile_v<T>,
                "elements of a growable array can't be const or volatile");
  static_assert(alignof(T) <= kAlignment, "a growable array aligns its elements to 16 bytes");
}

/** The address without its type, which may be const until check_element() refuses it. */
template <class T>
[[nodiscard]] void* untyped(T* elements) noexcept {
  return const_cast<std::remove_cv_t<T>*>(elements);
}

}  // namespace detail

}  // namespace qk

/**
 * As the function for `void**`, so that qk_mem_marralloc() takes the address of a typed pointer:
 * `int* numbers = nullptr; qk_mem_marralloc(hid, &numbers, sizeof *numbers, 10)`.
 */
template <class T>
std::int64_t qk_mem_imarralloc(int hid, T** address, std::size_t element_size,
                               std::size_t block_factor, const char* file, int line) {
  qk::detail::check_element<T>();
  void* elements = address == nullptr ? nullptr : qk::detail::untyped(*address);
  void** const untyped_address = address == nullptr ? nullptr : &elements;
  const std::int64_t index =
      qk_mem_imarralloc(hid, untyped_address, element_size, block_factor, file, line);
  if (address != nullptr) *address = static_cast<T*>(elements);
  return index;
}

/** The same for qk_mem_arrfree(). */
template <class T>
void qk_mem_iarrfree(int hid, T** address, const char* file, int line) {
  qk::detail::check_element<T>();
  void* elements = address == nullptr ? nullptr : qk::detail::untyped(*address);
  void** const untyped_address = address == nullptr ? nullptr : &elements;
  qk_mem_iarrfree(hid, untyped_address, file, line);
  if (address != nullptr) *address = static_cast<T*>(elements);
}

#pragma GCC visibility pop

#endif  // QKMEM_QKMEM_HPP_
