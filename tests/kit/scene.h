#ifndef TESTS_KIT_SCENE_H_
#define TESTS_KIT_SCENE_H_

#include <functional>
#include <string>
#include <string_view>

#include "core/records.h"
#include "qkmem/qkmem.h"

/** What a test sees of the library: its process has started nothing when the test begins. */
namespace kit {

/** The environment that the library reads at its first call; "" leaves a variable unset. */
struct Environment {
  std::string debug;    // QK_MEM_DEBUG
  std::string options;  // QK_MEM_OPTIONS
  std::string dump;     // QK_MEM_DUMP
};

/**
 * A scratch folder of the test's own, which is the current one from here on, and the environment.
 * To be made before the first call of the library.
 */
class Scene {
 public:
  explicit Scene(const Environment& environment = {});
  explicit Scene(const char* debug) : Scene(Environment{debug, "", ""}) {}
  Scene(const Scene&) = delete;
  Scene& operator=(const Scene&) = delete;
  ~Scene();

  /** Leaves out of log() what stands in the log by now. */
  void skip_log();

  /** The lines of the log since then, in the words of normalized(). */
  [[nodiscard]] std::string log() const;

  /** Only those of one routine, that is, those that begin with its name. */
  [[nodiscard]] std::string log(std::string_view routine) const;

  /** Leaves out of trace() what stands in the trace file by now. */
  void skip_trace();

  /**
   * The rows of the trace file since then, as "handle type [address] num size file line change", in
   * the words of normalized(). What is wrong with the file follows them.
   */
  [[nodiscard]] std::string trace() const;

  /** Only those of some types, given as a string of their letters. */
  [[nodiscard]] std::string trace(std::string_view types) const;

 private:
  [[nodiscard]] std::string trace(const std::function<bool(unsigned char)>& wants) const;

  std::string folder_;
  std::size_t log_seen_ = 0;
  std::size_t trace_seen_ = 0;  // rows
};

/**
 * A text of the library with what differs from run to run in fixed words: addresses, which are 16
 * hexadecimal digits, become p1, p2, … in the order in which they appear here, and p0 for none;
 * lines of the library's own places "qkmem.cpp:#"; heap texts " (heap change)". Addresses that
 * stand in columns keep their width: "p1" and 14 blanks.
 */
[[nodiscard]] std::string normalized(std::string_view text);

/** The contents of a file of the current folder; "" when there is none. */
[[nodiscard]] std::string contents(const std::string& name);

/** What qk_mem_dump() prints, as it is. */
[[nodiscard]] std::string dump(const char* filter, unsigned options);

/** A handle that a test creates; it stays. */
class Pool {
 public:
  explicit Pool(const char* options = "", const char* tag = "")
      : id_(qk_mem_inew_handle(options, tag, "tests/pool.c", 7)) {}
  operator int() const { return id_; }  // NOLINT: it stands for its number
  [[nodiscard]] qk_mem_handle& record() const;

 private:
  int id_;
};

/** The record of a live handle. */
[[nodiscard]] qk_mem_handle& handle_of(int hid);

/** A handle's live data as "2 for 150". */
[[nodiscard]] std::string data_of(int hid);
/** A handle's overhead in the same words. */
[[nodiscard]] std::string overhead_of(int hid);
/** What bears a tag in the same words; "" is the global tag. */
[[nodiscard]] std::string tag_of(const char* name);

/** How a process of its own has ended, and what it left. */
struct Ended {
  int exit_code = -1;  // -1 when a signal ended it
  int signal = 0;
  std::string out;    // standard output
  std::string err;    // standard error
  std::string log;    // "qkmem.log"
  std::string trace;  // "qkmem.tdf"
};

/**
 * Runs `body` in a process of its own, in the scratch folder, and ends it with exit(0). Texts are
 * as they were written. For everything that happens at exit, and for what a fresh start needs.
 */
[[nodiscard]] Ended run(const Environment& environment, const std::function<void()>& body);

}  // namespace kit

#endif  // TESTS_KIT_SCENE_H_
