#ifndef TESTS_KIT_RECORDING_H_
#define TESTS_KIT_RECORDING_H_

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "formats/recording_reader.h"

/** What a recording says. */
namespace kit {

/** A recording with its tail, as far as there is one. */
class Recording {
 public:
  explicit Recording(const std::string& name);

  /**
   * All events in the order of time, one a line, with the blocks by letters in the order in which
   * they come: "1 made A, 100 B at a.c:7 on 3 XY". Numbers count from the first one.
   */
  [[nodiscard]] std::string events() const;

  /** What is wrong with it, or what its events and its closing chunk don't agree on; or "". */
  [[nodiscard]] std::string errors() const;

  /** Live blocks and bytes of a handle, from levels and events: "2 for 150, made 3 for 200". */
  [[nodiscard]] std::string sums_of(std::uint64_t handle) const;

  [[nodiscard]] std::size_t event_count() const { return events_.size(); }
  [[nodiscard]] bool is_closed() const { return is_closed_; }
  [[nodiscard]] std::uint64_t dropped() const { return dropped_; }
  [[nodiscard]] std::uint64_t process() const { return process_; }
  [[nodiscard]] const std::string& command() const { return command_; }
  [[nodiscard]] const std::vector<std::string>& thread_names() const { return thread_names_; }
  [[nodiscard]] std::size_t stacks() const { return stacks_; }
  [[nodiscard]] const std::vector<std::string>& modules() const { return modules_; }
  [[nodiscard]] const std::vector<std::string>& snapshots() const { return snapshots_; }
  /** Functions of frames. */
  [[nodiscard]] const std::vector<std::string>& frames() const { return frames_; }

 private:
  struct Amount {
    std::int64_t blocks = 0;
    std::int64_t bytes = 0;
    bool operator==(const Amount&) const = default;
  };
  struct PoolFacts {
    std::uint64_t handle = 0;
    std::string tag;
    Amount live;
    Amount made;
    Amount closing_live;
    Amount closing_made;
  };
  struct SiteFacts {
    std::uint32_t pool = 0;
    std::string place;
  };
  struct ThreadEvent {
    qk::mem::recording::Event event;
    std::uint32_t thread;
  };

  void read(const qk::mem::recording::Chunk& chunk);
  void read_record(qk::mem::recording::Record record);
  void read_events(const qk::mem::recording::Chunk& chunk);
  void count_events();
  void begin_levels(const qk::mem::recording::ChunkHeader& header);
  void count(const qk::mem::recording::Event& event);
  void compare_sums();
  [[nodiscard]] std::uint32_t pool_of(const qk::mem::recording::EventBlock& block);
  [[nodiscard]] std::string place_of(const qk::mem::recording::EventBlock& block) const;
  void complain(const std::string& what) {
    if (errors_.size() < 1000) errors_ += what + "\n";
  }

  std::map<std::pair<std::uint32_t, std::uint32_t>, bool> seen_;  // threads and indexes
  std::map<std::uint64_t, std::string> texts_;
  std::map<std::uint32_t, PoolFacts> pools_;
  std::map<std::uint32_t, SiteFacts> sites_;
  std::map<std::uint64_t, qk::mem::recording::EventBlock> live_;
  std::map<std::uint32_t, Amount> live_of_site_;
  std::vector<ThreadEvent> events_;
  std::vector<std::string> thread_names_;
  std::vector<std::string> modules_;
  std::vector<std::string> snapshots_;
  std::vector<std::string> frames_;
  std::vector<std::uint64_t> process_sums_;
  std::size_t stacks_ = 0;
  std::uint64_t process_ = 0;
  std::string command_;
  bool is_closed_ = false;
  std::uint64_t dropped_ = 0;
  std::uint64_t counted_from_ = 0;  // ticks of the last levels
  std::string errors_;
};

}  // namespace kit

#endif  // TESTS_KIT_RECORDING_H_
