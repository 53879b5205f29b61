// The configuration calls for callers that have no qk::Status.
#include <cerrno>

#include "core/registry.h"
#include "qkmem/qkmem.h"
#include "qkmem/status.h"
#include "support/system.h"

namespace qk::mem {
namespace {

/** Makes a call with a status of its own, whose code becomes the thread's if it fails. */
template <class Call>
int without_status(Call call) {
  qk::Status status;
  return leave_code(call(status));
}

}  // namespace
}  // namespace qk::mem

extern "C" int qk_mem_set_debug(const char* options) {
  return qk::mem::without_status(
      [=](qk::Status& status) { return qk_mem_debug_config(options, &status); });
}

extern "C" int qk_mem_set_dump(const char* options) {
  return qk::mem::without_status(
      [=](qk::Status& status) { return qk_mem_dump_config(options, &status); });
}

extern "C" int qk_mem_set_options(const char* options) {
  return qk::mem::without_status(
      [=](qk::Status& status) { return qk_mem_options(options, &status); });
}

extern "C" int qk_mem_get_debug(char* text) {
  if (text == nullptr) return qk::mem::leave_code(qk_error_no(EFAULT));
  return qk::mem::without_status(
      [=](qk::Status& status) { return qk_mem_debug_settings(text, &status); });
}
