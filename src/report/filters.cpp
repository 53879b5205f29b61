#include "report/filters.h"

#include <cstdlib>

#include "core/kinds.h"
#include "core/option_call.h"
#include "core/registry.h"
#include "table/tags.h"

namespace qk::mem {
namespace {

enum Keyword { kHandle, kTag, kType, kAutofree, kBlockmgmt, kNewHandle, kNewPtrs, kAnd };

constexpr std::array<qk_option_keyword, 8> kTable = {
    keyword("HANDLE", qk::kRequiredValue),    keyword("TAG", qk::kRequiredValue),
    keyword("TYPE", qk::kRequiredValue),      keyword("AUTOFREE", qk::kRequiredValue),
    keyword("BLOCKMGMT", qk::kRequiredValue), keyword("NEW_HANDLE", qk::kRequiredValue),
    keyword("NEW_PTRS", qk::kRequiredValue),  keyword("AND", qk::kNoValue),
};

struct Selection {
  Keyword keyword;
  std::int8_t qk_mem_filters::*member;
};

constexpr Selection kSelections[] = {
    {kAutofree, &qk_mem_filters::autofree_sel},
    {kBlockmgmt, &qk_mem_filters::blockmgmt_sel},
    {kNewHandle, &qk_mem_filters::new_handle_sel},
    {kNewPtrs, &qk_mem_filters::new_ptrs_sel},
};

int refuse(int code) {
  Qk_mem_error.set(code);
  return code;
}

/** Returns false for a name that is too long. */
bool select_tag(const char* value, qk_mem_filters& filters) {
  if (qk_stricmp(value, "NONE") == 0) {
    filters.untagged_only = 1;
    return true;
  }
  if (qk_strlen(value) > kTagLength) return false;
  qk::copy_text(filters.tag_name, sizeof filters.tag_name, value);
  qk::upper_case(filters.tag_name);
  return true;
}

void select_type(const char* value, qk_mem_filters& filters) {
  if (qk_stricmp(value, "DATA") == 0) filters.handle_type = 'D';
  if (qk_stricmp(value, "OVERHEAD") == 0) filters.handle_type = 'O';
}

void select_property(const char* value, std::int8_t& selection) {
  if (qk_stricmp(value, "TRUE") == 0) selection = 1;
  if (qk_stricmp(value, "FALSE") == 0) selection = -1;
}

bool excludes(std::int8_t selection, bool property) {
  return selection != 0 && (selection > 0) != property;
}

bool excludes_tag(const qk_mem_filters& filters, const qk_mem_tag& tag) {
  if (filters.tag_name[0] != '\0' && !has_name(tag, filters.tag_name)) return true;
  return filters.untagged_only != 0 && tag.name[0] != '\0';
}

}  // namespace
}  // namespace qk::mem

extern "C" int qk_mem_init_filters(const char* filter, qk_mem_filters* filters) {
  using namespace qk::mem;
  *filters = {};
  if (qk_strlen(filter) == 0) return 0;
  OptionText text(filter);
  OptionCall call(kTable);
  if (!call.process(text)) return refuse(QK_MEM_ERROR_OPTIONS);
  if (call.has(kHandle)) filters->handle_id = std::atoi(call.value(kHandle));
  if (call.has(kTag) && !select_tag(call.value(kTag), *filters)) {
    return refuse(QK_MEM_ERROR_FILTER_TAG);
  }
  if (call.has(kType)) select_type(call.value(kType), *filters);
  for (const Selection& selection : kSelections) {
    if (call.has(selection.keyword)) {
      select_property(call.value(selection.keyword), filters->*selection.member);
    }
  }
  return 0;
}

extern "C" int qk_mem_filter_handle(const qk_mem_handle* handle, const qk_mem_filters* filters) {
  using namespace qk::mem;
  if (filters->handle_id != 0 && filters->handle_id != handle->id) return 1;
  if (excludes_tag(*filters, *handle->tag)) return 1;
  if (filters->handle_type != 0 && filters->handle_type != handle->type) return 1;
  return excludes(filters->autofree_sel, handle->autofree != 0) ||
         excludes(filters->blockmgmt_sel, is_blockmgmt(*handle)) ||
         excludes(filters->new_handle_sel, handle->baselined == 0) ||
         excludes(filters->new_ptrs_sel, handle->has_growth != 0);
}

extern "C" int qk_mem_filter_pointer(const qk_mem_ptr* record, const qk_mem_filters* filters) {
  return qk::mem::excludes(filters->new_ptrs_sel, record->baselined == 0);
}

extern "C" int qk_mem_filter_tag(const qk_mem_tag* tag, const qk_mem_filters* filters) {
  return qk::mem::excludes_tag(*filters, *tag);
}
