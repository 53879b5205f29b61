// Configuration of the report's sections.
#include "config/refusal.h"
#include "config/word_rules.h"
#include "core/option_call.h"
#include "core/switches.h"

namespace qk::mem {
namespace {

constexpr char kRoutine[] = "qk_mem_dump_config";

enum OuterKeyword { kOptions };

constexpr std::array<qk_option_keyword, 1> kOuterTable = {keyword("OPTIONS", qk::kRequiredValue)};

/** In the order of the QK_MEM_DUMP_ bits. */
constexpr std::array<qk_option_keyword, 9> kSections = {
    keyword("SUMMARY", qk::kNoValue),    keyword("HEAPSIZE", qk::kNoValue, 4),
    keyword("HANDLES", qk::kNoValue, 6), keyword("MGMT", qk::kNoValue),
    keyword("BLOCKS", qk::kNoValue),     keyword("POINTERS", qk::kNoValue),
    keyword("COMPARISON", qk::kNoValue), keyword("GROWTH", qk::kNoValue),
    keyword("TERSE", qk::kNoValue),
};

std::uint32_t selected(const OptionCall<kSections.size()>& call) {
  std::uint32_t bits = 0;
  for (unsigned i = 0; i < kSections.size(); ++i) {
    if (call.has(i)) bits |= 1U << i;
  }
  return bits;
}

}  // namespace

WordRules dump_word_rules() {
  static constexpr auto kForms = forms_of(kOuterTable);
  return {kForms};
}

WordRules section_word_rules() {
  static constexpr auto kForms = forms_of(kSections);
  return {kForms};
}

}  // namespace qk::mem

extern "C" int qk_mem_dump_config(const char* options, qk::Status* status) {
  using namespace qk::mem;
  if (status == nullptr) return QK_MEM_ERROR_NULL_STATUS;
  QK_CLEAR_STATUS(status);
  if (options == nullptr) {
    return Refusal(*status, QK_MEM_ERROR_NULL_OPTIONS, kRoutine, own::kDumpNull)
        .arguments("passed_option_list", kRoutine)
        .code();
  }
  OptionText text(options);
  if (text.too_long()) {
    return refuse_length(*status, kRoutine, own::kDumpTooLong, "passed_option_list", text.length());
  }
  OptionCall outer(kOuterTable);
  if (!outer.process(text)) {
    return refuse_options(*status, kRoutine, own::kDumpInvalid, outer.error());
  }
  if (!outer.has(kOptions)) return 0;
  OptionCall sections(kSections);
  if (!sections.process(outer.value(kOptions))) {
    return refuse_options(*status, kRoutine, own::kDumpInvalidSections, sections.error());
  }
  qk::store(Qk_mem_dump_opts, selected(sections));
  return 0;
}
