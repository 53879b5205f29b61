#ifndef TESTS_KIT_LEDGER_H_
#define TESTS_KIT_LEDGER_H_

#include <cstdint>
#include <string>

#include "tests/kit/scene.h"

/** A handle whose sums, records and events change only through the calls of a test. */
namespace kit {

/**
 * Creates the eight pointer arrays of a handle, with nearly all slots free. So the test, and not
 * the allocator's choice of addresses, decides which call creates or grows an array.
 */
void make_arrays(int hid);

/** Creates the arrays and fills all their slots, so that the next record needs a larger array. */
void fill_arrays(int hid);

/**
 * A scene with a handle, number 3, that has all its pointer arrays. Each allocation and each
 * release on it is one event, and log and trace show nothing else. Events count from 1.
 */
class Ledger : public Scene {
 public:
  explicit Ledger(const Environment& environment, const char* options = "", const char* tag = "AB");
  explicit Ledger(const char* debug) : Ledger(Environment{debug, "", ""}) {}

  /** Sets another configuration and calls skip_all(). */
  void configure(const char* debug);

  /** Makes log(), trace() and the count of events start from here. */
  void skip_all();

  /** "handle 2 for 150, tag 2 for 150, events 2" */
  [[nodiscard]] std::string sums() const;

  /** The record of an address on the handle: "M 1/100 app.c:12 event 1", or "none". */
  [[nodiscard]] std::string record(const void* address) const;

  const Pool pool;

 private:
  std::string tag_;
};

}  // namespace kit

#endif  // TESTS_KIT_LEDGER_H_
