#ifndef TESTS_KIT_SCENE_H_
#define TESTS_KIT_SCENE_H_

#include <functional>
#include <string>
#include <string_view>

#include "core/records.h"
#include "qkmem/qkmem.h"

/** The environment of a test and what the library writes. Each test is a new process. */
namespace kit {

/** The environment variables that the library reads at its first call; "" means unset. */
struct Environment {
  std::string debug;         // QK_MEM_DEBUG
  std::string options;       // QK_MEM_OPTIONS
  std::string dump;          // QK_MEM_DUMP
  std::string profile = {};  // QK_MEM_PROFILE; "" leaves it as it is: it changes no other output
};

/**
 * Creates a folder for the test, makes it the current one, and sets the environment. Must be
 * constructed before the first call of the library.
 */
class Scene {
 public:
  explicit Scene(const Environment& environment = {});
  explicit Scene(const char* debug) : Scene(Environment{debug, "", ""}) {}
  Scene(const Scene&) = delete;
  Scene& operator=(const Scene&) = delete;
  ~Scene();

  /** Leaves out of log() what is in the log now. */
  void skip_log();

  /** The later lines of the log, normalized(). */
  [[nodiscard]] std::string log() const;

  /** Only the lines that begin with the name of a routine. */
  [[nodiscard]] std::string log(std::string_view routine) const;

  /** Leaves out of trace() what is in the trace file now. */
  void skip_trace();

  /**
   * The later rows of the trace file as "handle type [address] num size file line change",
   * normalized(). Errors in the file follow.
   */
  [[nodiscard]] std::string trace() const;

  /** Only the rows of some types, given as a string of letters. */
  [[nodiscard]] std::string trace(std::string_view types) const;

 private:
  [[nodiscard]] std::string trace(const std::function<bool(unsigned char)>& wants) const;

  std::string folder_;
  std::size_t log_seen_ = 0;
  std::size_t trace_seen_ = 0;  // rows
};

/**
 * Replaces what differs from run to run in a text of the library. Addresses, which have 16
 * hexadecimal digits, become p1, p2, … in order of appearance, and null p0; in columns they keep
 * their width. Line numbers of the library's own locations become "qkmem.cpp:#", heap texts
 * " (heap change)".
 */
[[nodiscard]] std::string normalized(std::string_view text);

/** The contents of a file in the current folder, or "" if there is none. */
[[nodiscard]] std::string contents(const std::string& name);

/** The output of qk_mem_dump(), unchanged. */
[[nodiscard]] std::string dump(const char* filter, unsigned options);

/** Creates a handle and never deletes it. */
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
/** A handle's overhead in the same form. */
[[nodiscard]] std::string overhead_of(int hid);
/** The sums of a tag in the same form; "" is the global tag. */
[[nodiscard]] std::string tag_of(const char* name);

/** How a process ended, and its output. */
struct Ended {
  int exit_code = -1;  // -1 when a signal ended it
  int signal = 0;
  std::string out;    // standard output
  std::string err;    // standard error
  std::string log;    // "qkmem.log"
  std::string trace;  // "qkmem.tdf"
};

/**
 * Runs `body` in a new process in the current folder, and then exit(0). Texts are not normalized.
 * For tests of what happens at exit, and of more than one start of the library.
 */
[[nodiscard]] Ended run(const Environment& environment, const std::function<void()>& body);

}  // namespace kit

#endif  // TESTS_KIT_SCENE_H_
