#ifndef QKMEM_TOOLS_INPUT_DEFINITIONS_H_
#define QKMEM_TOOLS_INPUT_DEFINITIONS_H_

#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

#include "formats/recording_reader.h"
#include "ledger/ledger.h"

namespace qk::command {

/** What the numbers in a recording stand for. */
class Definitions {
 public:
  explicit Definitions(Ledger& ledger, bool splits_threads)
      : ledger_(ledger), splits_threads_(splits_threads) {}

  /** Takes a record that defines something. Returns whether it makes sense. */
  bool take(mem::recording::Record record);

  /** The handle of a pool; one without a name if the recording doesn't define it. */
  [[nodiscard]] HandleIndex handle_of(std::uint32_t pool);

  /** Where a block was made, in the ledger. */
  [[nodiscard]] SiteIndex site_of(const mem::recording::EventBlock& block, std::uint32_t thread) {
    const SiteIndex known = known_site_of(block);
    return known != kUnknown && !splits_threads_ ? known : find_site(block, thread);
  }

  /** A block is soon made there. */
  void expect(const mem::recording::EventBlock& block) const {
    const SiteIndex known = known_site_of(block);
    if (known != kUnknown) ledger_.expect(known);
  }

 private:
  static constexpr SiteIndex kUnknown = kOwnSite;

  struct Site {
    std::uint32_t pool = 0;
    std::uint32_t path = 0;
    std::uint32_t label = 0;
    int line = 0;
    StackIndex stack = kNoStack;
  };

  [[nodiscard]] SiteIndex known_site_of(const mem::recording::EventBlock& block) const {
    return block.site < known_.size() ? known_[block.site] : kUnknown;
  }
  [[nodiscard]] std::uint32_t pool_of(const mem::recording::EventBlock& block) const;
  [[nodiscard]] SiteIndex find_site(const mem::recording::EventBlock& block, std::uint32_t thread);
  [[nodiscard]] const std::string& text(std::uint32_t number) const;
  void take_process(mem::recording::FieldReader& fields);
  void take_pool(mem::recording::FieldReader& fields);
  void take_site(mem::recording::FieldReader& fields);
  void take_stack(mem::recording::FieldReader& fields);
  void take_module(mem::recording::FieldReader& fields);
  void take_thread(mem::recording::FieldReader& fields);
  void take_snapshot(mem::recording::FieldReader& fields);
  void take_frame(mem::recording::FieldReader& fields);

  Ledger& ledger_;
  const bool splits_threads_;
  std::unordered_map<std::uint32_t, std::string> texts_;
  std::unordered_map<std::uint32_t, HandleIndex> pools_;
  std::unordered_map<std::uint32_t, Site> sites_;
  std::unordered_map<std::uint64_t, StackIndex> stacks_;
  std::unordered_map<std::uint64_t, SiteIndex> sites_of_threads_;  // or of those without a site
  std::uint64_t threads_taken_ = 0;
  std::vector<SiteIndex> known_;  // by number of the site
};

}  // namespace qk::command

#endif  // QKMEM_TOOLS_INPUT_DEFINITIONS_H_
