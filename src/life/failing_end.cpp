// Another code for processes that end well, but for their leaks.
#include "life/failing_end.h"

#include <cstdint>

#include "formats/figures.h"
#include "profile/options.h"
#include "profile/report/destination.h"
#include "profile/report/report.h"
#include "profile/report/text_parts.h"
#include "support/exit_code.h"
#include "support/line.h"

namespace qk::mem {
namespace {

constinit profile::Options options;
constinit std::uint64_t sites = 0;
constinit bool have_lost = false;

void say_why() {
  qk::Line line;
  profile::put_heading(line);
  line.put("the process ends with ").number(options.leaks_code);
  line.put(", because ").put(count_figure(sites).text()).put(" site").put(profile::plural(sites));
  if (have_lost) {
    line.put(" lost");
  } else {
    line.put(sites == 1 ? " still holds" : " still hold");
  }
  line.put(" memory (LEAKS=FAIL)\n");
  profile::say_beside_reports(options, line.finish());
}

}  // namespace

void fail_if_leaks_found(const profile::Verdict& verdict) {
  if (!verdict.leaks_found()) return;
  options = profile::options_now();
  if (options.leaks_code == 0) return;
  have_lost = verdict.was_searched;
  sites = (have_lost ? verdict.lost : verdict.held).sites;
  qk::change_exit_code(options.leaks_code, say_why);
}

}  // namespace qk::mem
