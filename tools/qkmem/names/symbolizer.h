#ifndef QKMEM_TOOLS_NAMES_SYMBOLIZER_H_
#define QKMEM_TOOLS_NAMES_SYMBOLIZER_H_

#include <cstdint>
#include <set>
#include <string>
#include <vector>

#include "ledger/places.h"
#include "symbols/module_list.h"
#include "symbols/names.h"

namespace qk::command {

/**
 * Finds the functions that return addresses of a program stand for: in what its recording says of
 * them, or else in the files of its modules, if these are the ones that it has run.
 */
class Symbolizer {
 public:
  /** The program stays, as it is. */
  explicit Symbolizer(const Program& program);
  Symbolizer(const Symbolizer&) = delete;
  Symbolizer& operator=(const Symbolizer&) = delete;
  ~Symbolizer() { names_.close(); }

  /** The calls of an address, inlined ones first; at least one. Their texts stay. */
  [[nodiscard]] std::vector<qk::Frame> calls_at(std::uint64_t address);

  /** Why functions have no names, for the user. */
  [[nodiscard]] std::vector<std::string> remarks() const;

 private:
  const Program& program_;
  qk::ModuleList modules_;
  qk::Names names_;
  std::set<const qk::KnownModule*> nameless_;  // with addresses that have no name
};

}  // namespace qk::command

#endif  // QKMEM_TOOLS_NAMES_SYMBOLIZER_H_
