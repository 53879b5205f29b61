/** Objects and arrays that live on a handle. See qkmem.hpp for the conventions. */
#ifndef QKMEM_OBJECTS_HPP_
#define QKMEM_OBJECTS_HPP_

#include <cstddef>
#include <cstdlib>
#include <memory>
#include <type_traits>
#include <typeinfo>
#include <utility>

#include "qkmem/handle.hpp"

#pragma GCC visibility push(default)

namespace qk {

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
  bool taken = false;
  if (is_current(on, QK_MEM_CALL_REGISTER)) {
    qk_mem_iregister(on.number(), type, tracker.get(), nullptr, size, on.file(), on.line());
    // The tracker's record is the latest and found fastest. It can be missing, though.
    taken = is_recorded(on, tracker.get()) || is_recorded(on, tracker->address);
  }
  if (!taken) tracker->address = nullptr;
  if (taken) static_cast<void>(tracker.release());
  return taken;
}

/** Whether the handle, or its deletion that is under way, hasn't destroyed an object already. */
template <class T>
[[nodiscard]] bool may_destroy(const On& on, T* object) noexcept {
  void* const address = const_cast<std::remove_cv_t<T>*>(object);
  return qk_mem_may_destroy(on.number(), on.generation(), address, on.file(), on.line()) != 0;
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
 *                the deletion of its own handle then destroys it a second time. With one that was
 *                made from a qk::Handle which is gone, it logs an error and does nothing else, since
 *                the handle's deletion has destroyed the object.
 * @param object  as returned by make(), or a base of it with a virtual destructor. Null is warned
 *                about.
 */
template <class T>
std::enable_if_t<!std::is_array_v<T>> destroy(On on, T* object) {
  static_assert(sizeof(T) > 0, "the class must be complete where its object is destroyed");
  if (!detail::may_destroy(on, object)) return;
  detail::deregister(on, QK_MEM_OBJECT, detail::name_of_object(object));
  delete object;
}

/** The same for an array of make_array(): `qk::destroy<T[]>(on, elements)`. */
template <class Array>
std::enable_if_t<detail::kIsArrayOfAnyLength<Array>> destroy(
    On on, std::remove_extent_t<Array>* elements) {
  static_assert(sizeof(*elements) > 0, "the class must be complete where its array is destroyed");
  if (!detail::may_destroy(on, elements)) return;
  detail::deregister(on, QK_MEM_ARRAY, detail::name_of_array(elements));
  delete[] elements;
}

namespace detail {

/** What a deleter knows of the objects that it deletes. */
class Ownership {
 public:
  Ownership() noexcept = default;
  Ownership(const On& on, bool recorded) noexcept : on_(on), recorded_(recorded) {}

  [[nodiscard]] const On& on() const noexcept { return on_; }
  [[nodiscard]] bool recorded() const noexcept { return recorded_; }

 private:
  On on_ = On(0);
  bool recorded_ = false;
};

}  // namespace detail

/**
 * The deleter of a qk::unique. Calls destroy() on the handle, with the location where the object
 * was created. If the handle didn't record the object, it only deletes it.
 */
template <class T>
class Deleter : public detail::Ownership {
 public:
  Deleter() noexcept = default;

  /** @param recorded  whether the objects are registered on the handle. */
  explicit Deleter(On on, bool recorded = true) noexcept : Ownership(on, recorded) {}

  /** The handle must not end with the expression. */
  explicit Deleter(const Handle&& temporary, bool recorded = true) = delete;

  /** Allows the conversion to a pointer to a base, if T can be deleted through it. */
  template <class U,
            class = std::enable_if_t<std::conjunction_v<
                std::negation<std::is_same<U, T>>, std::is_convertible<U*, T*>,
                std::disjunction<std::is_same<const U, T>, std::has_virtual_destructor<T>>>>>
  Deleter(const Deleter<U>& other) noexcept : Ownership(other) {}

  void operator()(T* object) const {
    if (recorded()) {
      qk::destroy(on(), object);
    } else {
      delete object;
    }
  }
};

/** The same for arrays. */
template <class T>
class Deleter<T[]> : public detail::Ownership {
 public:
  Deleter() noexcept = default;

  explicit Deleter(On on, bool recorded = true) noexcept : Ownership(on, recorded) {}

  explicit Deleter(const Handle&& temporary, bool recorded = true) = delete;

  /** Allows the conversion to an array of constants. */
  template <class U, class = std::enable_if_t<std::conjunction_v<
                         std::negation<std::is_same<U, T>>, std::is_convertible<U (*)[], T (*)[]>>>>
  Deleter(const Deleter<U[]>& other) noexcept : Ownership(other) {}

  void operator()(T* elements) const {
    if (recorded()) {
      qk::destroy<T[]>(on(), elements);
    } else {
      delete[] elements;
    }
  }
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

}  // namespace qk

#pragma GCC visibility pop

#endif  // QKMEM_OBJECTS_HPP_
