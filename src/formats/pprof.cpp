#include "formats/pprof.h"

#include <array>

#include "formats/protobuf.h"
#include "support/utf8.h"

namespace qk::mem {
namespace {

using proto::put_message;
using proto::put_number;
using proto::put_packed;
using proto::put_text;

/** The fields of the format, whose numbers never change. */
namespace profile {
constexpr int kSampleType = 1;
constexpr int kSample = 2;
constexpr int kMapping = 3;
constexpr int kLocation = 4;
constexpr int kFunction = 5;
constexpr int kStringTable = 6;
constexpr int kTimeNanos = 9;
constexpr int kDurationNanos = 10;
constexpr int kPeriodType = 11;
constexpr int kPeriod = 12;
constexpr int kDefaultSampleType = 14;
}  // namespace profile
namespace value_type {
constexpr int kType = 1;
constexpr int kUnit = 2;
}  // namespace value_type
namespace sample {
constexpr int kLocationId = 1;
constexpr int kValue = 2;
constexpr int kLabel = 3;
}  // namespace sample
namespace label {
constexpr int kKey = 1;
constexpr int kStr = 2;
constexpr int kNum = 3;
constexpr int kNumUnit = 4;
}  // namespace label
namespace mapping {
constexpr int kId = 1;
constexpr int kMemoryStart = 2;
constexpr int kMemoryLimit = 3;
constexpr int kFileOffset = 4;
constexpr int kFilename = 5;
constexpr int kBuildId = 6;
constexpr int kHasFunctions = 7;
constexpr int kHasFilenames = 8;
constexpr int kHasLineNumbers = 9;
constexpr int kHasInlineFrames = 10;
}  // namespace mapping
namespace location {
constexpr int kId = 1;
constexpr int kMappingId = 2;
constexpr int kAddress = 3;
constexpr int kLine = 4;
}  // namespace location
namespace line {
constexpr int kFunctionId = 1;
constexpr int kLine = 2;
}  // namespace line
namespace function {
constexpr int kId = 1;
constexpr int kName = 2;
constexpr int kSystemName = 3;
constexpr int kFilename = 4;
}  // namespace function

/** An enumeration or a signed number as the format has it. */
template <class Number>
constexpr std::uint64_t bits(Number number) {
  return static_cast<std::uint64_t>(number);
}

/** Spreads numbers that differ little, so that tables fill evenly. */
constexpr std::uint64_t hash_of(std::uint64_t first, std::uint64_t second) {
  std::uint64_t hash = first * 0x9E3779B97F4A7C15 + second;
  hash = (hash ^ (hash >> 30)) * 0xBF58476D1CE4E5B9;
  hash = (hash ^ (hash >> 27)) * 0x94D049BB133111EB;
  return hash ^ (hash >> 31);
}

std::uint64_t hash_of(std::string_view text) {
  std::uint64_t hash = 0xCBF29CE484222325;
  for (const char c : text) hash = (hash ^ static_cast<unsigned char>(c)) * 0x100000001B3;
  return hash_of(hash, text.size());
}

std::uint64_t number_of_words(const InternTable& table, std::uint64_t first, std::uint64_t second) {
  return table.find(hash_of(first, second), [first, second](const InternTable::Entry& entry) {
    return entry.first == first && entry.second == second;
  });
}

bool says_nothing(const PprofLabel& label) {
  return label.text == PprofText{} && label.number == 0 && label.unit == PprofText{};
}

}  // namespace

PprofWriter::PprofWriter(const PprofFacts& facts, qk::PageBuffer& out,
                         qk::PageArena& arena) noexcept
    : written_(out),
      arena_(arena),
      out_(out),
      texts_(arena),
      functions_(arena),
      addresses_(arena),
      lines_(arena) {
  put_text(out_, profile::kStringTable, "");  // number 0 must be the empty text
  put_value_type(profile::kSampleType, "alloc_objects", "count");
  put_value_type(profile::kSampleType, "alloc_space", "bytes");
  put_value_type(profile::kSampleType, "inuse_objects", "count");
  put_value_type(profile::kSampleType, "inuse_space", "bytes");
  put_value_type(profile::kPeriodType, "space", "bytes");
  put_number(out_, profile::kTimeNanos, bits(facts.time_nanos));
  put_number(out_, profile::kDurationNanos, bits(facts.duration_nanos));
  put_number(out_, profile::kPeriod, bits(facts.period));
  put_number(out_, profile::kDefaultSampleType, text_number("inuse_space"));
}

void PprofWriter::put_value_type(int field, std::string_view type, std::string_view unit) noexcept {
  const std::uint64_t type_number = text_number(type);
  const std::uint64_t unit_number = text_number(unit);
  put_message(out_, field, [=](auto& message) {
    put_number(message, value_type::kType, type_number);
    put_number(message, value_type::kUnit, unit_number);
  });
}

void PprofWriter::remember(InternTable& table, const InternTable::Entry& entry) noexcept {
  if (!table.add(entry)) out_.fail();
}

PprofText PprofWriter::text(std::string_view text) noexcept { return PprofText{text_number(text)}; }

std::uint64_t PprofWriter::text_number(std::string_view text) noexcept {
  if (text.empty()) return 0;
  const qk::Utf8Piece piece = qk::first_utf8_piece(text);
  const bool is_utf8 = piece.is_valid && piece.length == text.size();
  return is_utf8 ? utf8_number(text) : cleaned_number(text);
}

std::uint64_t PprofWriter::utf8_number(std::string_view text) noexcept {
  const std::uint64_t hash = hash_of(text);
  // The table has the place of the text in what is written, which can move.
  const std::uint64_t known = texts_.find(hash, [this, text](const InternTable::Entry& entry) {
    return written_.text().substr(entry.first, entry.second) == text;
  });
  if (known != 0) return known;
  put_text(out_, profile::kStringTable, text);
  if (out_.has_failed()) return 0;
  const std::uint64_t number = ++text_count_;
  remember(texts_, {written_.text().size() - text.size(), text.size(), hash, number});
  return number;
}

std::uint64_t PprofWriter::cleaned_number(std::string_view text) noexcept {
  const std::size_t most = qk::kReplacement.size() * text.size();
  void* const memory = arena_.take(most);
  if (memory == nullptr) {
    out_.fail();
    return 0;
  }
  char* const cleaned = static_cast<char*>(memory);
  std::size_t length = 0;
  qk::put_as_utf8(text, [cleaned, &length](std::string_view piece) {
    length += piece.copy(cleaned + length, piece.size());
  });
  const std::uint64_t number = utf8_number({cleaned, length});
  arena_.give_back(memory, most);
  return number;
}

PprofFunction PprofWriter::function(std::string_view name, std::string_view file) noexcept {
  const std::uint64_t name_number = text_number(name);
  const std::uint64_t file_number = text_number(file);
  const std::uint64_t known = number_of_words(functions_, name_number, file_number);
  if (known != 0) return PprofFunction{known};
  const std::uint64_t number = ++function_count_;
  remember(functions_, {name_number, file_number, hash_of(name_number, file_number), number});
  put_message(out_, profile::kFunction, [=](auto& message) {
    put_number(message, function::kId, number);
    put_number(message, function::kName, name_number);
    // Viewers demangle a name only if the two are equal.
    put_number(message, function::kSystemName, name_number);
    put_number(message, function::kFilename, file_number);
  });
  return PprofFunction{number};
}

PprofMapping PprofWriter::add_mapping(const PprofMappingFacts& facts) noexcept {
  const std::uint64_t file = text_number(facts.file);
  const std::uint64_t build_id = text_number(facts.build_id);
  const std::uint64_t number = ++mapping_count_;
  put_message(out_, profile::kMapping, [&](auto& message) {
    put_number(message, mapping::kId, number);
    put_number(message, mapping::kMemoryStart, facts.start);
    put_number(message, mapping::kMemoryLimit, facts.limit);
    put_number(message, mapping::kFileOffset, facts.offset);
    put_number(message, mapping::kFilename, file);
    put_number(message, mapping::kBuildId, build_id);
    put_number(message, mapping::kHasFunctions, bits(facts.has_functions));
    put_number(message, mapping::kHasFilenames, bits(facts.has_file_names));
    put_number(message, mapping::kHasLineNumbers, bits(facts.has_line_numbers));
    put_number(message, mapping::kHasInlineFrames, bits(facts.has_inline_frames));
  });
  return PprofMapping{number};
}

void PprofWriter::put_location(std::uint64_t number, std::uint64_t address, PprofMapping mapping,
                               std::span<const PprofLine> lines) noexcept {
  put_message(out_, profile::kLocation, [&](auto& message) {
    put_number(message, location::kId, number);
    put_number(message, location::kMappingId, bits(mapping));
    put_number(message, location::kAddress, address);
    for (const PprofLine& each : lines) {
      put_message(message, location::kLine, [&each](auto& nested) {
        put_number(nested, line::kFunctionId, bits(each.function));
        put_number(nested, line::kLine, bits(each.line));
      });
    }
  });
}

PprofLocation PprofWriter::add_location(std::uint64_t address, PprofMapping mapping,
                                        std::span<const PprofLine> lines) noexcept {
  const std::uint64_t number = ++location_count_;
  put_location(number, address, mapping, lines);
  if (address != 0) remember(addresses_, {address, 0, hash_of(address, 0), number});
  return PprofLocation{number};
}

PprofLocation PprofWriter::find_location(std::uint64_t address) const noexcept {
  return PprofLocation{number_of_words(addresses_, address, 0)};
}

PprofLocation PprofWriter::location_of(const PprofLine& line) noexcept {
  const std::uint64_t function_number = bits(line.function);
  const std::uint64_t line_number = bits(line.line);
  const std::uint64_t known = number_of_words(lines_, function_number, line_number);
  if (known != 0) return PprofLocation{known};
  const std::uint64_t number = ++location_count_;
  put_location(number, 0, PprofMapping{}, {&line, 1});
  remember(lines_, {function_number, line_number, hash_of(function_number, line_number), number});
  return PprofLocation{number};
}

void PprofWriter::add_sample(std::span<const PprofLocation> locations, const PprofValues& values,
                             std::span<const PprofLabel> labels) noexcept {
  const std::array all = {values.alloc_objects, values.alloc_space, values.inuse_objects,
                          values.inuse_space};
  put_message(out_, profile::kSample, [&](auto& message) {
    put_packed(message, sample::kLocationId, locations);
    put_packed(message, sample::kValue, all);
    for (const PprofLabel& each : labels) {
      if (says_nothing(each)) continue;
      put_message(message, sample::kLabel, [&each](auto& nested) {
        put_number(nested, label::kKey, bits(each.key));
        put_number(nested, label::kStr, bits(each.text));
        put_number(nested, label::kNum, bits(each.number));
        put_number(nested, label::kNumUnit, bits(each.unit));
      });
    }
  });
}

}  // namespace qk::mem
