/** Parts of C++ programs that must not hold more memory at their end than at their beginning. */
#ifndef QKMEM_NO_GROWTH_HPP_
#define QKMEM_NO_GROWTH_HPP_

#include <stdio.h>  // open_memstream() is in no namespace

#include <atomic>
#include <cstdlib>
#include <string>

#include "qkmem/profile.h"

#pragma GCC visibility push(default)

namespace qk {

/**
 * Watches a scope, and tells at its end which sites have made a handle grow meanwhile:
 *
 *   void parse(const Request& request) {
 *     const qk::NoGrowth guard("parser", "TAG=PA");
 *     ...
 *   }
 *
 * The report goes to standard error, and is that of qk_mem_profile_report() since the guard was
 * made. It counts what all threads do: use a filter, or one thread. While the profile was never on,
 * and if it has no room, a guard does nothing. Guards nest. Each takes time proportional to the
 * sites of the program.
 */
class NoGrowth {
 public:
  /**
   * @param name    stands in the report, with a number. Null is "(null)".
   * @param filter  as in qk_mem_growth(): which sites are watched. Copied. Null for all.
   */
  explicit NoGrowth(const char* name, const char* filter = nullptr)
      : snapshot_(unused_name(name == nullptr ? "(null)" : name)),
        filter_(filter == nullptr ? "" : filter),
        code_(qk_mem_snapshot(snapshot_.c_str())) {}
  NoGrowth(const NoGrowth&) = delete;
  NoGrowth& operator=(const NoGrowth&) = delete;
  ~NoGrowth() {
    std::fputs(report().c_str(), stderr);
    stop();
  }

  /** 0, or the code of qk_mem_snapshot(), with which the guard does nothing. */
  [[nodiscard]] int code() const { return code_; }

  /** Growth so far; none if the guard does nothing. */
  [[nodiscard]] qk_mem_change growth() const {
    return code_ == 0 ? qk_mem_growth(snapshot_.c_str(), filter_.c_str()) : qk_mem_change{};
  }

  /** The sites that have grown so far; empty if no handle has. */
  [[nodiscard]] std::string report() const {
    if (growth().handles == 0) return {};
    char* text = nullptr;
    std::size_t length = 0;
    std::FILE* const stream = open_memstream(&text, &length);
    if (stream == nullptr) return "qkmem: no memory for the report\n";
    const std::string options = "FORMAT=TEXT SINCE=\"" + snapshot_ + "\" " + filter_;
    qk_mem_profile_report(stream, options.c_str());
    std::fclose(stream);
    std::string result(text, length);
    std::free(text);
    return result.empty() ? "qkmem: no memory for the report\n" : result;
  }

  /** Ends the guard early, without a report. */
  void stop() {
    if (code_ == 0) qk_mem_drop_snapshot(snapshot_.c_str());
    code_ = -1;
  }

 private:
  /** A name that no other guard has, in which no quotation mark ends the value of SINCE. */
  static std::string unused_name(std::string name) {
    static std::atomic<unsigned long> last{0};
    constexpr std::size_t kMost = 160;  // of the 200 bytes that the name of a snapshot can have
    if (name.size() > kMost) name.resize(kMost);
    for (char& c : name) {
      if (c == '"') c = '\'';
    }
    return name + " #" + std::to_string(++last);
  }

  std::string snapshot_;
  std::string filter_;
  int code_;
};

}  // namespace qk

#pragma GCC visibility pop

#endif  // QKMEM_NO_GROWTH_HPP_
