#include "diag/event.h"

#include "core/kinds.h"
#include "core/registry.h"
#include "diag/heap.h"
#include "diag/log.h"
#include "diag/trace_file.h"

namespace qk::mem {
namespace lines {
namespace {

/** Whether two formats take the same arguments. The compiler does not check formats in a table. */
consteval bool same_arguments(std::string_view format, std::string_view model) {
  auto next = [](std::string_view text, std::size_t& at) -> std::string_view {
    while (at < text.size() && text[at] != '%') ++at;
    const std::size_t start = at;
    while (at < text.size() && std::string_view("scdux").find(text[at]) == std::string_view::npos) {
      ++at;
    }
    if (at < text.size()) ++at;
    return text.substr(start, at - start);
  };
  std::size_t i = 0;
  std::size_t j = 0;
  while (true) {
    const std::string_view one = next(format, i);
    if (one != next(model, j)) return false;
    if (one.empty()) return true;
  }
}

constexpr const char* kMadePlain = "   %s:      %3d [%.*zx] %c %zu %s:%d%s\n";
constexpr const char* kMadeCounted = "   %s:      %3d [%.*zx] %c %zu/%zu %s:%d%s\n";
constexpr const char* kGonePlain = "   %s:        %3d [%.*zx] %c %s:%d; %c %zu %s:%d%s\n";
constexpr const char* kGoneCounted = "   %s:        %3d [%.*zx] %c %s:%d; %c %zu/%zu %s:%d%s\n";

consteval EventLines made(const char* plain, const char* counted, std::string_view kinds) {
  return same_arguments(plain, kMadePlain) && same_arguments(counted, kMadeCounted)
             ? EventLines{plain, counted, kinds}
             : throw "a line of a made record takes other arguments";
}

consteval EventLines gone(const char* plain, const char* counted, std::string_view kinds) {
  return same_arguments(plain, kGonePlain) && same_arguments(counted, kGoneCounted)
             ? EventLines{plain, counted, kinds}
             : throw "a line of a released record takes other arguments";
}

}  // namespace

constinit const EventLines kAllocated = made(kMadePlain, kMadeCounted, "CcP");
constinit const EventLines kRegistered = made("   %s:    %3d [%.*zx] %c %zu %s:%d%s\n",
                                              "   %s:    %3d [%.*zx] %c %zu/%zu %s:%d%s\n", "J");
constinit const EventLines kHandleArrayMade =
    made(kMadePlain, "   %s: %3d [%.*zx] %c %zu/%zu %s:%d%s\n", "H");
constinit const EventLines kFreed = gone(kGonePlain, kGoneCounted, "Cc");
constinit const EventLines kDeregistered = gone(kGonePlain, kGoneCounted, "J");
constinit const EventLines kReleasedInWalk =
    gone("   %s:  %3d [%.*zx] %c %s:%d; %c %zu %s:%d%s\n",
         "   %s:  %3d [%.*zx] %c %s:%d; %c %zu/%zu %s:%d%s\n", "CcJP");
constinit const EventLines kTrackerReleased =
    gone("   %s: %3d [%.*zx] %c %s:%d; %c %zu %s:%d%s\n", kGoneCounted, "");
constinit const EventLines kHandleArrayFreed =
    gone(kGonePlain, "   %s: %3d [%.*zx] %c %s:%d; %c %zu/%zu %s:%d%s\n", "H");
constinit const EventLines kHandleArrayGone =
    gone(kGonePlain, "   %s:      %3d [%.*zx] %c %s:%d; %c %zu/%zu %s:%d%s\n", "H");

}  // namespace lines

namespace {

bool shown_counted(const EventLines& lines, const qk_mem_ptr& record) {
  return lines.counted_kinds.find(static_cast<char>(record.kind)) != std::string_view::npos;
}

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"

void log_made(const EventLines& lines, const CallContext& context, int hid,
              const qk_mem_ptr& record) {
  const HeapText heap;
  if (shown_counted(lines, record)) {
    qk_mem_write_log(lines.counted, context.routine, hid, Qk_mem_ptr_display_size,
                     as_number(record.address), record.kind, record.count, record.size,
                     qk_file_name_only(record.file), int{record.line}, heap.c_str());
  } else {
    qk_mem_write_log(lines.plain, context.routine, hid, Qk_mem_ptr_display_size,
                     as_number(record.address), record.kind, record.size,
                     qk_file_name_only(record.file), int{record.line}, heap.c_str());
  }
}

void log_released(const EventLines& lines, const CallContext& context, int hid,
                  unsigned char letter, const qk_mem_ptr& record) {
  const HeapText heap;
  if (shown_counted(lines, record)) {
    qk_mem_write_log(lines.counted, context.routine, hid, Qk_mem_ptr_display_size,
                     as_number(record.address), letter, context.file(), context.line, record.kind,
                     record.count, record.size, qk_file_name_only(record.file), int{record.line},
                     heap.c_str());
  } else {
    qk_mem_write_log(lines.plain, context.routine, hid, Qk_mem_ptr_display_size,
                     as_number(record.address), letter, context.file(), context.line, record.kind,
                     record.size, qk_file_name_only(record.file), int{record.line}, heap.c_str());
  }
}

#pragma GCC diagnostic pop

}  // namespace

void write_recorded(const EventLines& lines, const CallContext& context, int hid,
                    const qk_mem_ptr& record, long change, RowLine located) {
  if (logs_events(context)) log_made(lines, context, hid, record);
  const int line = located == RowLine::kOfRecord ? record.line : context.line;
  qk_mem_write_db(hid, record.kind, record.address, record.count, record.size, record.file, line,
                  change);
}

void write_released(const EventLines& lines, const CallContext& context, int hid,
                    unsigned char letter, const qk_mem_ptr& record, long change) {
  if (logs_events(context)) log_released(lines, context, hid, letter, record);
  qk_mem_write_db(hid, letter, record.address, record.count, record.size, context.path,
                  context.line, change);
}

void announce_handle_gone(const CallContext& context, const qk_mem_handle& handle,
                          unsigned char letter) {
  if (logs_events(context)) {
    const HeapText heap;
    qk_mem_write_log("   %s:  %3d %c %s:%d; %s:%d%s\n", context.routine, handle.id, letter,
                     context.file(), context.line, qk_file_name_only(handle.file), handle.line,
                     heap.c_str());
  }
  qk_mem_write_db(handle.id, letter, nullptr, 0, 0, context.path, context.line, 0);
}

void warn_not_found(const CallContext& context, int hid, std::size_t address) {
  qk_mem_write_log("   %s: WARNING: %3d [%.*zx] ptr not found at %s:%d\n", context.routine, hid,
                   Qk_mem_ptr_display_size, address, context.file(), context.line);
}

void warn_handle_array_not_found(const CallContext& context, const void* array) {
  qk_mem_write_log("   %s: WARNING: %3d [%.*zx] Qk_mem_handles ptr not found at %s:%d\n",
                   context.routine, QK_MEM_OVERHEAD_HANDLE, Qk_mem_ptr_display_size,
                   as_number(array), context.file(), context.line);
}

}  // namespace qk::mem
