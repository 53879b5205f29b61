#ifndef TESTS_KIT_LOGGING_TRACKER_H_
#define TESTS_KIT_LOGGING_TRACKER_H_

#include <string>
#include <typeinfo>

#include "qkmem/qkmem.h"

namespace kit {

/**
 * A tracker of an address that nobody follows. Its end goes into a story: "wheel ends with its
 * object\n", or "wheel is destroyed\n" where its address was null by then.
 */
class LoggingTracker final : public qk::MemTracker {
 public:
  LoggingTracker(const char* name, void* tracked, std::string& story,
                 const std::type_info& type = typeid(int))
      : name_(name), destroyed_(story), type_(type) {
    address = tracked;
  }

  ~LoggingTracker() override {
    destroyed_ +=
        std::string(name_) + (address == nullptr ? " is destroyed\n" : " destroys its object\n");
  }

  [[nodiscard]] const std::type_info& tracked_type() const override { return type_; }
  [[nodiscard]] bool same_type(const qk::MemTracker& other) const override {
    return other.tracked_type() == type_;
  }

 private:
  const char* name_;
  std::string& destroyed_;
  const std::type_info& type_;
};

}  // namespace kit

#endif  // TESTS_KIT_LOGGING_TRACKER_H_
