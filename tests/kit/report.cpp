#include "tests/kit/report.h"

#include <cstddef>
#include <cstdlib>
#include <map>

#include "accounting/kept_calls.h"
#include "accounting/tag_calls.h"
#include "core/handle_array.h"
#include "core/registry.h"
#include "core/switches.h"
#include "table/pointer_table.h"
#include "tests/kit/heap.h"
#include "tests/kit/text.h"

namespace kit {
namespace {

constexpr std::size_t kAddressWidth = 16;

bool is_invented(const std::string& address) { return address.rfind(std::string(12, '0'), 0) == 0; }

std::string with_normalized_addresses(const std::string& text) {
  std::map<std::string, std::string> names;
  return replaced_each(text, " ([0-9a-f]{16})( [A-Za-z] )", [&](const Match& match) {
    const std::string& address = match.groups[1];
    if (is_invented(address)) return match.groups[0];
    std::string& name = names[address];
    if (name.empty()) name = "p" + std::to_string(names.size());
    return " " + name + std::string(kAddressWidth - name.size(), ' ') + match.groups[2];
  });
}

/** Blanks keep the width where a column follows, but not at the end of a line. */
std::string with_normalized_locations(const std::string& text) {
  return replaced_each(text, R"(qkmem\.cpp:(\d+)( *\|)?)", [](const Match& match) {
    const std::string& line = match.groups[1];
    const std::string& next_column = match.groups[2];
    const std::string blanks = next_column.empty() ? "" : std::string(line.size() - 1, ' ');
    return "qkmem.cpp:#" + blanks + next_column;
  });
}

std::string right_aligned(const std::string& word) {
  constexpr std::size_t kSizeWidth = 8;
  return word.size() < kSizeWidth ? std::string(kSizeWidth - word.size(), ' ') + word : word;
}

std::string with_normalized_size(const std::string& text, std::size_t size,
                                 const std::string& word) {
  const std::string figure = right_aligned(std::to_string(size));
  const std::string row = "( H     1 )" + figure + " " + figure + " ";
  return replaced(text, row.c_str(), "$1" + right_aligned(word) + " " + right_aligned(word) + " ");
}

}  // namespace

Stage::Stage(int heap) {
  set_heap(heap);
  qk_mem_init();
  const qk::mem::RegistryLock lock;
  own_slots_ = Qk_mem_handles;
  own_count_ = qk::mem::handle_slots().count;
  qk::mem::replace_handle_array(slots_, 9);
  Qk_mem_seq = 0;
}

Stage::~Stage() {
  const qk::mem::RegistryLock lock;
  qk::mem::replace_handle_array(own_slots_, own_count_);
  for (const qk_mem_handle& handle : handles_) {
    for (const qk_mem_ptr_array& array : handle.ptrs) std::free(array.ptrs);
  }
}

qk_mem_handle& Stage::handle(int id, char type, const char* tag) {
  qk_mem_handle& handle = handles_[id - 1];
  handle.id = id;
  handle.type = type;
  handle.tag = *tag == '\0' ? &Qk_mem_global_tag : qk_mem_register_tag(tag);
  handle.track = 1;
  handle.seq = ++Qk_mem_seq;
  handle.file = "made.c";
  handle.line = id * 100;
  slots_[id - 1] = &handle;
  return handle;
}

qk_mem_ptr& hold(qk_mem_handle& handle, std::uintptr_t address, char kind, std::uint64_t count,
                 std::uint64_t size, const char* file, int line) {
  qk_mem_ptr& record =
      *qk_mem_new_ptr(&handle, reinterpret_cast<void*>(address), static_cast<unsigned char>(kind),
                      file, line, &qk::mem::global_switches());
  record.file = file;
  record.line = static_cast<std::uint16_t>(line);
  record.count = count;
  record.size = size;
  record.seq = ++Qk_mem_seq;
  if (kind == 'H' || kind == 'T') {
    handle.overhead_amount += count * size;
  } else {
    handle.amount += count * size;
    handle.tag->amount += count * size;
  }
  return record;
}

void mark_baselined(qk_mem_handle& handle) {
  handle.baselined = 1;
  handle.base_qty = handle.qty;
  handle.base_amount = handle.amount;
  handle.base_overhead_qty = handle.overhead_qty;
  handle.base_overhead_amount = handle.overhead_amount;
  handle.tag->base_qty = handle.tag->qty;
  handle.tag->base_amount = handle.tag->amount;
  for (const qk_mem_ptr_array& array : handle.ptrs) {
    for (int i = 0; i < array.capacity; ++i) {
      if (array.ptrs[i].address != nullptr) array.ptrs[i].baselined = 1;
    }
  }
}

std::string normalized_report(std::string_view text) {
  std::string result = with_normalized_locations(with_normalized_addresses(std::string(text)));
  result = with_normalized_size(result, sizeof(qk_mem_handle), "handle");
  return with_normalized_size(result, sizeof(qk::Mtx), "mtx");
}

std::string report(const char* filter, unsigned options) {
  return normalized_report(dump(filter, options));
}

}  // namespace kit
