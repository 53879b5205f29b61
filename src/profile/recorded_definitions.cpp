#include "profile/recorded_definitions.h"

#include <algorithm>
#include <cstring>
#include <string_view>

#include "profile/labels.h"
#include "profile/site_table.h"
#include "profile/stacks.h"
#include "support/keep_errno.h"
#include "support/known_paths.h"
#include "support/line.h"
#include "support/mtx_lock.h"
#include "support/no_cancellation.h"

namespace qk::mem::profile {

using recording::ChunkKind;
using recording::RecordType;

constinit std::uint32_t defined_sites = 0;
constinit std::uint32_t defined_pools = 0;

namespace {

/** How much of the tables is defined in the recording. */
struct Defined {
  std::uint32_t stacks;
  std::uint32_t texts;  // numbers that were given out
  std::uint64_t modules;
  const qk::KnownModule* newest_module;
};
constinit Defined defined QK_GUARDED_BY(recording::lock) = {};

/** Texts that were defined not long ago, by their addresses: those never change. */
struct DefinedText {
  const char* text;
  std::uint32_t number;
};
constinit DefinedText recent_texts[256] QK_GUARDED_BY(recording::lock) = {};

std::string_view cut(std::string_view text) { return text.substr(0, recording::kLongestText); }

std::uint32_t define_text(std::string_view text) QK_REQUIRES(recording::lock) {
  recording::assert_recorder_held();
  if (text.empty()) return 0;
  const std::uint32_t number = ++defined.texts;
  recording::write_record(ChunkKind::kDefinitions, RecordType::kText, [&](auto& fields) {
    fields.number(number);
    fields.text(cut(text));
  });
  return number;
}

/** The number of a file's path, by its name. */
std::uint32_t number_of_path(const char* name) QK_REQUIRES(recording::lock) {
  recording::assert_recorder_held();
  if (name == nullptr) return 0;
  DefinedText& recent = recent_texts[reinterpret_cast<std::uintptr_t>(name) / 8 % 256];
  if (recent.text != name) recent = {name, define_text(qk::known_path_of(name))};
  return recent.number;
}

std::uint32_t define_label(std::uint32_t number) QK_REQUIRES(recording::lock) {
  recording::assert_recorder_held();
  if (number == 0) return 0;
  qk::Line line;
  put_label(line, number);
  return define_text(line.finish());
}

void define_stack(std::uint32_t number) QK_REQUIRES(recording::lock) {
  recording::assert_recorder_held();
  const Stack stack = stack_numbered(number);
  recording::write_record(ChunkKind::kDefinitions, RecordType::kStack, [&](auto& fields) {
    fields.number(number);
    fields.number(static_cast<std::uint64_t>(stack.depth));
    std::uintptr_t before = 0;
    for (int i = 0; i < stack.depth; ++i) {
      fields.signed_number(static_cast<std::int64_t>(stack.frames[i] - before));
      before = stack.frames[i];
    }
  });
}

/** The bytes that a build id's digits stand for. */
struct BuildIdBytes {
  char bytes[64] = {};
  std::size_t length = 0;

  explicit BuildIdBytes(std::string_view digits) {
    for (std::size_t i = 0; i + 1 < digits.size(); i += 2) {
      bytes[length++] = static_cast<char>(value(digits[i]) << 4 | value(digits[i + 1]));
    }
  }
  static unsigned value(char digit) {
    return static_cast<unsigned>(digit <= '9' ? digit - '0' : digit - 'a' + 10);
  }
};

void define_module(const qk::KnownModule& module) QK_REQUIRES(recording::lock) {
  recording::assert_recorder_held();
  const BuildIdBytes id(module.build_id.text());
  recording::write_record(ChunkKind::kDefinitions, RecordType::kModule, [&](auto& fields) {
    fields.number(module.whole.begin);
    fields.number(module.whole.end);
    fields.number(module.base);
    fields.text(cut(module.path));
    fields.text({id.bytes, id.length});
  });
}

/** Those that came since the last time. */
void define_modules() QK_REQUIRES(recording::lock) {
  recording::assert_recorder_held();
  const std::uint64_t version = modules.version();
  if (version == defined.modules) return;
  defined.modules = version;
  const qk::KnownModule* const newest = modules.newest();
  for (const qk::KnownModule* module = newest; module != nullptr && module != defined.newest_module;
       module = module->next) {
    define_module(*module);
  }
  defined.newest_module = newest;
}

void define_pool(const Pool& pool) QK_REQUIRES(recording::lock) {
  recording::assert_recorder_held();
  const std::uint32_t tag = define_text(tag_levels.at(pool.tag).name);
  recording::write_record(ChunkKind::kDefinitions, RecordType::kPool, [&](auto& fields) {
    fields.number(pool.number);
    fields.number(static_cast<std::uint64_t>(pool.hid));
    fields.number(tag);
  });
}

void define_site(const Site& site) QK_REQUIRES(recording::lock) {
  recording::assert_recorder_held();
  while (defined.stacks < site.key.stack) define_stack(++defined.stacks);
  const std::uint32_t path = number_of_path(site.key.file);
  const std::uint32_t text = define_label(site.key.label);
  recording::write_record(ChunkKind::kDefinitions, RecordType::kSite, [&](auto& fields) {
    fields.number(site.number);
    fields.number(site.key.pool);
    fields.number(path);
    fields.number(site.key.line);
    fields.number(site.key.stack);
    fields.number(text);
  });
}

}  // namespace

void define_all() QK_REQUIRES(recording::lock) {
  recording::assert_recorder_held();
  define_modules();
  const std::uint32_t last_site = sites.count();
  const std::uint32_t last_pool = pools.count();  // after the sites, which have pools
  for (std::uint32_t i = defined_pools + 1; i <= last_pool; ++i) define_pool(pools.at(i));
  qk::store(defined_pools, std::max(defined_pools, last_pool));
  for (std::uint32_t i = defined_sites + 1; i <= last_site; ++i) define_site(sites.at(i));
  qk::store(defined_sites, std::max(defined_sites, last_site));
}

void define_new() {
  const qk::KeepErrno keep_errno;
  const qk::NoCancellation no_cancellation;
  const qk::MtxLock held(recording::lock);
  define_all();
}

void forget_definitions() {
  recording::assert_recorder_held();
  qk::store(defined_sites, 0);
  qk::store(defined_pools, 0);
  defined = {};
  std::fill(std::begin(recent_texts), std::end(recent_texts), DefinedText{});
}

}  // namespace qk::mem::profile
