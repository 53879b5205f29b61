#ifndef TESTS_LIVES_THINGS_H_
#define TESTS_LIVES_THINGS_H_

#include <cstddef>
#include <typeinfo>

#include "qkmem/qkmem.h"

/** Objects that a life registers on handles. */
namespace lives {

/** Memory on a handle that an object releases when it is destroyed. */
struct Owned {
  int hid = 0;
  void* memory = nullptr;
};

/** Makes an object. */
[[nodiscard]] void* make_thing(std::size_t size, const Owned& owned);

/** Destroys an object, and notes it. An address without an object is noted only. */
void destroy_thing(void* thing);

/** Destroys its object, if it has an address. */
class ThingTracker final : public qk::MemTracker {
 public:
  ThingTracker(void* thing, const std::type_info& type);
  ~ThingTracker() override;

  [[nodiscard]] const std::type_info& tracked_type() const override { return type_; }
  [[nodiscard]] bool same_type(const qk::MemTracker& other) const override {
    return other.tracked_type() == type_;
  }

  static void* operator new(std::size_t size);
  static void operator delete(void* memory);

 private:
  const std::type_info& type_;
};

}  // namespace lives

#endif  // TESTS_LIVES_THINGS_H_
