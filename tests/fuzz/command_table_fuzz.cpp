// The command asked about any bytes: the first ones choose the question, the rest is the input.
#include "tests/fuzz/asking.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < fuzz::Choice::kBytes) return 0;
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  fuzz::ask(fuzz::Choice::of(data), bytes.substr(fuzz::Choice::kBytes), {});
  return 0;
}
