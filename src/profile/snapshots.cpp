#include "profile/snapshots.h"

#include <cerrno>
#include <cstring>
#include <memory>

#include "core/registry.h"
#include "core/upcalls.h"
#include "profile/events.h"
#include "profile/pool.h"
#include "profile/recorded.h"
#include "profile/site_table.h"
#include "qkmem/profile.h"
#include "support/line.h"
#include "support/mtx_lock.h"
#include "support/own_message.h"
#include "support/shared_variable.h"
#include "support/system.h"
#include "support/utf8.h"

namespace qk::mem::profile {
namespace {

constinit Snapshot* newest QK_GUARDED_BY(growth_lock) = nullptr;
constinit std::uint64_t last_number QK_GUARDED_BY(growth_lock) = 0;
constinit std::uint64_t resets = 0;

constexpr std::uint32_t kSitesOfPool = 2;

std::size_t figures_in(std::uint32_t site_count, std::uint32_t pool_count) {
  return site_count + std::size_t{kSitesOfPool} * pool_count;
}

/** The figures and the name follow the snapshot. */
std::size_t bytes_of(std::size_t figures, std::size_t name_length) {
  return sizeof(Snapshot) + figures * sizeof(Figures) + name_length + 1;
}

std::size_t bytes_of(const Snapshot& snapshot) {
  return bytes_of(figures_in(snapshot.site_count, snapshot.pool_count), std::strlen(snapshot.name));
}

void copy_figures(Figures* to, std::uint32_t site_count, std::uint32_t pool_count) {
  for (std::uint32_t number = 1; number <= site_count; ++number) {
    *to++ = figures_of(sites.at(number));
  }
  for (std::uint32_t number = 1; number <= pool_count; ++number) {
    *to++ = figures_of(pools.at(number).from_before);
    *to++ = figures_of(pools.at(number).not_recorded);
  }
}

/** A snapshot that is not in the list yet; null if there is no memory. */
Snapshot* make_snapshot(std::string_view name) {
  const std::uint32_t site_count = sites.count();
  const std::uint32_t pool_count = pools.count();
  const std::size_t figure_count = figures_in(site_count, pool_count);
  void* memory = nullptr;
  {
    const qk::MtxLock lock(growth_lock);
    memory = arena.take(bytes_of(figure_count, name.size()));
  }
  if (memory == nullptr) return nullptr;
  auto* const figures = reinterpret_cast<Figures*>(static_cast<char*>(memory) + sizeof(Snapshot));
  auto* const text = reinterpret_cast<char*>(figures + figure_count);
  name.copy(text, name.size());
  auto* const snapshot = std::construct_at(
      static_cast<Snapshot*>(memory), Snapshot{nullptr, text, figures, events_so_far(), time_now(),
                                               0, qk::load(resets), site_count, pool_count});
  copy_figures(figures, site_count, pool_count);
  return snapshot;
}

/** Takes a snapshot out of the list, and its memory back. */
bool drop(std::string_view name) QK_REQUIRES(growth_lock) {
  assert_growth_held();
  for (Snapshot** link = &newest; *link != nullptr; link = &(*link)->next) {
    Snapshot* const snapshot = *link;
    if (name != snapshot->name) continue;
    *link = snapshot->next;
    arena.give_back(snapshot, bytes_of(*snapshot));
    return true;
  }
  return false;
}

bool can_be_name(std::string_view text) {
  return !text.empty() && text.size() <= kLongestSnapshotName &&
         text.find('\0') == std::string_view::npos;
}

void say_there_is_no_room(std::string_view name) {
  qk::Line line;
  put_snapshot_name(line.put("qkmem: the snapshot "), name);
  qk::write_message(line.put(" was not kept: MAX is too small\n").finish());
}

}  // namespace

Figures figures_of(const Site& site) {
  return {qk::load(site.live_bytes), qk::load(site.live_blocks), qk::load(site.made_bytes),
          qk::load(site.made_blocks)};
}

Figures Snapshot::of_site(std::uint32_t site) const {
  return site <= site_count ? figures[site - 1] : Figures{};
}

Figures Snapshot::from_before(std::uint32_t pool) const {
  return pool <= pool_count ? figures[figures_in(site_count, pool - 1)] : Figures{};
}

Figures Snapshot::not_recorded(std::uint32_t pool) const {
  return pool <= pool_count ? figures[figures_in(site_count, pool - 1) + 1] : Figures{};
}

std::int32_t take_snapshot(std::string_view name) {
  if (!can_be_name(name)) return qk_error_no(EINVAL);
  if (!was_ever_on()) return qk_error_no(ENODATA);
  Snapshot* const snapshot = make_snapshot(name);
  if (snapshot == nullptr) {
    say_there_is_no_room(name);
    return qk_error_no(ENOMEM);
  }
  record_snapshot(snapshot->event, name);
  const qk::MtxLock lock(growth_lock);
  drop(name);
  snapshot->number = ++last_number;
  snapshot->next = newest;
  newest = snapshot;
  return 0;
}

bool drop_snapshot(std::string_view name) {
  const qk::MtxLock lock(growth_lock);
  return drop(name);
}

const Snapshot* find_snapshot(std::string_view name) {
  assert_growth_held();
  const Snapshot* snapshot = newest;
  while (snapshot != nullptr && name != snapshot->name) snapshot = snapshot->next;
  return snapshot;
}

const Snapshot* newest_snapshot() {
  assert_growth_held();
  return newest;
}

void put_snapshot_name(qk::Line& line, std::string_view name) {
  line.put('"');
  qk::put_as_utf8(name, [&line](std::string_view piece) {
    for (const char c : piece)
      line.put(static_cast<unsigned char>(c) < ' ' || c == '\x7f' ? '?' : c);
  });
  line.put('"');
}

void count_reset() { qk::add(resets, 1); }

std::uint64_t resets_so_far() { return qk::load(resets); }

}  // namespace qk::mem::profile

extern "C" int qk_mem_snapshot(const char* name) {
  using namespace qk::mem;
  ensure_started();
  return leave_code(name == nullptr ? qk_error_no(EFAULT) : profile::take_snapshot(name));
}

extern "C" int qk_mem_drop_snapshot(const char* name) {
  using namespace qk::mem;
  if (name == nullptr) return leave_code(qk_error_no(EFAULT));
  return leave_code(profile::drop_snapshot(name) ? 0 : qk_error_no(ENOENT));
}
