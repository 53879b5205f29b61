#include "table/tags.h"

#include "core/registry.h"
#include "core/switches.h"
#include "diag/log.h"
#include "support/hash.h"
#include "support/text.h"

namespace qk::mem {
namespace {

qk_mem_tag*& bucket_of(const char* name) QK_REQUIRES(Qk_mem_mtx) {
  assert_registry_held();
  return Qk_mem_tags_hash[qk_hash(name, kMaxTags, 0)];
}

/** The link that leads to the tag of that name, or the empty link at the end of its chain. */
qk_mem_tag*& link_to(const char* name) QK_REQUIRES(Qk_mem_mtx) {
  assert_registry_held();
  qk_mem_tag** link = &bucket_of(name);
  while (*link != nullptr && !bears_name(**link, name)) link = &(*link)->next;
  return *link;
}

}  // namespace

void bear_tag(qk_mem_handle& handle) {
  assert_registry_held();
  qk_mem_tag& tag = *handle.tag;
  handle.bears_tag = 1;
  ++tag.bearers;
  if (tag.bearers == 1 && handle.mtx != nullptr) {
    handle.owns_tag = 1;
    tag.owner = &handle;
  } else if (tag.owner != nullptr) {
    const HandleLock lock(*tag.owner);
    tag.owner->owns_tag = 0;
    tag.owner = nullptr;
  }
}

void give_tag_up(qk_mem_handle& handle) {
  assert_registry_held();
  if (handle.bears_tag == 0) return;
  handle.bears_tag = 0;
  --handle.tag->bearers;
  if (handle.tag->owner != &handle) return;
  const HandleLock lock(handle);
  handle.owns_tag = 0;
  handle.tag->owner = nullptr;
}

}  // namespace qk::mem

extern "C" qk_mem_tag* qk_mem_register_tag(const char* name) {
  using namespace qk::mem;
  const RegistryLock lock;
  qk_mem_tag*& link = link_to(name);
  if (link != nullptr) return link;
  if (Qk_mem_num_tags == kMaxTags) {
    Qk_mem_error.set(QK_MEM_ERROR_TAG);
    if (reports(global_switches())) {
      qk_mem_write_log("   %s: ERROR: Max number of accounting tags reached: %d\n",
                       "qk_mem_register_tag", kMaxTags);
    }
    return nullptr;
  }
  qk_mem_tag& tag = Qk_mem_tags[Qk_mem_num_tags];
  qk::copy_text(tag.name, kTagLength + 1, name);
  link = &tag;
  ++Qk_mem_num_tags;
  return link;
}

extern "C" int64_t qk_mem_tag_size(const char* name) {
  using namespace qk::mem;
  const std::size_t length = qk_strlen(name);
  if (length == 0 || length > kTagLength) return 0;
  const RegistryLock lock;
  char upper[kTagLength + 1];
  qk::copy_text(upper, sizeof upper, name);
  qk::upper_case(upper);
  const qk_mem_tag* tag = link_to(upper);
  return tag == nullptr ? 0 : static_cast<int64_t>(qk::load(tag->amount));
}
