// Where a debugger finds what the library knows, also if there are no symbols.
#include "core/handle_array.h"
#include "core/registry.h"
#include "profile/pool.h"
#include "profile/site_table.h"
#include "support/numbered_store.h"
#include "table/slot.h"

namespace qk::mem {
namespace {

/**
 * The places of the variables from which tools/gdb/qkmem-gdb.py reads all else. It knows their
 * order, and the layouts of what they lead to as long as `layout` is the number that it has.
 */
struct DebuggerTable {
  std::uint64_t layout;  // to be raised when one of the layouts changes
  qk_mem_handle** const* handles;
  const std::int32_t* slots;
  const char* set_aside;  // the address of a record that is set aside
  const profile::SiteTable* sites;
  const qk::NumberedStore<profile::Pool>* pools;
  const qk::NumberedStore<profile::TagLevel>* tag_levels;
  const history::History* freed_blocks;
};

}  // namespace
}  // namespace qk::mem

extern "C" {
/** A note in each module that contains the library leads to it, see life/startup.cpp. */
[[gnu::visibility("hidden")]] extern const qk::mem::DebuggerTable qk_mem_table_for_debuggers;
[[gnu::used]] constinit const qk::mem::DebuggerTable qk_mem_table_for_debuggers = {
    1,
    &Qk_mem_handles,
    &qk::mem::real_slots,
    &qk::mem::set_aside_mark,
    &qk::mem::profile::sites,
    &qk::mem::profile::pools,
    &qk::mem::profile::tag_levels,
    &qk::mem::profile::freed_blocks,
};
}
