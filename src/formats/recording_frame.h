#ifndef QKMEM_FORMATS_RECORDING_FRAME_H_
#define QKMEM_FORMATS_RECORDING_FRAME_H_

#include <cstdint>
#include <string_view>

#include "formats/recording_fields.h"
#include "formats/recording_reader.h"

namespace qk::mem::recording {

/** A call that a return address stands for, see docs/recording.md. */
struct FrameRecord {
  std::uint64_t address = 0;
  std::uint64_t depth = 0;  // 0 is the innermost one of those that were inlined in each other
  std::string_view function;
  std::string_view file;
  std::uint64_t line = 0;

  /** Writes the fields to a FieldCount or a FieldWriter. Texts that are too long are cut. */
  template <class Fields>
  void write(Fields& fields) const {
    fields.number(address);
    fields.number(depth);
    fields.text(function.substr(0, kLongestText));
    fields.text(file.substr(0, kLongestText));
    fields.number(line);
  }

  /** Takes the fields, of which it keeps no copy. */
  [[nodiscard]] static FrameRecord read(FieldReader& fields) noexcept {
    FrameRecord frame;
    frame.address = fields.number();
    frame.depth = fields.number();
    frame.function = fields.text();
    frame.file = fields.text();
    frame.line = fields.number();
    return frame;
  }
};

}  // namespace qk::mem::recording

#endif  // QKMEM_FORMATS_RECORDING_FRAME_H_
