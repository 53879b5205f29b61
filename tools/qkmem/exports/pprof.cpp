#include "formats/pprof.h"

#include <zlib.h>

#include <new>

#include "exports/exports.h"
#include "exports/samples.h"
#include "views/groups.h"

namespace qk::command {
namespace {

std::string gzipped(std::string_view text) {
  if (text.size() > UINT32_MAX / 2) throw UsageError("the profile is too large for one file");
  z_stream stream = {};
  constexpr int kGzip = 16;
  constexpr int kMemory = 8;
  if (deflateInit2(&stream, Z_DEFAULT_COMPRESSION, Z_DEFLATED, MAX_WBITS + kGzip, kMemory,
                   Z_DEFAULT_STRATEGY) != Z_OK) {
    throw std::bad_alloc();
  }
  std::string compressed(deflateBound(&stream, text.size()), '\0');
  stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(text.data()));
  stream.avail_in = static_cast<uInt>(text.size());
  stream.next_out = reinterpret_cast<Bytef*>(compressed.data());
  stream.avail_out = static_cast<uInt>(compressed.size());
  deflate(&stream, Z_FINISH);
  compressed.resize(stream.total_out);
  deflateEnd(&stream);
  return compressed;
}

void add_sample(mem::PprofWriter& writer, const Query& query, const Sample& sample) {
  std::vector<mem::PprofLocation> locations;
  for (const Frame& frame : sample.frames) {
    locations.push_back(
        writer.location_of({writer.function(frame.function, frame.file), frame.line}));
  }
  Query at_end = query;
  if (query.at == At::kEver) at_end.at = At::kEnd;
  const Amount live = amount_of(at_end, *sample.figures);
  const mem::PprofValues values = {signed_of(sample.figures->made.blocks),
                                   signed_of(sample.figures->made.bytes), signed_of(live.blocks),
                                   signed_of(live.bytes)};
  const mem::PprofLabel labels[] = {{writer.text("handle"), {}, sample.handle->number, {}},
                                    {writer.text("tag"), writer.text(sample.handle->tag), 0, {}},
                                    {writer.text("label"), writer.text(sample.site->label), 0, {}}};
  writer.add_sample(locations, values, labels);
}

}  // namespace

Export write_pprof(const Query& query) {
  Reading reading = read(query);
  const Ledger& ledger = reading.ledger;
  qk::PageBuffer text;
  qk::PageArena arena;
  mem::PprofWriter writer({signed_of(ledger.program().started),
                           signed_of(ledger.last().nanoseconds - ledger.first().nanoseconds), 1},
                          text, arena);
  for (const Sample& sample : samples_of(reading)) add_sample(writer, query, sample);
  if (!writer.finish()) throw std::bad_alloc();
  return {gzipped(text.text()), reading.remarks};
}

}  // namespace qk::command
