#ifndef QKMEM_TOOLS_INPUT_INPUT_H_
#define QKMEM_TOOLS_INPUT_INPUT_H_

#include <cstdint>
#include <functional>
#include <stdexcept>
#include <string>
#include <string_view>

#include "input/check.h"
#include "ledger/ledger.h"

/** Inputs: what a program that uses the library has written. */
namespace qk::command {

/** An input that can't be read, or holds what it must not. The text is for the user. */
class InputError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/** An event as an input has it. */
struct Happening {
  Moment when;
  std::string_view what;      // "malloc"
  std::uint64_t address = 0;  // 0 if it is about none
  std::uint64_t bytes = 0;
  HandleIndex handle = 0;
  std::uint32_t thread = 0;  // 0 if that is not known
  std::string_view file;     // where it took place; empty if that is not known
  int line = 0;
  const Block* made = nullptr;
  const Block* gone = nullptr;
};

/** What inputs can be. */
enum class InputKind : std::uint8_t { kTable, kRecording, kProfile };

/** How an input is to be read. */
struct Reader {
  Ledger& ledger;
  /** Nothing behind this counts. */
  Moment last = {UINT64_MAX, UINT64_MAX};
  /** Sites of several threads are several sites. */
  bool splits_threads = false;
  /** Told what the input is before it is read, which it can refuse by an exception. */
  std::function<void(InputKind)> on_kind;
  /** Sees each event, if it is not null. What it points to is valid during the call. */
  std::function<void(const Happening&)> watch;
  /** Called now and then, with the bytes that were read so far and all. */
  std::function<void(std::uint64_t, std::uint64_t)> progress;
};

}  // namespace qk::command

#endif  // QKMEM_TOOLS_INPUT_INPUT_H_
