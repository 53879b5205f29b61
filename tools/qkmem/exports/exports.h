#ifndef QKMEM_TOOLS_EXPORTS_EXPORTS_H_
#define QKMEM_TOOLS_EXPORTS_EXPORTS_H_

#include <span>
#include <string>
#include <string_view>

#include "views/query.h"

/** Files for viewers that exist. */
namespace qk::command {

struct Export {
  std::string contents;
  std::vector<std::string> remarks;  // for the user
};

struct ExportFormat {
  std::string_view name;
  std::string_view prefix;  // of the file's name, around that of the input
  std::string_view suffix;
  std::string_view viewer;  // the command that opens the file whose name follows
  Export (*write)(const Query& query);
};

[[nodiscard]] std::span<const ExportFormat> export_formats();

/** Throws UsageError if there is no such format. */
[[nodiscard]] const ExportFormat& export_format_named(const std::string& name);

/** "run.dhat.json" for "recordings/run.qkm.gz", in the current folder. */
[[nodiscard]] std::string default_name(const ExportFormat& format, const std::string& input);

[[nodiscard]] Export write_pprof(const Query& query);
[[nodiscard]] Export write_dhat(const Query& query);
[[nodiscard]] Export write_heaptrack(const Query& query);
[[nodiscard]] Export write_speedscope(const Query& query);
[[nodiscard]] Export write_folded(const Query& query);
[[nodiscard]] Export write_massif(const Query& query);
[[nodiscard]] Export write_csv(const Query& query);
[[nodiscard]] Export write_openmetrics(const Query& query);

}  // namespace qk::command

#endif  // QKMEM_TOOLS_EXPORTS_EXPORTS_H_
