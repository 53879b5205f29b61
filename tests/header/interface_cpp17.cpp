// The whole public header in C++17, with the calls that take a status, and with the tracker.
#include <cstring>

#include "qkmem/qkmem.h"

namespace {

struct NamedTracker : qk::MemTracker {
  [[nodiscard]] const std::type_info& tracked_type() const override { return typeid(int); }
  [[nodiscard]] bool same_type(const qk::MemTracker& other) const override {
    return other.tracked_type() == typeid(int);
  }
};

}  // namespace

int main() {
  qk::Status status;
  char settings[QK_MEM_SETTINGS_SIZE];
  const bool configured = qk_mem_debug_config("TRACE LOG=NONE", &status) == 0 &&
                          qk_mem_dump_config("OPTIONS=TERSE", &status) == 0 &&
                          qk_mem_options("HEAPSIZE", &status) == 0 &&
                          qk_mem_debug_settings(settings, &status) == 0;
  const bool refused =
      qk_mem_debug_config("NONSENSE", &status) != 0 && std::strcmp(status.arg1, "NONSENSE") == 0;

  const int hid = qk_mem_new_handle("", "");
  int number = 1;
  auto* tracker = new NamedTracker;
  tracker->address = &number;
  qk_mem_register(hid, QK_MEM_OBJECT, tracker, sizeof number);
  const bool registered = qk_mem_size(hid) == sizeof number;
  qk_mem_deregister(hid, QK_MEM_OBJECT, tracker);
  const bool released = qk_mem_size(hid) == 0;
  qk_mem_del_handle(hid);
  return configured && refused && registered && released ? 0 : 1;
}
