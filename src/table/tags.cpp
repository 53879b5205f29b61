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

}  // namespace qk::mem
