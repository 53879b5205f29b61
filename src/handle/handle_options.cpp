#include "handle/handle_options.h"

#include <cstdlib>

namespace qk::mem {
namespace {

enum Keyword {
  kOverhead,
  kData,
  kAutofree,
  kMultithreaded,
  kBlockmgmt,
  kBlocksize,
  kBlockinitial,
  kBlockfree
};

constexpr std::array<qk_option_keyword, 8> kTable = {
    keyword("OVERHEAD", qk::kNoValue, 1, 1),        keyword("DATA", qk::kNoValue, 1, 1),
    keyword("AUTOFREE", qk::kNoValue, 1),           keyword("MULTITHREADED", qk::kNoValue, 11),
    keyword("BLOCKMGMT", qk::kNoValue, 1),          keyword("BLOCKSIZE", qk::kRequiredValue),
    keyword("BLOCKINITIAL", qk::kRequiredValue, 9), keyword("BLOCKFREE", qk::kNoValue),
};

constexpr int kDefaultInitialBlocks = 1;

}  // namespace

HandleOptions::HandleOptions() : text_(""), call_(kTable) {}

bool HandleOptions::read(const char* options) {
  if (options == nullptr || *options == '\0') return true;
  text_ = OptionText(options);
  return call_.process(text_);
}

void HandleOptions::apply_to(qk_mem_handle& handle) const {
  if (call_.has(kOverhead)) handle.type = 'O';
  if (call_.has(kAutofree)) handle.autofree = 'a';
  if (call_.has(kBlockmgmt)) handle.blockmgmt = 'B';
  // A negative number becomes a size that no allocator serves, and fails as such.
  if (call_.has(kBlocksize)) {
    handle.blocksize = static_cast<std::uint64_t>(std::atoi(call_.value(kBlocksize)));
  }
  if (call_.has(kBlockfree)) handle.blockfree = 1;
}

bool HandleOptions::multithreaded() const { return call_.has(kMultithreaded); }

int HandleOptions::initial_blocks() const {
  return call_.has(kBlockinitial) ? std::atoi(call_.value(kBlockinitial)) : kDefaultInitialBlocks;
}

}  // namespace qk::mem
