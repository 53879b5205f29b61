#ifndef QKMEM_TOOLS_LEDGER_LEDGER_H_
#define QKMEM_TOOLS_LEDGER_LEDGER_H_

#include <cstdint>
#include <functional>
#include <unordered_map>
#include <utility>
#include <vector>

#include "ledger/expect_memory.h"
#include "ledger/figures.h"
#include "ledger/places.h"
#include "ledger/timeline.h"

namespace qk::command {

/** A block of the program's. */
struct Block {
  std::uint64_t address = 0;
  std::uint64_t bytes = 0;
  Moment made;
  SiteIndex site = 0;
};

/** Which blocks count: those of some sites that were made in some time. */
struct Selection {
  std::function<bool(const Handle&, const SiteKey&)> of_site;  // null for all
  Moment from;
  Moment to = {UINT64_MAX, UINT64_MAX};

  [[nodiscard]] bool has_from() const { return from.event != 0 || from.nanoseconds != 0; }
};

/** Sees how levels change. Times are those of the ledger's clock, and can be a little behind. */
class LevelObserver {
 public:
  virtual ~LevelObserver() = default;

  /** What a site holds has changed. */
  virtual void changed(SiteIndex site, const Amount& before, const Amount& now,
                       std::uint64_t time) = 0;

  /** A site has made a block, after changed() has told of it. */
  virtual void made(SiteIndex site, std::uint64_t bytes) = 0;
};

/** What lives are measured in, and the time that levels are over. */
enum class Clock : std::uint8_t { kEvents, kNanoseconds };

/**
 * Adds up what a program has done with its memory. Whoever reads an input keeps the live blocks and
 * tells of each event in order. Blocks that the selection leaves out are in no figure.
 */
class Ledger {
 public:
  explicit Ledger(Selection selection) : selection_(std::move(selection)) {}

  [[nodiscard]] HandleIndex add_handle(const Handle& handle);
  [[nodiscard]] SiteIndex site_of(const SiteKey& key);
  /** Time is known from now on, and replaces events where lives and levels are measured. */
  void use_time() { clock_ = Clock::kNanoseconds; }
  [[nodiscard]] Program& program() { return program_; }

  /** Tells it of all that follows. It must outlive the last event. */
  void tell(LevelObserver& observer) { observer_ = &observer; }

  /** An event took place, whatever it was. */
  void event(const Moment& now) {
    if (events_ == 0) first_ = now;
    now_ = now;
    ++events_;
  }

  /** When the input begins, before its first event. */
  void begin_at(const Moment& moment) { now_ = moment; }

  /** Events that take no part. */
  void add_unseen_events(std::uint64_t count) { events_ += count; }

  /** A block of a site is soon made or released. */
  void expect(SiteIndex site) const { expect_memory(&accounts_[site]); }

  /** A block is made now. */
  void made(const Block& block);

  /** A block is released now. */
  void gone(const Block& block);

  /** A block that was taken for released now is still there: a realloc has failed. */
  void back(const Block& block);

  /** One block was taken for released in place of another one of its size, which lives no more. */
  void exchange(const Block& not_gone, const Block& not_live);

  /** Blocks of a site were live before the input begins. */
  void found(SiteIndex site, const Amount& amount);

  /** One of those is released now. */
  void found_gone(SiteIndex site, std::uint64_t bytes);

  /** All of those on a handle are released now. */
  void found_cleared(HandleIndex handle);

  /** What a site has come to, in place of its events. */
  void book(SiteIndex site, const Figures& figures);

  /** The same of all sites: where events end, and when most was in use. */
  void book_whole(const Moment& last, const Moment& peak, std::uint64_t peak_bytes);

  /** To be called after the last event. */
  void finish();

  [[nodiscard]] bool counts(const Block& block) const {
    return block.site != kOwnSite && accounts_[block.site].is_selected &&
           block.made.event >= selection_.from.event && block.made.event <= selection_.to.event &&
           block.made.nanoseconds >= selection_.from.nanoseconds &&
           block.made.nanoseconds <= selection_.to.nanoseconds;
  }

  /**
   * Whether figures come from events. Those that were booked do not tell how many blocks there were
   * at the peak, nor how long blocks live.
   */
  [[nodiscard]] bool has_events() const { return !is_booked_; }

  /** Whether the selection leaves nothing out. */
  [[nodiscard]] bool counts_all() const {
    return !selection_.of_site && !selection_.has_from() && selection_.to.event == UINT64_MAX &&
           selection_.to.nanoseconds == UINT64_MAX;
  }

  [[nodiscard]] const Sites& sites() const { return sites_; }
  [[nodiscard]] const std::vector<Handle>& handles() const { return handles_; }
  [[nodiscard]] const Program& program() const { return program_; }
  [[nodiscard]] const Figures& figures_of(SiteIndex site) const { return accounts_[site].figures; }

  [[nodiscard]] const Figures& whole() const { return whole_; }  // once it is finished
  [[nodiscard]] std::uint64_t peak() const { return whole_.at_peak.bytes; }
  [[nodiscard]] const Moment& peak_moment() const { return peak_moment_; }
  [[nodiscard]] std::uint64_t events() const { return events_; }
  [[nodiscard]] const Moment& first() const { return first_; }
  [[nodiscard]] const Moment& last() const { return now_; }
  [[nodiscard]] Clock clock() const { return clock_; }
  [[nodiscard]] std::uint64_t on_clock(const Moment& moment) const {
    return clock_ == Clock::kEvents ? moment.event : moment.nanoseconds;
  }
  [[nodiscard]] const Timeline& timeline() const { return timeline_; }  // over the clock
  [[nodiscard]] const Histogram& sizes() const { return sizes_made_; }  // by bytes
  [[nodiscard]] const Histogram& lives() const { return lives_; }       // by the clock

 private:
  struct Account {
    Figures figures;
    std::uint64_t epoch = 0;
    bool is_selected = false;
  };

  /** Before a site changes: what it held when the whole was largest, if that was since. */
  void settle(Account& account) const {
    if (account.epoch == epoch_) return;
    account.epoch = epoch_;
    account.figures.at_peak = account.figures.live;
  }

  [[nodiscard]] bool counts_found(SiteIndex site) const {
    return accounts_[site].is_selected && !selection_.has_from();
  }
  void add_live(SiteIndex site, const Amount& amount);
  void remove_live(SiteIndex site, const Amount& amount);
  void note_peak();

  const Selection selection_;
  LevelObserver* observer_ = nullptr;
  Sites sites_;
  std::vector<Handle> handles_;
  Program program_;
  std::vector<Account> accounts_;  // by site
  Figures whole_;                  // before finish(): only what is live, and was
  Moment peak_moment_;
  std::uint64_t epoch_ = 0;  // rises with each peak
  std::uint64_t events_ = 0;
  bool is_booked_ = false;
  std::uint64_t booked_peak_ = 0;  // bytes
  Moment first_;
  Moment now_;
  Clock clock_ = Clock::kEvents;
  std::unordered_map<HandleIndex, std::vector<SiteIndex>> found_;  // sites of what was found
  Timeline timeline_;
  Histogram sizes_made_;
  Histogram lives_;
};

}  // namespace qk::command

#endif  // QKMEM_TOOLS_LEDGER_LEDGER_H_
