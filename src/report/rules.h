#ifndef QKMEM_REPORT_RULES_H_
#define QKMEM_REPORT_RULES_H_

namespace qk::mem {

/** The rule above and below what a report lists. */
inline constexpr char kRule[] =
    "   ----------------------------------------------------------------------------\n";

}  // namespace qk::mem

#endif  // QKMEM_REPORT_RULES_H_
