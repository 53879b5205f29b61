#ifndef QKMEM_PROFILE_SITE_TABLE_H_
#define QKMEM_PROFILE_SITE_TABLE_H_

#include <cstdint>

#include "profile/site.h"
#include "profile/state.h"
#include "support/number_index.h"
#include "support/numbered_store.h"

/** All sites of the process, by number and by key. Look-ups take no lock. */
namespace qk::mem::profile {

class SiteTable {
 public:
  constexpr SiteTable() noexcept = default;

  /** The site of a key; null if there is none yet. */
  [[nodiscard]] Site* find(const SiteKey& key) const;

  /**
   * Adds the site of a key, unless another thread has done so meanwhile. Returns null if there is
   * no memory.
   *
   * @param first_of_pool  the first one in the list of sites that the new one becomes part of.
   */
  [[nodiscard]] Site* find_or_add(const SiteKey& key, std::uint32_t& first_of_pool)
      QK_REQUIRES(growth_lock);

  [[nodiscard]] Site& at(std::uint32_t number) const { return sites_.at(number); }

  /** Sites have the numbers from 1 to this one. */
  [[nodiscard]] std::uint32_t count() const { return sites_.count(); }

 private:
  qk::NumberIndex index_;
  qk::NumberedStore<Site> sites_;
};

[[gnu::visibility("hidden")]] extern SiteTable sites;

}  // namespace qk::mem::profile

#endif  // QKMEM_PROFILE_SITE_TABLE_H_
