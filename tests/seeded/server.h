#ifndef TESTS_SEEDED_SERVER_H_
#define TESTS_SEEDED_SERVER_H_

#include <cstddef>

#include "qkmem/qkmem.h"

namespace seeded {

/**
 * A server whose memory is in order: at the end it holds what it is meant to keep. It has more than
 * forty places that allocate, one to a line, on handles of several kinds. The handles stay when the
 * program ends, as those of many programs do.
 */
class Server {
 public:
  /** Reads the configuration and fills the tables. */
  Server();

  /** Answers one request. */
  void serve(int request);

  /** The handle of all that belongs to requests. */
  [[nodiscard]] int requests() const { return requests_; }

 private:
  void read_configuration();
  void fill_tables();
  void read_request(int request) const;
  void answer(int request) const;
  void cache_page(int request);
  void note_session(int request);

  static constexpr int kPages = 64;
  static constexpr int kSessions = 256;

  int configuration_ = qk_mem_new_handle("DATA", "CF");
  int routes_ = qk_mem_new_handle("DATA", "RO");
  int words_ = qk_mem_new_handle("BLOCKMGMT", "WO");
  int cache_ = qk_mem_new_handle("DATA", "CA");
  int sessions_ = qk_mem_new_handle("MULTITHREADED", "SE");
  int requests_ = qk_mem_new_handle("MULTITHREADED", "RE");
  int metrics_ = qk_mem_new_handle("AUTOFREE", "ME");
  int scratch_ = qk_mem_new_handle("BLOCKMGMT BLOCKFREE", "SC");

  void* pages_[kPages] = {};
  char* users_[kSessions] = {};
};

}  // namespace seeded

#endif  // TESTS_SEEDED_SERVER_H_
