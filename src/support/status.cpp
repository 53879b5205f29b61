#include "qkmem/status.h"

#include <initializer_list>

namespace qk {

Status::~Status() = default;

void Status::init() noexcept { *this = Status(); }

void Status::clear() noexcept {
  code = 0;
  detail1 = 0;
  detail2 = 0;
  for (char* text : {subject, location, arg1, arg2, host}) text[0] = '\0';
}

}  // namespace qk

extern "C" {

void QK_CLEAR_STATUS(qk::Status* status) {
  if (status != nullptr) status->clear();
}

void QK_INIT_STATUS(qk::Status* status) {
  if (status != nullptr) status->init();
}

}  // extern "C"
