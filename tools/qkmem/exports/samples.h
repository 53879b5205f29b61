#ifndef QKMEM_TOOLS_EXPORTS_SAMPLES_H_
#define QKMEM_TOOLS_EXPORTS_SAMPLES_H_

#include <cstdint>
#include <string>
#include <vector>

#include "views/query.h"

namespace qk::command {

/** A site as viewers see it. */
struct Sample {
  const Handle* handle;
  const SiteKey* site;
  const Figures* figures;
  /**
   * From the line that allocates to its callers as far as they are known, then the handle and its
   * tag as if they had called: so viewers divide everything by tags and handles.
   */
  std::vector<Frame> frames;
};

/** The sites that had anything, with the names of their callers. Remarks go to the reading. */
[[nodiscard]] std::vector<Sample> samples_of(Reading& reading);

/** Frames of a site, see Sample. */
[[nodiscard]] std::vector<Frame> frames_of(const Ledger& ledger, const SiteKey& site);

/** Formats have signed numbers. */
[[nodiscard]] constexpr std::int64_t signed_of(std::uint64_t number) {
  return static_cast<std::int64_t>(number);
}

/** The program's command line; the input's name if that is not known. */
[[nodiscard]] std::string command_line_of(const Query& query, const Ledger& ledger);

}  // namespace qk::command

#endif  // QKMEM_TOOLS_EXPORTS_SAMPLES_H_
