#include "support/options.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

namespace {

using qk::kNoValue;
using qk::kOptionalValue;
using qk::kRequiredValue;

/**
 * LOG needs a value, DEBUG may have one. HEAPSIZE may be cut to HEAP, and the words with AUTO to A.
 */
std::vector<qk_option_keyword> table() {
  return {
      {0, "LOG", 0, 0, kRequiredValue, nullptr, 0}, {0, "DEBUG", 0, 0, kOptionalValue, nullptr, 0},
      {0, "OFF", 0, 0, kNoValue, nullptr, 0},       {0, "HEAPSIZE", 4, 0, kNoValue, nullptr, 0},
      {1, "AUTOFREE", 1, 2, kNoValue, nullptr, 0},  {0, "AUTOSAVE", 1, 0, kNoValue, nullptr, 0}};
}

using Processor = int (*)(char*, qk_option_keyword*, int, qk_option_error*);

/** The result for a string: "2: LOG=[a b] OFF", or "-: 10041 [WORD]". */
std::string outcome(const std::string& options, std::vector<qk_option_keyword> entries = table(),
                    Processor process = qk_process_options) {
  std::vector<char> copy(options.begin(), options.end());
  copy.push_back('\0');
  qk_option_error error = {};
  const int found = process(copy.data(), entries.data(), static_cast<int>(entries.size()), &error);
  if (found < 0) return "-: " + std::to_string(error.code) + " [" + error.text + "]";
  std::string text = std::to_string(found) + ":";
  for (const qk_option_keyword& entry : entries) {
    if (entry.found == 0) continue;
    text += ' ';
    text.append(entry.keyword, strnlen(entry.keyword, sizeof entry.keyword));
    if (entry.value == nullptr) continue;
    text += "=[";
    text += entry.value;
    text += ']';
  }
  return text;
}

struct Case {
  const char* options;
  const char* outcome;
};

template <std::size_t kCount>
void expect(const Case (&cases)[kCount]) {
  for (const Case& c : cases) EXPECT_EQ(outcome(c.options), c.outcome) << "options: " << c.options;
}

TEST(OptionParser, FindsNoKeywordInAnEmptyString) {
  expect({{"", "0:"}, {" ", "0:"}, {" \t,, ", "0:"}});
}

TEST(OptionParser, SeparatesKeywordsByBlanksTabsOrCommas) {
  expect({{"OFF DEBUG", "2: DEBUG OFF"},
          {"OFF\tDEBUG", "2: DEBUG OFF"},
          {"OFF,DEBUG", "2: DEBUG OFF"},
          {" ,OFF ,\t DEBUG, ", "2: DEBUG OFF"},
          {"OFF\nDEBUG", "-: 10041 [OFF\nDEBUG]"}});
}

TEST(OptionParser, MatchesKeywordsInEitherCase) {
  expect({{"off", "1: OFF"}, {"Off dEbUg=X", "2: DEBUG=[X] OFF"}});
}

TEST(OptionParser, MatchesTheTablesKeywordsInEitherCase) {
  EXPECT_EQ(outcome("OFF", {{0, "off", 0, 0, kNoValue, nullptr, 0}}), "1: off");
}

TEST(OptionParser, AcceptsAKeywordShortenedToItsAbbreviation) {
  expect({{"HEAP", "1: HEAPSIZE"},
          {"heapsiz", "1: HEAPSIZE"},
          {"HEA", "-: 10041 [HEA]"},
          {"HEAPSIZES", "-: 10041 [HEAPSIZES]"},
          {"HEAPX", "-: 10041 [HEAPX]"}});
}

TEST(OptionParser, RequiresAWholeKeywordWithoutAbbreviation) {
  expect({{"OF", "-: 10041 [OF]"}, {"DEBU", "-: 10041 [DEBU]"}, {"OFFS", "-: 10041 [OFFS]"}});
}

TEST(OptionParser, PicksTheFirstKeywordThatAnAbbreviationFits) {
  expect({{"A", "1: AUTOFREE"}, {"AUTO", "1: AUTOFREE"}, {"AUTOS", "1: AUTOSAVE"}});
}

TEST(OptionParser, PrefersAWholeMatchToAnEarlierAbbreviation) {
  const std::vector<qk_option_keyword> entries = {{0, "HEAPSIZE", 4, 0, kNoValue, nullptr, 0},
                                                  {0, "HEAP", 0, 0, kNoValue, nullptr, 0}};
  EXPECT_EQ(outcome("heap", entries), "1: HEAP");
  EXPECT_EQ(outcome("heaps", entries), "1: HEAPSIZE");
}

TEST(OptionParser, ReadsAValueToTheNextBlankWithItsCommas) {
  expect({{"LOG=a.log", "1: LOG=[a.log]"},
          {"LOG=a,b,c OFF", "2: LOG=[a,b,c] OFF"},
          {"LOG=a\tOFF", "2: LOG=[a] OFF"},
          {"LOG=,OFF", "1: LOG=[,OFF]"},
          {"LOG=a=b", "1: LOG=[a=b]"},
          {"LOG==", "1: LOG=[=]"},
          {"LOG=a'b", "1: LOG=[a'b]"},
          {"OFF,LOG=a", "2: LOG=[a] OFF"}});
}

TEST(OptionParser, StripsQuotesAndKeepsTheBlanksInThem) {
  expect(
      {{"LOG='a b'", "1: LOG=[a b]"},
       {"LOG=\"a b\" OFF", "2: LOG=[a b] OFF"},
       {"LOG=\"it's\"", "1: LOG=[it's]"},
       {"LOG='\"'", "1: LOG=[\"]"},
       {"DEBUG='not qk_ifree,qk_imalloc' LOG=' '", "2: LOG=[ ] DEBUG=[not qk_ifree,qk_imalloc]"}});
}

TEST(OptionParser, StartsTheNextWordAfterTheClosingQuote) {
  expect({{"LOG='a'OFF", "2: LOG=[a] OFF"},
          {"LOG='a',OFF", "2: LOG=[a] OFF"},
          {"LOG='a'DEBUG='b'", "2: LOG=[a] DEBUG=[b]"},
          {"LOG='a'b", "-: 10041 [b]"},
          {"LOG='a''b'", "-: 10041 ['b']"}});
}

TEST(OptionParser, TreatsAnEmptyOptionalValueAsNone) {
  expect({{"DEBUG", "1: DEBUG"},
          {"DEBUG=", "1: DEBUG"},
          {"DEBUG= OFF", "2: DEBUG OFF"},
          {"DEBUG=''", "1: DEBUG"},
          {"DEBUG=\"\"OFF", "2: DEBUG OFF"}});
}

TEST(OptionParser, UsesTheLastOfARepeatedKeyword) {
  expect({{"LOG=a LOG=b", "1: LOG=[b]"},
          {"DEBUG=a DEBUG", "1: DEBUG"},
          {"DEBUG DEBUG=a OFF off", "2: DEBUG=[a] OFF"}});
}

TEST(OptionParser, NamesAnUnknownKeywordWithoutItsValue) {
  expect({{"NONSENSE", "-: 10041 [NONSENSE]"},
          {"OFF Nonsense=7 DEBUG", "-: 10041 [Nonsense]"},
          {"X='open", "-: 10041 [X]"},
          {"'OFF'", "-: 10041 ['OFF']"}});
}

TEST(OptionParser, TreatsALoneEqualsSignAsAnUnknownKeyword) {
  expect({{"=", "-: 10041 [=]"}, {"OFF,=x", "-: 10041 [=]"}, {"LOG='a'=b", "-: 10041 [=]"}});
}

TEST(OptionParser, RefusesAValueIfNoneIsAllowed) {
  expect({{"OFF=1", "-: 10042 [OFF]"},
          {"off=", "-: 10042 [off]"},
          {"HEAP=", "-: 10042 [HEAP]"},
          {"OFF=''", "-: 10042 [OFF]"},
          {"OFF='open", "-: 10042 [OFF]"}});
}

TEST(OptionParser, RefusesAMissingRequiredValue) {
  expect({{"LOG", "-: 10043 [LOG]"},
          {"LOG=", "-: 10043 [LOG]"},
          {"log= OFF", "-: 10043 [log]"},
          {"LOG =a", "-: 10043 [LOG]"},
          {"LOG=''", "-: 10043 [LOG]"},
          {"LOG=\"\"", "-: 10043 [LOG]"},
          {"LOG=a LOG", "-: 10043 [LOG]"}});
}

TEST(OptionParser, RefusesAnOpenQuote) {
  expect({{"LOG='a b", "-: 10044 [LOG]"},
          {"LOG='", "-: 10044 [LOG]"},
          {"DEBUG=\"a' OFF", "-: 10044 [DEBUG]"}});
}

TEST(OptionParser, ReportsTheFirstInvalidWord) {
  expect({{"OFF= NONSENSE LOG", "-: 10042 [OFF]"}, {"LOG NONSENSE", "-: 10043 [LOG]"}});
}

TEST(OptionParser, CutsAnInvalidWordTo256Characters) {
  EXPECT_EQ(outcome(std::string(300, 'X')), "-: 10041 [" + std::string(256, 'X') + "]");
  EXPECT_EQ(outcome(std::string(256, 'X') + "=1"), "-: 10041 [" + std::string(256, 'X') + "]");
}

TEST(OptionParser, MatchesAKeywordThatFillsItsWholeField) {
  std::vector<qk_option_keyword> entries(2);
  std::memset(entries[0].keyword, 'K', sizeof entries[0].keyword);
  entries[0].abbrev = 255;  // reading past the field would make this part of the keyword
  EXPECT_EQ(outcome(std::string(33, 'k'), entries), "1: " + std::string(33, 'K'));
  EXPECT_EQ(outcome(std::string(34, 'k'), entries), "-: 10041 [" + std::string(34, 'k') + "]");
  EXPECT_EQ(outcome(std::string(32, 'k'), entries), "-: 10041 [" + std::string(32, 'k') + "]");
}

TEST(OptionParser, DoesNotMatchAnEntryWithoutAKeyword) {
  EXPECT_EQ(outcome("=", {{0, "", 1, 0, kOptionalValue, nullptr, 0}}), "-: 10041 [=]");
}

TEST(OptionParser, ResetsOldResultsEvenForAnEmptyString) {
  char old[] = "old";
  char empty[] = "";
  for (char* options : {static_cast<char*>(nullptr), empty}) {
    qk_option_keyword entry = {0, "DEBUG", 0, 0, kOptionalValue, old, 1};
    EXPECT_EQ(qk_process_options(options, &entry, 1, nullptr), 0);
    EXPECT_EQ(entry.found, 0);
    EXPECT_EQ(entry.value, nullptr);
  }
}

TEST(OptionParser, KnowsNoKeywordWithoutATable) {
  char options[] = "OFF";
  std::vector<qk_option_keyword> entries = table();
  EXPECT_LT(qk_process_options(options, nullptr, 3, nullptr), 0);
  EXPECT_LT(qk_process_options(options, entries.data(), 0, nullptr), 0);
  EXPECT_LT(qk_process_options(options, entries.data(), -1, nullptr), 0);
  EXPECT_EQ(qk_process_options(nullptr, nullptr, 3, nullptr), 0);
}

TEST(OptionParser, CanFailWithoutAnErrorRecord) {
  char options[] = "NONSENSE";
  std::vector<qk_option_keyword> entries = table();
  EXPECT_LT(qk_process_options(options, entries.data(), 6, nullptr), 0);
}

TEST(OptionParser, LeavesTheErrorRecordAloneOnSuccess) {
  char options[] = "OFF";
  std::vector<qk_option_keyword> entries = table();
  qk_option_error error = {7, "kept"};
  EXPECT_EQ(qk_process_options(options, entries.data(), 6, &error), 1);
  EXPECT_EQ(error.code, 7);
  EXPECT_STREQ(error.text, "kept");
}

TEST(OptionParser, TerminatesValuesInsideTheCallersString) {
  char options[] = "#LOG=a b#";
  options[8] = '\0';
  std::vector<qk_option_keyword> entries = table();
  entries[1] = {0, "B", 0, 0, kNoValue, nullptr, 0};
  EXPECT_EQ(qk_process_options(options + 1, entries.data(), 6, nullptr), 2);
  EXPECT_EQ(entries[0].value, options + 5);
  EXPECT_EQ(std::string(options, sizeof options), std::string("#LOG=a\0b\0\0", 10));
}

TEST(OptionParser, KeepsWhatTheCallerSetInTheTable) {
  char options[] = "auto";
  std::vector<qk_option_keyword> entries = table();
  EXPECT_EQ(qk_process_options(options, entries.data(), 6, nullptr), 1);
  EXPECT_EQ(entries[4].control, 1);
  EXPECT_STREQ(entries[4].keyword, "AUTOFREE");
  EXPECT_EQ(entries[4].abbrev, 1);
  EXPECT_EQ(entries[4].mark, 2);
  EXPECT_EQ(entries[4].value_kind, kNoValue);
}

TEST(OptionParser, GivesTheSameResultsInEveryMode) {
  const Processor in_mode_2 = [](char* options, qk_option_keyword* entries, int count,
                                 qk_option_error* error) {
    return qk_check_options(options, entries, count, error, 2);
  };
  const Processor in_mode_0 = [](char* options, qk_option_keyword* entries, int count,
                                 qk_option_error* error) {
    return qk_check_options(options, entries, count, error, 0);
  };
  for (const Processor check : {in_mode_2, in_mode_0}) {
    EXPECT_EQ(outcome("LOG='a b' OFF DEBUG", table(), check), "3: LOG=[a b] DEBUG OFF");
    EXPECT_EQ(outcome("", table(), check), "0:");
    EXPECT_EQ(outcome("OFF=1", table(), check), "-: 10042 [OFF]");
  }
}

}  // namespace
