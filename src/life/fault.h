#ifndef QKMEM_LIFE_FAULT_H_
#define QKMEM_LIFE_FAULT_H_

namespace qk::mem {

/**
 * Writes a line to standard error that says at what address a fault is, if that is asked for
 * (support/fault_words.h) and the address lies in or near a block. For the handlers of ending
 * signals: waits for no lock, allocates nothing, and without the locks writes nothing.
 */
void tell_of_fault();

}  // namespace qk::mem

#endif  // QKMEM_LIFE_FAULT_H_
