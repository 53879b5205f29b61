#ifndef TESTS_KIT_LEDGER_H_
#define TESTS_KIT_LEDGER_H_

#include <cstdint>
#include <string>

#include "tests/kit/scene.h"

/** The books of one handle, in which every entry is a test's own. */
namespace kit {

/**
 * Makes the eight pointer arrays of a handle, with 15 free slots or one less in each. Where the
 * allocator puts memory then no longer decides which calls need another array.
 */
void make_arrays(int hid);

/** Makes the arrays and takes all their slots, so that the next record needs a growth. */
void fill_arrays(int hid);

/**
 * A scene with a handle, number 3, that has all its pointer arrays: on it each allocation and each
 * release is one event, and log and trace show nothing else. Events are counted from 1.
 */
class Ledger : public Scene {
 public:
  explicit Ledger(const Environment& environment, const char* options = "", const char* tag = "AB");
  explicit Ledger(const char* debug) : Ledger(Environment{debug, "", ""}) {}

  /** Another configuration from here on. */
  void configure(const char* debug);

  /** What log, trace and events have shown so far is left out from here on. */
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
