#ifndef TESTS_KIT_LOGGING_TRACKER_H_
#define TESTS_KIT_LOGGING_TRACKER_H_

#include <string>
#include <typeinfo>

#include "qkmem/qkmem.h"

namespace kit {

/**
 * A tracker whose address is never dereferenced. Its destructor appends "wheel destroys its
 * object\n" to a log, or "wheel is destroyed\n" if its address is null.
 */
class LoggingTracker final : public qk::MemTracker {
 public:
  LoggingTracker(const char* name, void* tracked, std::string& log,
                 const std::type_info& type = typeid(int))
      : name_(name), log_(log), type_(type) {
    address = tracked;
  }

  ~LoggingTracker() override {
    log_ +=
        std::string(name_) + (address == nullptr ? " is destroyed\n" : " destroys its object\n");
  }

  [[nodiscard]] const std::type_info& tracked_type() const override { return type_; }
  [[nodiscard]] bool same_type(const qk::MemTracker& other) const override {
    return other.tracked_type() == type_;
  }

 private:
  const char* name_;
  std::string& log_;
  const std::type_info& type_;
};

}  // namespace kit

#endif  // TESTS_KIT_LOGGING_TRACKER_H_
