#include "profile/labels.h"

#include <cstring>

#include "core/upcalls.h"
#include "profile/state.h"
#include "qkmem/profile.h"
#include "support/hash.h"
#include "support/mtx_lock.h"
#include "support/numbered_store.h"
#include "support/shared_variable.h"
#include "support/text.h"

namespace qk::mem::profile {
namespace {

constinit qk::NumberedStore<Label> labels;

constexpr int kBuckets = 256;
constinit std::uint32_t buckets[kBuckets] = {};  // the newest label of each

/**
 * What a thread has pushed. In the thread's static memory, because the first use of any other
 * thread-local variable of a shared library can allocate.
 */
struct Nesting {
  std::uint32_t label;
  std::uint32_t lost;  // labels pushed for which there was no memory
};
[[gnu::tls_model("initial-exec")]] constinit thread_local Nesting nesting = {};

std::uint32_t& bucket_of(std::uint32_t outer, const char* text) {
  return buckets[qk_hash(text, kBuckets, static_cast<int>(outer))];
}

std::uint32_t find(const std::uint32_t& bucket, std::uint32_t outer, const char* text) {
  std::uint32_t number = qk::acquire(bucket);
  while (number != 0) {
    const Label& label = labels.at(number);
    if (label.outer == outer && std::strcmp(label.text, text) == 0) break;
    number = label.next_in_bucket;
  }
  return number;
}

std::uint32_t number_of(std::uint32_t outer, const char* text) {
  std::uint32_t& bucket = bucket_of(outer, text);
  if (const std::uint32_t present = find(bucket, outer, text); present != 0) return present;
  const qk::MtxLock lock(growth_lock);
  if (const std::uint32_t present = find(bucket, outer, text); present != 0) return present;
  const std::uint32_t number = labels.add(arena);
  if (number == 0) return 0;
  labels.at(number).outer = outer;
  labels.at(number).next_in_bucket = bucket;
  qk::copy_text(labels.at(number).text, sizeof Label::text, text);
  labels.publish_added();
  qk::publish(bucket, number);
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

}  // namespace qk::mem::profile

extern "C" void qk_mem_push_site(const char* label) { qk::mem::profile::push_label(label); }

extern "C" void qk_mem_pop_site(void) { qk::mem::profile::pop_label(); }
