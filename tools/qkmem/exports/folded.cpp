#include <fmt/format.h>

#include <algorithm>
#include <map>

#include "exports/exports.h"
#include "exports/samples.h"
#include "views/groups.h"
#include "views/names.h"

namespace qk::command {
namespace {

/** A semicolon would divide a name. */
std::string whole_name(const Frame& frame) {
  std::string name = name_of(frame);
  std::replace(name.begin(), name.end(), ';', ',');
  return name;
}

}  // namespace

/** A line for each stack, from the outermost frame on, with its bytes. */
Export write_folded(const Query& query) {
  Reading reading = read(query);
  std::map<std::string, std::uint64_t> stacks;
  for (const Sample& sample : samples_of(reading)) {
    std::string stack;
    for (auto frame = sample.frames.rbegin(); frame != sample.frames.rend(); ++frame) {
      stack.append(stack.empty() ? "" : ";").append(whole_name(*frame));
    }
    stacks[stack] += amount_of(query, *sample.figures).bytes;
  }
  std::string text;
  for (const auto& [stack, bytes] : stacks) {
    if (bytes != 0) text += fmt::format("{} {}\n", stack, bytes);
  }
  return {text, reading.remarks};
}

}  // namespace qk::command
