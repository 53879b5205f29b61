#include "table/tags.h"

#include "support/hash.h"
#include "support/text.h"

namespace qk::mem {
namespace {

/** The link that leads to the tag of that name, or the null link at the end of its chain. */
qk_mem_tag*& link_to(const char* name) QK_REQUIRES(Qk_mem_mtx) {
  assert_registry_held();
  qk_mem_tag** link = &Qk_mem_tags_hash[qk_hash(name, kMaxTags, 0)];
  while (*link != nullptr && !has_name(**link, name)) link = &(*link)->next;
  return *link;
}

}  // namespace

qk_mem_tag* find_tag(const char* name) {
  assert_registry_held();
  return link_to(name);
}

qk_mem_tag* find_or_add_tag(const char* name) {
  assert_registry_held();
  qk_mem_tag*& link = link_to(name);
  if (link != nullptr || Qk_mem_num_tags == kMaxTags) return link;
  qk_mem_tag& tag = Qk_mem_tags[Qk_mem_num_tags];
  qk::copy_text(tag.name, kTagLength + 1, name);
  link = &tag;
  ++Qk_mem_num_tags;
  return link;
}

void join_tag(qk_mem_handle& handle) {
  assert_registry_held();
  qk_mem_tag& tag = *handle.tag;
  handle.counted_in_tag = 1;
  ++tag.handle_count;
  if (tag.handle_count == 1 && handle.mtx != nullptr) {
    handle.has_tag_exclusively = 1;
    tag.exclusive_handle = &handle;
  } else if (tag.exclusive_handle != nullptr) {
    const HandleLock lock(*tag.exclusive_handle);
    tag.exclusive_handle->has_tag_exclusively = 0;
    tag.exclusive_handle = nullptr;
  }
}

void leave_tag(qk_mem_handle& handle) {
  assert_registry_held();
  if (handle.counted_in_tag == 0) return;
  handle.counted_in_tag = 0;
  --handle.tag->handle_count;
  if (handle.tag->exclusive_handle != &handle) return;
  const HandleLock lock(handle);
  handle.has_tag_exclusively = 0;
  handle.tag->exclusive_handle = nullptr;
}

}  // namespace qk::mem
