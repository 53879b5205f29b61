#ifndef QKMEM_CONFIG_CHECK_CONFIG_H_
#define QKMEM_CONFIG_CHECK_CONFIG_H_

namespace qk::mem {

/** Switches the checks on if QK_MEM_CHECK says so. Once, before there are handles. */
void configure_checks_from_environment();

}  // namespace qk::mem

#endif  // QKMEM_CONFIG_CHECK_CONFIG_H_
