#ifndef QKMEM_TOOLS_VIEWS_NAMES_H_
#define QKMEM_TOOLS_VIEWS_NAMES_H_

#include <string>

#include "ledger/ledger.h"

/** How handles, sites and moments are called. */
namespace qk::command {

/** "3", or "3 made at net.c:12". */
[[nodiscard]] std::string name_of(const Handle& handle);

/** "net.c:12", with its label behind it: "net.c:12 [body]". */
[[nodiscard]] std::string name_of(const SiteKey& site);

/** The name of a file without its folders. */
[[nodiscard]] std::string_view base_of(std::string_view path);

/** The name of an input without its folders, and without the endings that inputs have. */
[[nodiscard]] std::string_view stem_of(std::string_view input);

/** "event 512,334", with the time where it is known: "event 512,334, 2.4 s". */
[[nodiscard]] std::string moment_text(const Ledger& ledger, const Moment& moment);

/** "12.4 MiB in 3,456 blocks at event 512,334". */
[[nodiscard]] std::string peak_text(const Ledger& ledger);

/** "events.tdf: 1,006,383 events, 12 handles, 259 sites". */
[[nodiscard]] std::string heading_of(const std::string& input, const Ledger& ledger);

/** A function's name as people need it: without its types in C++. */
[[nodiscard]] std::string short_name(const Frame& frame);

/** "parse (net.c:12)", as far as it is known. */
[[nodiscard]] std::string name_of(const Frame& frame);

}  // namespace qk::command

#endif  // QKMEM_TOOLS_VIEWS_NAMES_H_
