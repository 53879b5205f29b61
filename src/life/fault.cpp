#include "life/fault.h"

#include <cstdint>

#include "profile/report/known_address.h"
#include "support/ending_signals.h"
#include "support/fault_words.h"
#include "support/line.h"
#include "support/own_message.h"
#include "support/shared_variable.h"

namespace qk::mem {
namespace {

/** "the fault is at the start of a block", but otherwise "at an address 3 bytes past" one. */
bool is_at_start(const profile::Knowledge& known) {
  if (known.live) return known.live->offset == 0;
  return known.freed->address == known.address;
}

void tell(const profile::Knowledge& known) {
  qk::Line line;
  line.put("qkmem: the fault is at ");
  if (!is_at_start(known)) line.put("an address ");
  profile::put_knowledge(line, known);
  qk::write_message(line.put('\n').finish());
}

}  // namespace

void tell_of_fault() {
  if (qk::load(qk::puts_faults_into_words) == 0) return;
  const auto address = qk::fault_address();
  if (!address) return;
  // NOLINTNEXTLINE(performance-no-int-to-ptr)
  const auto known = profile::know_of_blocks(reinterpret_cast<const void*>(*address));
  if (known) tell(*known);
}

}  // namespace qk::mem
