// Reports of the profile that the program asks for.
#include <cerrno>
#include <cstdio>
#include <string_view>

#include "config/option_copy.h"
#include "config/profile_options.h"
#include "core/registry.h"
#include "core/upcalls.h"
#include "profile/report/report.h"
#include "qkmem/profile.h"
#include "support/keep_errno.h"
#include "support/no_cancellation.h"
#include "support/page_buffer.h"
#include "support/system.h"

namespace qk::mem {
namespace {

/** Returns a system's error, or 0. */
int write_to_stream(FILE* stream, std::string_view text) {
  const qk::KeepErrno keep_errno;
  const qk::NoCancellation no_cancellation;
  errno = 0;
  const bool is_whole = std::fwrite(text.data(), 1, text.size(), stream) == text.size();
  return is_whole ? 0 : errno;
}

std::int32_t report_to(FILE* stream, const char* options) {
  OptionCopy copy(options);
  if (copy.text() == nullptr) return qk_error_no(ENOMEM);
  ReportRequest request = {profile::options_now(), {}};
  const std::int32_t mistake = read_report_options("qk_mem_profile_report", copy.text(), request);
  qk::PageBuffer text;
  const std::int32_t code = profile::put_requested_report(text, request.options, request.growth);
  const int error = write_to_stream(stream, text.text());
  text.clear();
  if (mistake != 0) return mistake;
  return code != 0 ? code : qk_error_no(error);
}

}  // namespace
}  // namespace qk::mem

extern "C" int qk_mem_profile_report(FILE* stream, const char* options) {
  using namespace qk::mem;
  ensure_started();
  const int code = stream == nullptr ? qk_error_no(EFAULT) : report_to(stream, options);
  if (code != 0) Qk_mem_error.set(code);
  return code;
}
