#ifndef QKMEM_PROFILE_LABELS_H_
#define QKMEM_PROFILE_LABELS_H_

#include <cstdint>

#include "support/line.h"

/**
 * Labels that threads put on their allocations: cheaper than a call stack, and in the program's own
 * words. They nest, so a label is a node of a tree, and its number stands for it and all around it.
 */
namespace qk::mem::profile {

/** A label inside another one. */
struct Label {
  std::uint32_t outer;  // number of the label around it; 0 for none
  char text[60];        // cut if it was longer
};

/** The label of the calling thread; 0 for none. */
[[nodiscard]] std::uint32_t label_of_thread();

/**
 * Sets the calling thread's label inside the present one. Without memory, and while the profile was
 * never on, the label stays as it is.
 */
void push_label(const char* text);

/** Returns to the label before the last push_label(). Does nothing if there is none. */
void pop_label();

[[nodiscard]] const Label& label(std::uint32_t number);

/** Appends a label with those around it: "request > parser". */
void put_label(qk::Line& line, std::uint32_t number);

}  // namespace qk::mem::profile

#endif  // QKMEM_PROFILE_LABELS_H_
