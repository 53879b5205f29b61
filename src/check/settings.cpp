#include "check/settings.h"

namespace qk::mem::check {

constinit Settings settings = {};

void set_settings(const Settings& now) {
  if (qk::load(settings.guard_bytes) == 0) qk::store(settings.guard_bytes, now.guard_bytes);
  qk::store(settings.guards_front, now.guards_front);
  qk::publish(settings.guards, now.guards);
  qk::store(settings.fills_released, now.fills_released);
  qk::store(settings.quarantines, now.quarantines);
  qk::store(settings.fills_unused, now.fills_unused);
  qk::publish(settings.is_on, now.is_on);
}

}  // namespace qk::mem::check
