#ifndef TESTS_KIT_TOLD_TRACKER_H_
#define TESTS_KIT_TOLD_TRACKER_H_

#include <string>
#include <typeinfo>

#include "qkmem/qkmem.h"

namespace kit {

/**
 * A tracker of an address that nobody follows. Its end goes into a story: "wheel ends with its
 * object\n", or "wheel ends\n" where its address was null by then.
 */
class ToldTracker final : public qk::MemTracker {
 public:
  ToldTracker(const char* name, void* tracked, std::string& story,
              const std::type_info& type = typeid(int))
      : name_(name), story_(story), type_(type) {
    address = tracked;
  }

  ~ToldTracker() override {
    story_ += std::string(name_) + (address == nullptr ? " ends\n" : " ends with its object\n");
  }

  [[nodiscard]] const std::type_info& tracked_type() const override { return type_; }
  [[nodiscard]] bool same_type(const qk::MemTracker& other) const override {
    return other.tracked_type() == type_;
  }

 private:
  const char* name_;
  std::string& story_;
  const std::type_info& type_;
};

}  // namespace kit

#endif  // TESTS_KIT_TOLD_TRACKER_H_
