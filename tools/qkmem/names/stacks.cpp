#include "names/stacks.h"

#include <fmt/format.h>

#include "names/symbolizer.h"
#include "symbols/folding.h"

namespace qk::command {
namespace {

std::string function_of(const qk::Frame& call) {
  if (!call.function.empty()) return std::string(call.function);
  if (call.module == nullptr) return fmt::format("{:#x}", call.offset);
  return fmt::format("{}+{:#x}", call.module->name(), call.offset);
}

std::vector<Frame> telling_frames(Symbolizer& symbolizer,
                                  const std::vector<std::uint64_t>& addresses) {
  std::vector<qk::Frame> calls;
  for (const std::uint64_t address : addresses) {
    const std::vector<qk::Frame> inlined = symbolizer.calls_at(address);
    calls.insert(calls.end(), inlined.begin(), inlined.end());
  }
  int count = qk::leave_library(calls.data(), static_cast<int>(calls.size()));
  count = qk::visible_frames(calls.data(), count, "");
  calls.resize(static_cast<std::size_t>(count));
  std::vector<Frame> frames;
  frames.reserve(calls.size());
  for (const qk::Frame& call : calls) {
    frames.push_back({function_of(call), std::string(call.file), call.line});
  }
  return frames;
}

}  // namespace

std::vector<std::string> name_stacks(Program& program) {
  Symbolizer symbolizer(program);
  program.frames.clear();
  for (const std::vector<std::uint64_t>& addresses : program.stacks) {
    program.frames.push_back(telling_frames(symbolizer, addresses));
  }
  return symbolizer.remarks();
}

}  // namespace qk::command
