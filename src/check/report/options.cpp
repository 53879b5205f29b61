#include "check/report/options.h"

#include "support/shared_variable.h"

namespace qk::mem::check {
namespace {

constinit Options current;
constinit std::uint8_t is_configured = 0;

}  // namespace

const Options& options() { return current; }

void set_options(const Options& now) {
  current = now;
  qk::publish(is_configured, 1);
}

bool was_ever_on() { return qk::acquire(is_configured) != 0; }

}  // namespace qk::mem::check
