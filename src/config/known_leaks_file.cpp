#include "config/known_leaks_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <string_view>

#include "config/profile_options.h"
#include "profile/state.h"
#include "support/keep_errno.h"
#include "support/line.h"
#include "support/mtx_lock.h"
#include "support/no_cancellation.h"
#include "support/own_message.h"
#include "support/page_buffer.h"
#include "support/system.h"
#include "support/system_memory.h"

namespace qk::mem {
namespace {

using profile::KnownLeak;
using profile::KnownLeaks;

/** Memory that stays, in the profile's mappings. Null if there is none. */
void* take_memory(std::size_t bytes) {
  const qk::MtxLock lock(profile::growth_lock);
  return profile::arena.take(bytes);
}

template <class T>
T* make(const T& value) {
  void* const memory = take_memory(sizeof(T));
  return memory == nullptr ? nullptr : own_memory::make_in<T>(memory, value);
}

/** Appends what is left of a file. Returns a system's error, or 0. */
int read_rest(int file, qk::PageBuffer& text) {
  for (;;) {
    char piece[4096];
    const ssize_t length = ::read(file, piece, sizeof piece);
    if (length == 0) return 0;
    if (length < 0 && errno == EINTR) continue;
    if (length < 0) return errno;
    if (!text.append({piece, static_cast<std::size_t>(length)})) return ENOMEM;
  }
}

int read_file(const char* name, qk::PageBuffer& text) {
  const qk::KeepErrno keep_errno;
  const qk::NoCancellation no_cancellation;
  const int file = ::open(name, O_RDONLY | O_CLOEXEC);
  if (file < 0) return errno;
  const int error = read_rest(file, text);
  ::close(file);
  return error;
}

/** Lines of a text that is taken apart. Each ends with a zero byte, and has no blanks around it. */
class Lines {
 public:
  explicit Lines(char* text) : next_(text) {}

  /** Null after the last one. */
  [[nodiscard]] const char* next() {
    if (*next_ == '\0') return nullptr;
    ++number_;
    char* const begin = next_ + std::strspn(next_, kBlanks);
    char* end = begin + std::strcspn(begin, "\n");
    next_ = *end == '\0' ? end : end + 1;
    while (end != begin && std::strchr(kBlanks, end[-1]) != nullptr) --end;
    *end = '\0';
    return begin;
  }

  [[nodiscard]] std::uint32_t number() const { return number_; }

 private:
  static constexpr char kBlanks[] = " \t\r";

  char* next_;
  std::uint32_t number_ = 0;
};

bool set_pattern(const char* value, KnownLeak& leak) {
  leak.pattern = value;
  return *value != '\0';
}

bool set_tag_of_leak(const char* value, KnownLeak& leak) {
  return *value != '\0' && read_tag(value, leak.filter);
}

bool set_handle_of_leak(const char* value, KnownLeak& leak) {
  return read_handle(value, leak.filter) || set_tag_of_leak(value, leak);
}

struct LeakKeyword {
  std::string_view beginning;
  bool (*set)(const char* value, KnownLeak& leak);
};

constexpr LeakKeyword kLeakKeywords[] = {
    {"leak:", set_pattern},
    {"tag:", set_tag_of_leak},
    {"handle:", set_handle_of_leak},
};

/** False if a line is not understood. */
bool understand(KnownLeak& leak) {
  const std::string_view text = leak.text;
  for (const LeakKeyword& keyword : kLeakKeywords) {
    if (text.starts_with(keyword.beginning)) {
      return keyword.set(leak.text + keyword.beginning.size(), leak);
    }
  }
  return false;
}

void name_bad_line(const char* file, const KnownLeak& leak) {
  qk::Line line;
  line.put("qkmem: ").put(file).put(':').number(leak.number).put(": '").put(leak.text);
  line.put("' is neither leak:PATTERN, tag:TAG nor handle:NUMBER. The rest is used.\n");
  qk::write_message(line.finish());
}

/** Takes a text apart that stays. Returns 0, EINVAL for a bad line, or ENOMEM. */
int read_lines(char* text, KnownLeaks& known) {
  int mistake = 0;
  KnownLeak** end = &known.first;
  Lines lines(text);
  while (const char* const line = lines.next()) {
    if (*line == '\0' || *line == '#') continue;
    KnownLeak leak;
    leak.text = line;
    leak.number = lines.number();
    if (!understand(leak)) {
      name_bad_line(known.file, leak);
      mistake = EINVAL;
      continue;
    }
    *end = make(leak);
    if (*end == nullptr) return ENOMEM;
    end = &(*end)->next;
  }
  return mistake;
}

/** Keeps the contents of a file. Returns as above. */
int keep_known_leaks(const char* file, std::string_view contents, KnownLeaks*& known) {
  auto* const text = static_cast<char*>(take_memory(contents.size() + 1));
  KnownLeaks* const made = text == nullptr ? nullptr : make(KnownLeaks{file, nullptr});
  if (made == nullptr) return ENOMEM;
  contents.copy(text, contents.size());
  // A zero byte would hide what follows it.
  std::replace(text, text + contents.size(), '\0', '?');
  const int error = read_lines(text, *made);
  if (error != ENOMEM) known = made;
  return error;
}

void name_bad_file(const char* source, const char* file, int error) {
  char why[128];
  qk::Line line;
  line.put("qkmem: ").put(source).put(": IGNORE can't read '").put(file).put("': ");
  line.put(qk_error_msg_r(error, why, sizeof why));
  qk::write_message(line.put(". No leak is ignored.\n").finish());
}

}  // namespace

std::int32_t read_known_leaks(const char* source, const char* file, KnownLeaks*& known) {
  qk::PageBuffer contents;
  int error = read_file(file, contents);
  if (error == 0) error = keep_known_leaks(file, contents.text(), known);
  contents.clear();
  if (error != 0 && known == nullptr) name_bad_file(source, file, error);
  return qk_error_no(error);
}

}  // namespace qk::mem
