#include "config/refusal.h"

#include <cstdio>

#include "qkmem/qkmem.h"
#include "support/system.h"

namespace qk::mem {

Refusal::Refusal(qk::Status& status, int code, const char* routine, SourceLocation location)
    : status_(status) {
  status_.code = code;
  status_.detail1 = 0;
  status_.detail2 = 0;
  std::snprintf(status_.location, sizeof status_.location, "%s(%s):%d", location.file, routine,
                location.line);
  qk_hostname_r(status_.host, sizeof status_.host);
}

Refusal& Refusal::subject(const char* name) {
  qk::copy_text(status_.subject, sizeof status_.subject, name);
  return *this;
}

Refusal& Refusal::arguments(const char* first, const char* second) {
  qk::copy_text(status_.arg1, sizeof status_.arg1, first);
  qk::copy_text(status_.arg2, sizeof status_.arg2, second);
  return *this;
}

Refusal& Refusal::numbers(int first, int second) {
  status_.num1 = first;
  status_.num2 = second;
  return *this;
}

int refuse_length(qk::Status& status, const char* routine, SourceLocation location,
                  const char* argument, int length) {
  return Refusal(status, QK_MEM_ERROR_LONG_OPTIONS, routine, location)
      .arguments(argument)
      .numbers(length, static_cast<int>(kMaxOptions))
      .code();
}

int refuse_options(qk::Status& status, const char* routine, SourceLocation location,
                   const qk_option_error& error) {
  return Refusal(status, error.code, routine, location).arguments(error.text).code();
}

}  // namespace qk::mem
