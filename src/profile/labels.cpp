#include "profile/labels.h"

#include <climits>
#include <cstring>

#include "core/upcalls.h"
#include "profile/state.h"
#include "qkmem/profile.h"
#include "support/hash.h"
#include "support/mtx_lock.h"
#include "support/number_index.h"
#include "support/numbered_store.h"
#include "support/text.h"

namespace qk::mem::profile {
namespace {

constinit qk::NumberedStore<Label> labels;

constinit qk::NumberIndex index_of_labels;

/**
 * What a thread has pushed. In the thread's static memory, because the first use of any other
 * thread-local variable of a shared library can allocate.
 */
struct Nesting {
  std::uint32_t label;
  std::uint32_t lost;  // labels pushed for which there was no memory
};
[[gnu::tls_model("initial-exec")]] constinit thread_local Nesting nesting = {};

std::uint32_t hash_of(std::uint32_t outer, const char* text) {
  return static_cast<std::uint32_t>(qk_hash(text, INT_MAX, static_cast<int>(outer)));
}

std::uint32_t find(std::uint32_t outer, const char* text) {
  return index_of_labels.find(hash_of(outer, text), [=](std::uint32_t number) {
    const Label& label = labels.at(number);
    return label.outer == outer && std::strcmp(label.text, text) == 0;
  });
}

std::uint32_t number_of(std::uint32_t outer, const char* text) {
  if (const std::uint32_t present = find(outer, text); present != 0) return present;
  const qk::MtxLock lock(growth_lock);
  if (const std::uint32_t present = find(outer, text); present != 0) return present;
  const std::uint32_t number = index_of_labels.reserve(arena) ? labels.add(arena) : 0;
  if (number == 0) return 0;
  labels.at(number).outer = outer;
  qk::copy_text(labels.at(number).text, sizeof Label::text, text);
  index_of_labels.add(hash_of(outer, text), number);
  return number;
}

}  // namespace

std::uint32_t label_of_thread() { return nesting.label; }

void push_label(const char* text) {
  ensure_started();
  char cut[sizeof Label::text];
  qk::copy_text(cut, sizeof cut, text == nullptr ? "(null)" : text);
  const bool is_kept = nesting.lost == 0 && was_ever_on();
  const std::uint32_t number = is_kept ? number_of(nesting.label, cut) : 0;
  if (number == 0) {
    ++nesting.lost;
  } else {
    nesting.label = number;
    qk::set_bits(reasons_for_attention, attention::kLabels);
  }
}

void pop_label() {
  if (nesting.lost != 0) {
    --nesting.lost;
  } else if (nesting.label != 0) {
    nesting.label = labels.at(nesting.label).outer;
  }
}

const Label& label(std::uint32_t number) { return labels.at(number); }

void put_label(qk::Line& line, std::uint32_t number) {
  const Label& innermost = label(number);
  if (innermost.outer != 0) {
    put_label(line, innermost.outer);
    line.put(" > ");
  }
  line.put(innermost.text);
}

}  // namespace qk::mem::profile

extern "C" void qk_mem_push_site(const char* label) { qk::mem::profile::push_label(label); }

extern "C" void qk_mem_pop_site(void) { qk::mem::profile::pop_label(); }
