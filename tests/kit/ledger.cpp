#include "tests/kit/ledger.h"

#include <cstdio>
#include <cstdlib>

#include "accounting/kept_calls.h"
#include "core/registry.h"
#include "core/switches.h"
#include "table/pointer_table.h"
#include "tests/kit/standalone_handle.h"

namespace kit {
namespace {

constexpr std::uint32_t kEventsBefore = 100;

/** An address of the array `index` at which there is no memory. */
void* fake_address(int index, int number) {
  return at(static_cast<std::uintptr_t>(0x1000 + 128 * number + 16 * index));
}

/** Fills a slot with a record of overhead. */
void fill_slot(qk_mem_handle& handle, void* address) {
  qk_mem_new_ptr(&handle, address, 'H', "kit.c", 1, &qk::mem::global_switches());
}

}  // namespace

void make_arrays(int hid) {
  qk_mem_handle& handle = handle_of(hid);
  for (int i = 0; i < 8; ++i) {
    fill_slot(handle, fake_address(i, 0));
    // Passes a copy, whose kind is still set when the record is subtracted from the sums.
    qk_mem_ptr record = *qk_mem_get_ptr(&handle, fake_address(i, 0));
    qk_mem_free_ptr(&handle, &record);
  }
}

void fill_arrays(int hid) {
  make_arrays(hid);
  qk_mem_handle& handle = handle_of(hid);
  for (int i = 0; i < 8; ++i) {
    const qk_mem_ptr_array& array = handle.ptrs[i];
    for (int number = 0; array.used < array.capacity; ++number) {
      fill_slot(handle, fake_address(i, number));
    }
  }
}

Ledger::Ledger(const Environment& environment, const char* options, const char* tag)
    : Scene(environment), pool(options, tag), tag_(tag) {
  make_arrays(pool);
  skip_all();
}

void Ledger::configure(const char* debug) {
  qk::Status status;
  if (qk_mem_debug_config(debug, &status) != 0) {
    std::fprintf(stderr, "not a configuration: %s\n", debug);
    std::abort();
  }
  skip_all();
}

void Ledger::skip_all() {
  skip_log();
  skip_trace();
  Qk_mem_seq = kEventsBefore;
}

std::string Ledger::sums() const {
  return "handle " + data_of(pool) + ", tag " + tag_of(tag_.c_str()) + ", events " +
         std::to_string(Qk_mem_seq - kEventsBefore);
}

std::string Ledger::record(const void* address) const {
  const qk_mem_ptr* found = qk_mem_get_ptr(&pool.record(), address);
  if (found == nullptr) return "none";
  return std::string(1, static_cast<char>(found->kind)) + " " + std::to_string(found->count) + "/" +
         std::to_string(found->size) + " " + found->file + ":" + std::to_string(found->line) +
         " event " + std::to_string(found->seq - kEventsBefore);
}

}  // namespace kit
