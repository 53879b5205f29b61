/**
 * The C++ front of qkmem: handles that delete themselves, objects that are registered where they
 * are made, standard containers on handles. C++17 and later; everything here is inline and calls
 * nothing but qkmem.h, where handles, options and the log are explained.
 *
 *   qk::Handle pool("MULTITHREADED", "PA");
 *   auto* map = qk::make<Map>(pool, 640, 480);                         // new and registration
 *   qk::unique<Tile[]> tiles = qk::make_unique<Tile[]>(pool, 12);      // the same for a scope
 *   std::vector<int, qk::allocator<int>> heights(pool);                // a plain container
 *   qk::memory_resource resource(pool);
 *   std::pmr::map<std::pmr::string, int> names(&resource);             // and a pmr one
 *   qk::destroy(pool, map);                                            // deregistration and delete
 *
 * Conventions, valid for everything below unless its own text says otherwise:
 *
 *  - Records and log lines show the caller's place, which default arguments take: nobody passes a
 *    `where`. What happens at the end of a scope shows the place where its object was made.
 *  - Functions take a handle as an `On`, which a qk::Handle and a handle's number turn into.
 *  - Memory that can't be had throws std::bad_alloc, as `new` does; what a constructor throws goes
 *    on to the caller, and then nothing is left behind. Nothing else throws. Where a handle can't
 *    record, or doesn't exist, objects are made and destroyed all the same, and are their maker's.
 *  - What lives on a handle ends before it. Deleting or clearing a handle destroys the objects that
 *    are registered on it and frees its memory, in the order of its records. Whatever is destroyed
 *    later is destroyed twice; so is what an object of the handle owns on the same handle, where
 *    its record comes first. Empty such a handle yourself before its end.
 *  - Threads: as for the functions of qkmem.h. Objects of these classes are plain values, which one
 *    thread uses at a time.
 */
#ifndef QKMEM_QKMEM_HPP_
#define QKMEM_QKMEM_HPP_

#include <cstddef>
#include <cstdint>
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

/* ---- The caller's place -------------------------------------------------------------------- */

#if defined(__cpp_lib_source_location)
using Location = std::source_location;
#else
/** A place in the source; as a default argument, current() is the place of the call. */
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

/** A handle's number and the place of the call that uses it. Owns nothing. */
class On {
 public:
  // Implicit, so that callers name the handle alone.
  On(const Handle& handle, Location where = Location::current()) noexcept;
  On(int number, Location where = Location::current()) noexcept
      : file_(where.file_name()), line_(static_cast<int>(where.line())), number_(number) {}

  [[nodiscard]] int number() const noexcept { return number_; }
  [[nodiscard]] const char* file() const noexcept { return file_; }
  [[nodiscard]] int line() const noexcept { return line_; }

 private:
  const char* file_;  // not a Location, whose size depends on the language's version
  int line_;
  int number_;
};

/* ---- Handles ------------------------------------------------------------------------------- */

/** Owns a handle, which is deleted at the end with all that it holds. Can be moved, not copied. */
class Handle {
 public:
  /**
   * Creates a handle; where that fails, this object is empty and qk_mem_error() tells why.
   *
   * @param options,tag  as in qk_mem_inew_handle().
   */
  explicit Handle(const char* options = "", const char* tag = "",
                  Location where = Location::current()) noexcept
      : file_(where.file_name()),
        line_(static_cast<int>(where.line())),
        number_(qk_mem_inew_handle(options, tag, file_, line_)) {}

  /** Takes the handle over; `other` is empty then. */
  Handle(Handle&& other) noexcept
      : file_(other.file_), line_(other.line_), number_(other.release()) {}

  /** Deletes the handle held so far and takes the other one over. */
  Handle& operator=(Handle&& other) noexcept {
    Handle taken(std::move(other));
    std::swap(file_, taken.file_);
    std::swap(line_, taken.line_);
    std::swap(number_, taken.number_);
    return *this;
  }

  Handle(const Handle&) = delete;
  Handle& operator=(const Handle&) = delete;

  /** Deletes the handle; lines show the place where it was made. */
  ~Handle() {
    if (number_ != 0) qk_mem_idel_handle(number_, file_, line_);
  }

  /** The number for the functions of qkmem.h; 0 when empty. */
  [[nodiscard]] int number() const noexcept { return number_; }

  /** Whether there is a handle. */
  [[nodiscard]] explicit operator bool() const noexcept { return number_ != 0; }

  /** Bytes of data that live on the handle, as qk_mem_isize() tells them. */
  [[nodiscard]] std::size_t size(Location where = Location::current()) const noexcept {
    return qk_mem_isize(number_, where.file_name(), static_cast<int>(where.line()));
  }

  /** Empties a block-managed handle, as qk_mem_iclear_handle() does: 0, or the code 5566. */
  int clear(Location where = Location::current()) noexcept {
    return qk_mem_iclear_handle(number_, where.file_name(), static_cast<int>(where.line()));
  }

  /** Gives the handle up: its number is the caller's to delete, and this object is empty. */
  [[nodiscard]] int release() noexcept { return std::exchange(number_, 0); }

 private:
  const char* file_;
  int line_;
  int number_;
};

inline On::On(const Handle& handle, Location where) noexcept : On(handle.number(), where) {}

/* ---- Objects and arrays -------------------------------------------------------------------- */

/** Tracks an object of type T that `new` made: the end of the tracker is the end of the object. */
template <class T>
class Tracker : public MemTracker {
 public:
  /** @param object  what to track; the tracker owns it until `address` is null again. */
  explicit Tracker(T* object = nullptr) noexcept {
    address = const_cast<std::remove_cv_t<T>*>(object);
  }

  ~Tracker() override { delete static_cast<T*>(address); }

  [[nodiscard]] const std::type_info& tracked_type() const override { return typeid(T); }

  [[nodiscard]] bool same_type(const MemTracker& other) const override {
    return other.tracked_type() == typeid(T);
  }
};

/** Tracks an array of T that `new[]` made, and destroys its elements from the last to the first. */
template <class T>
class Tracker<T[]> : public MemTracker {
 public:
  /** @param elements  what to track; the tracker owns it until `address` is null again. */
  explicit Tracker(T* elements = nullptr) noexcept {
    address = const_cast<std::remove_cv_t<T>*>(elements);
  }

  ~Tracker() override { delete[] static_cast<T*>(address); }

  [[nodiscard]] const std::type_info& tracked_type() const override { return typeid(T); }

  [[nodiscard]] bool same_type(const MemTracker& other) const override {
    return other.tracked_type() == typeid(T);
  }
};

namespace detail {

/** Names an object or array to the library without owning it. */
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

/** The name of an object as it was made, which a base of it may stand for. */
template <class T>
[[nodiscard]] Name name_of_object(T* object) {
  void* const address = const_cast<std::remove_cv_t<T>*>(object);
  if constexpr (std::is_polymorphic_v<T>) {
    if (object != nullptr) {
      return Name(dynamic_cast<void*>(const_cast<std::remove_cv_t<T>*>(object)), typeid(*object));
    }
  }
  return Name(address, typeid(T));
}

template <class T>
[[nodiscard]] Name name_of_array(T* elements) noexcept {
  return Name(const_cast<std::remove_cv_t<T>*>(elements), typeid(T));
}

[[nodiscard]] inline bool is_recorded(const On& on, const void* address) noexcept {
  return qk_mem_is_recorded(on.number(), address, on.file(), on.line()) != 0;
}

/** Registers what a tracker owns; where the handle doesn't record, what it owned stays alone. */
inline bool enroll(const On& on, int type, std::unique_ptr<MemTracker> tracker, std::size_t size) {
  qk_mem_iregister(on.number(), type, tracker.get(), nullptr, size, on.file(), on.line());
  // The record of the tracker is the one made last, and found at once. It can be missing, though.
  const bool taken = is_recorded(on, tracker.get()) || is_recorded(on, tracker->address);
  if (!taken) tracker->address = nullptr;
  if (taken) static_cast<void>(tracker.release());
  return taken;
}

inline void deregister(const On& on, int type, Name name) noexcept {
  MemTracker* const tracker = &name;
  qk_mem_ideregister(on.number(), type, tracker, on.file(), on.line());
}

/** Something new, and whether its handle has recorded it. */
template <class T>
struct Made {
  T* address;
  bool recorded;
};

/** Arguments go to a constructor or, where an aggregate has none for them, to its members. */
template <class T, class... Args>
[[nodiscard]] T* construct(Args&&... args) {
  if constexpr (std::is_constructible_v<T, Args...>) {
    return new T(std::forward<Args>(args)...);
  } else {
    return new T{std::forward<Args>(args)...};
  }
}

template <class T, class... Args>
[[nodiscard]] Made<T> make_object(const On& on, Args&&... args) {
  // The tracker comes first: behind the object nothing is left that could throw.
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
 * Makes an object with `new` and registers it on a handle.
 *
 * @param on    the handle, which owns the object until destroy().
 * @param args  for the constructor, or for the members of an aggregate.
 * @return the object; never null.
 */
template <class T, class... Args>
[[nodiscard]] std::enable_if_t<!std::is_array_v<T>, T*> make(On on, Args&&... args) {
  return detail::make_object<T>(on, std::forward<Args>(args)...).address;
}

/**
 * Makes an array of `n` elements with `new[]`, zero or made by their default constructor, and
 * registers it on a handle. The record shows its bytes. For no elements, which is warned about, the
 * result is an address that belongs to destroy() all the same.
 *
 * @return the first element; never null.
 */
template <class T>
[[nodiscard]] T* make_array(On on, std::size_t n) {
  return detail::make_elements<T>(on, n).address;
}

/**
 * Deregisters an object and deletes it.
 *
 * @param on      its handle. Any other one warns, and its own still holds the record.
 * @param object  as make() gave it, or a base of it with a virtual destructor. Null warns.
 */
template <class T>
std::enable_if_t<!std::is_array_v<T>> destroy(On on, T* object) {
  static_assert(sizeof(T) > 0, "the class must be complete where its object is destroyed");
  detail::deregister(on, QK_MEM_OBJECT, detail::name_of_object(object));
  delete object;
}

/** The same for an array that make_array() gave: `qk::destroy<T[]>(on, elements)`. */
template <class Array>
std::enable_if_t<detail::kIsArrayOfAnyLength<Array>> destroy(
    On on, std::remove_extent_t<Array>* elements) {
  static_assert(sizeof(*elements) > 0, "the class must be complete where its array is destroyed");
  detail::deregister(on, QK_MEM_ARRAY, detail::name_of_array(elements));
  delete[] elements;
}

/**
 * What ends the object of a qk::unique: destroy(), on the handle and with the place of its making.
 * An object that the handle could not record is deleted only.
 */
template <class T>
class Deleter {
 public:
  Deleter() noexcept = default;

  /** @param recorded  whether the objects to come are registered on the handle. */
  explicit Deleter(On on, bool recorded = true) noexcept : on_(on), recorded_(recorded) {}

  /** A pointer to an object becomes one to a base of it, if deletion through the base is right. */
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

/** A std::unique_ptr to an object of a handle, or to an array for T[]. make_unique() makes it. */
template <class T>
using unique = std::unique_ptr<T, Deleter<T>>;

/** make() for a scope. */
template <class T, class... Args>
[[nodiscard]] std::enable_if_t<!std::is_array_v<T>, unique<T>> make_unique(On on, Args&&... args) {
  const auto made = detail::make_object<T>(on, std::forward<Args>(args)...);
  return unique<T>(made.address, Deleter<T>(on, made.recorded));
}

/** make_array() for a scope: `qk::make_unique<T[]>(on, n)`. */
template <class Array>
[[nodiscard]] std::enable_if_t<detail::kIsArrayOfAnyLength<Array>, unique<Array>> make_unique(
    On on, std::size_t n) {
  const auto made = detail::make_elements<std::remove_extent_t<Array>>(on, n);
  return unique<Array>(made.address, Deleter<Array>(on, made.recorded));
}

/* ---- Containers ---------------------------------------------------------------------------- */

namespace detail {

inline constexpr std::size_t kAlignment = QK_MEM_ALIGNMENT;

[[nodiscard]] inline void* allocate_plain(const On& on, std::size_t size, std::size_t alignment) {
  void* const memory = qk_mem_imalloc(on.number(), size == 0 ? 1 : size,
                                      static_cast<int>(alignment), on.file(), on.line());
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}

/** Larger alignments are cut out of more memory, whose own address stands in front of the cut. */
[[nodiscard]] inline void* allocate_aligned(const On& on, std::size_t size, std::size_t alignment) {
  if (size > std::numeric_limits<std::size_t>::max() - alignment) throw std::bad_alloc();
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

/** Where a handle frees nothing singly, or is gone, its memory went or goes all at once. */
inline void deallocate(const On& on, void* memory, std::size_t alignment) noexcept {
  if (qk_mem_frees_singly(on.number(), on.file(), on.line()) == 0) return;
  void* const base = alignment <= kAlignment ? memory : base_of_aligned(memory);
  qk_mem_ifree(on.number(), base, on.file(), on.line());
}

}  // namespace detail

/**
 * The memory of a handle for std::pmr containers, which are accounted there then. On a
 * block-managed handle without BLOCKFREE it is an arena: memory comes back when the handle is
 * cleared or deleted.
 *
 * Records and log lines show the place where the resource was made. Alignments above 16 take as
 * many bytes more, which the records show. Two resources are equal when they have the same handle.
 *
 * The resource must live longer than the containers that use it, and the handle longer than both.
 */
class memory_resource : public std::pmr::memory_resource {
 public:
  explicit memory_resource(On on) noexcept : on_(on) {}

  /** The number of the handle. */
  [[nodiscard]] int handle() const noexcept { return on_.number(); }

 private:
  void* do_allocate(std::size_t size, std::size_t alignment) override {
    return detail::allocate(on_, size, alignment);
  }

  void do_deallocate(void* memory, std::size_t /*size*/, std::size_t alignment) override {
    detail::deallocate(on_, memory, alignment);
  }

  [[nodiscard]] bool do_is_equal(const std::pmr::memory_resource& other) const noexcept override {
    const auto* const same = dynamic_cast<const memory_resource*>(&other);
    return same != nullptr && same->handle() == handle();
  }

  On on_;
};

/**
 * An allocator for the standard containers that aren't std::pmr ones. Memory, places and alignments
 * are as with qk::memory_resource.
 *
 * A container keeps its handle when it is assigned to by copy; a copy of a container, a container
 * that was assigned to by move and swapped ones have the handle of where their elements come from.
 */
template <class T>
class allocator {
 public:
  using value_type = T;
  using propagate_on_container_copy_assignment = std::false_type;
  using propagate_on_container_move_assignment = std::true_type;
  using propagate_on_container_swap = std::true_type;
  using is_always_equal = std::false_type;

  /** Implicit, so that a container is made by `std::vector<int, qk::allocator<int>> v(pool)`. */
  allocator(const Handle& handle, Location where = Location::current()) noexcept
      : on_(handle, where) {}

  /** For a handle's number. Explicit, since a number in a container's place is its size. */
  explicit allocator(On on) noexcept : on_(on) {}

  /** The same handle and place for elements of another type. */
  template <class U>
  allocator(const allocator<U>& other) noexcept : on_(other.on()) {}

  /** Memory for `n` elements; a size that doesn't fit throws std::bad_array_new_length. */
  [[nodiscard]] T* allocate(std::size_t n) {
    if (n > std::numeric_limits<std::size_t>::max() / sizeof(T)) throw std::bad_array_new_length();
    return static_cast<T*>(detail::allocate(on_, n * sizeof(T), alignof(T)));
  }

  void deallocate(T* elements, std::size_t /*n*/) noexcept {
    detail::deallocate(on_, elements, alignof(T));
  }

  /** The number of the handle. */
  [[nodiscard]] int handle() const noexcept { return on_.number(); }

  [[nodiscard]] const On& on() const noexcept { return on_; }

 private:
  On on_;
};

/** Memory of one can be given back through the other. */
template <class T, class U>
[[nodiscard]] bool operator==(const allocator<T>& one, const allocator<U>& other) noexcept {
  return one.handle() == other.handle();
}

template <class T, class U>
[[nodiscard]] bool operator!=(const allocator<T>& one, const allocator<U>& other) noexcept {
  return !(one == other);
}

}  // namespace qk

#pragma GCC visibility pop

#endif  // QKMEM_QKMEM_HPP_
