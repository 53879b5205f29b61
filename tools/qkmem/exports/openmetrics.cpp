#include "formats/openmetrics.h"

#include <map>
#include <new>

#include "exports/exports.h"
#include "exports/samples.h"
#include "support/page_buffer.h"
#include "views/groups.h"
#include "views/names.h"

namespace qk::command {
namespace {

using mem::MetricFamily;

/** Handles of one number and tag are one series. */
using Handles = std::map<std::pair<int, std::string>, Figures>;

void put_handles(mem::OpenMetricsWriter& writer, MetricFamily family, const Handles& handles,
                 std::uint64_t (*figure)(const Query&, const Figures&), const Query& query) {
  writer.begin(family);
  for (const auto& [handle, figures] : handles) {
    writer.sample({handle.first, handle.second}, signed_of(figure(query, figures)));
  }
}

}  // namespace

Export write_openmetrics(const Query& query) {
  if (query.at == At::kEver) throw UsageError("--at ever: these metrics are of live memory");
  const Reading reading = read(query);
  const Ledger& ledger = reading.ledger;
  Handles handles;
  std::map<std::string, Figures> tags;
  for (SiteIndex site = 0; site < ledger.sites().count(); ++site) {
    if (ledger.figures_of(site).is_empty()) continue;
    const Handle& handle = ledger.handles()[ledger.sites().at(site).handle];
    handles[{handle.number, handle.tag}].add(ledger.figures_of(site));
    if (!handle.tag.empty()) tags[handle.tag].add(ledger.figures_of(site));
  }
  const std::string path = ledger.program().path.empty() ? query.input : ledger.program().path;
  const std::string program(base_of(path));
  qk::PageBuffer text;
  mem::OpenMetricsWriter writer(program, static_cast<int>(ledger.program().process), 1, text);
  writer.begin(MetricFamily::kTagBytes);
  for (const auto& [tag, figures] : tags) {
    writer.sample({0, tag}, signed_of(amount_of(query, figures).bytes));
  }
  put_handles(
      writer, MetricFamily::kHandleBytes, handles,
      [](const Query& asked, const Figures& of) { return amount_of(asked, of).bytes; }, query);
  put_handles(
      writer, MetricFamily::kHandleBlocks, handles,
      [](const Query& asked, const Figures& of) { return amount_of(asked, of).blocks; }, query);
  writer.begin(MetricFamily::kAllocations);
  writer.sample({}, signed_of(ledger.whole().made.blocks));
  writer.begin(MetricFamily::kPeakBytes);
  writer.sample({}, signed_of(ledger.peak()));
  if (!writer.finish()) throw std::bad_alloc();
  return {std::string(text.text()), reading.remarks};
}

}  // namespace qk::command
