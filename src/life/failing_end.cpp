// Another code for processes that end well, but for their leaks.
#include "life/failing_end.h"

#include <cstdint>

#include "check/report/findings.h"
#include "check/report/options.h"
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
constinit std::uint64_t findings = 0;

qk::Line& put_code(qk::Line& line, std::uint8_t code, std::uint64_t count) {
  profile::put_heading(line);
  line.put("the process ends with ").number(code);
  return line.put(", because ").put(count_figure(count).text());
}

void say_why() {
  qk::Line line;
  put_code(line, options.leaks_code, sites).put(" site").put(profile::plural(sites));
  if (have_lost) {
    line.put(" lost");
  } else {
    line.put(sites == 1 ? " still holds" : " still hold");
  }
  line.put(" memory (LEAKS=FAIL)\n");
  profile::say_beside_reports(options, line.finish());
}

void say_what_was_found() {
  qk::Line line;
  put_code(line, check::options().findings_code, findings).put(" finding");
  line.put(profile::plural(findings)).put(findings == 1 ? " was" : " were");
  line.put(" told (FINDINGS=FAIL)\n");
  profile::say_beside_reports(options, line.finish());
}

bool fail_for_leaks(const profile::Verdict& verdict) {
  if (!verdict.leaks_found()) return false;
  options = profile::options_now();
  if (options.leaks_code == 0) return false;
  have_lost = verdict.was_searched;
  sites = (have_lost ? verdict.lost : verdict.held).sites;
  qk::change_exit_code(options.leaks_code, say_why);
  return true;
}

bool fail_for_findings() {
  findings = check::findings_so_far();
  if (findings == 0 || check::options().findings_code == 0) return false;
  options = profile::options_now();
  qk::change_exit_code(check::options().findings_code, say_what_was_found);
  return true;
}

}  // namespace

void fail_if_found(const profile::Verdict& verdict) {
  if (!fail_for_findings()) fail_for_leaks(verdict);
}

}  // namespace qk::mem
