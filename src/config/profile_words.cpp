#include "config/profile_words.h"

#include <cerrno>

#include "support/line.h"
#include "support/own_message.h"
#include "support/system.h"

namespace qk::mem {
namespace {

std::int32_t name_mistake(const WordSource& source, std::string_view keyword,
                          std::string_view mistake, std::int32_t code) {
  Line line;
  line.put("qkmem: ").put(source.name).put(": ").put(keyword).put(" ").put(mistake);
  line.put(". ").put(source.consequence).put('\n');
  write_message(line.finish());
  return code;
}

}  // namespace

std::int32_t name_unknown_word(const WordSource& source, std::string_view word,
                               std::string_view nearest) {
  Line line;
  line.put("qkmem: ").put(source.name).put(": unknown keyword '").put(word).put("'; is ");
  line.put(nearest).put(" meant? ").put(source.consequence).put('\n');
  write_message(line.finish());
  return qk::kUnknownKeyword;
}

std::int32_t check_word(const WordSource& source, std::string_view keyword, std::uint8_t value_kind,
                        const OptionWord& word) {
  if (value_kind == qk::kNoValue && word.has_equals) {
    return name_mistake(source, keyword, "takes no value", qk::kValueNotAllowed);
  }
  if (word.quote_open) {
    return name_mistake(source, keyword, "has a quote that is not closed", qk::kQuoteNotClosed);
  }
  if (value_kind == qk::kRequiredValue && word.value == nullptr) {
    return name_mistake(source, keyword, "needs a value", qk::kValueMissing);
  }
  return 0;
}

std::int32_t name_bad_value(const WordSource& source, std::string_view keyword, const char* value) {
  Line mistake;
  mistake.put("can't be '").put(value).put("'");
  return name_mistake(source, keyword, mistake.finish(), qk_error_no(EINVAL));
}

}  // namespace qk::mem
