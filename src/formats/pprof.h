#ifndef QKMEM_FORMATS_PPROF_H_
#define QKMEM_FORMATS_PPROF_H_

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

#include "formats/intern_table.h"
#include "support/page_arena.h"
#include "support/page_buffer.h"
#include "support/page_writer.h"

namespace qk::mem {

/** What a profile is made of, by number. 0 is none, and the text "". */
enum class PprofText : std::uint64_t {};
enum class PprofFunction : std::uint64_t {};
enum class PprofMapping : std::uint64_t {};
enum class PprofLocation : std::uint64_t {};

struct PprofFacts {
  std::int64_t time_nanos = 0;      // since 1970
  std::int64_t duration_nanos = 0;  // that the profile covers
  std::int64_t period = 1;          // bytes between samples; 1 if every allocation is counted
};

/** A file in the program's memory. */
struct PprofMappingFacts {
  std::uint64_t start = 0;
  std::uint64_t limit = 0;   // the first address behind it
  std::uint64_t offset = 0;  // of `start` in the file
  std::string_view file{};
  std::string_view build_id{};  // in hexadecimal
  // What is known of all its locations; a viewer looks the rest up in the file.
  bool has_functions = false;
  bool has_file_names = false;
  bool has_line_numbers = false;
  bool has_inline_frames = false;
};

struct PprofLine {
  PprofFunction function{};
  std::int64_t line = 0;  // 0 if it isn't known
};

/**
 * A label with a text, or a label with a number and its unit if there is no text. It is left out if
 * it says nothing, as with an empty text.
 */
struct PprofLabel {
  PprofText key{};
  PprofText text{};
  std::int64_t number = 0;
  PprofText unit{};
};

struct PprofValues {
  std::int64_t alloc_objects = 0;  // since the profile began
  std::int64_t alloc_space = 0;    // bytes
  std::int64_t inuse_objects = 0;  // now
  std::int64_t inuse_space = 0;

  [[nodiscard]] bool operator==(const PprofValues&) const = default;
};

/**
 * Writes a profile for `go tool pprof` and servers that read its format, uncompressed. Without the
 * heap: what is written goes to a PageBuffer at once, tables to a PageArena, which gets them back
 * when the writer ends. Linear time.
 *
 * Texts can be any bytes: what is not UTF-8 becomes U+FFFD. If there is no memory, finish() says so
 * once and for all. One thread at a time.
 */
class PprofWriter {
 public:
  /** The buffer must be empty, and nothing else may be appended to it until finish(). */
  PprofWriter(const PprofFacts& facts, qk::PageBuffer& out, qk::PageArena& arena) noexcept;

  /** The same text, function or line has the same number each time. */
  [[nodiscard]] PprofText text(std::string_view text) noexcept;
  /** Viewers demangle the name. */
  [[nodiscard]] PprofFunction function(std::string_view name, std::string_view file) noexcept;
  /** A place in the sources whose address isn't known. */
  [[nodiscard]] PprofLocation location_of(const PprofLine& line) noexcept;

  [[nodiscard]] PprofMapping add_mapping(const PprofMappingFacts& facts) noexcept;

  /**
   * @param lines  of the functions that are inlined there, innermost first; the last one is that of
   *               the function itself. Empty if nothing is known.
   */
  PprofLocation add_location(std::uint64_t address, PprofMapping mapping,
                             std::span<const PprofLine> lines) noexcept;
  /** Returns the location that was added for an address, or 0. */
  [[nodiscard]] PprofLocation find_location(std::uint64_t address) const noexcept;

  /** @param locations  where the memory was requested first, then its callers. */
  void add_sample(std::span<const PprofLocation> locations, const PprofValues& values,
                  std::span<const PprofLabel> labels) noexcept;

  /** Returns whether the buffer has the whole profile; otherwise there was no memory. */
  [[nodiscard]] bool finish() const noexcept { return !out_.has_failed(); }

 private:
  void put_value_type(int field, std::string_view type, std::string_view unit) noexcept;
  [[nodiscard]] std::uint64_t text_number(std::string_view text) noexcept;
  [[nodiscard]] std::uint64_t utf8_number(std::string_view text) noexcept;
  [[nodiscard]] std::uint64_t cleaned_number(std::string_view text) noexcept;
  void put_location(std::uint64_t number, std::uint64_t address, PprofMapping mapping,
                    std::span<const PprofLine> lines) noexcept;
  void remember(InternTable& table, const InternTable::Entry& entry) noexcept;

  const qk::PageBuffer& written_;
  qk::PageArena& arena_;
  qk::PageWriter out_;
  InternTable texts_;
  InternTable functions_;
  InternTable addresses_;
  InternTable lines_;
  std::uint64_t text_count_ = 0;
  std::uint64_t function_count_ = 0;
  std::uint64_t mapping_count_ = 0;
  std::uint64_t location_count_ = 0;
};

}  // namespace qk::mem

#endif  // QKMEM_FORMATS_PPROF_H_
