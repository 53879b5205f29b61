// The faults. The comment "guilty: NAME" marks the line that the report has to lead to.
// "label: NAME" and "caller: NAME" mark what it says beside that line.
#include "tests/seeded/faults.h"

#include <atomic>
#include <stdexcept>
#include <thread>

#include "qkmem/profile.h"
#include "tests/seeded/adapter.h"
#include "tests/seeded/memory.h"

namespace seeded {
namespace {

void nothing(const Server& /*server*/, int /*request*/) {}

/** Reads an order. Of ten orders one has no address, and is refused. */
void leak_on_an_error_path(const Server& server, int request) {
  void* const order = keep(server.requests(), 600);  // guilty: error_path
  const bool has_address = request % 10 != 3;
  if (!has_address) return;
  qk_mem_free(server.requests(), order);
}

/** Four buffers with each request, of which one is forgotten. */
void leak_one_of_many(const Server& server, int /*request*/) {
  const Buffer language(server.requests(), 60);
  const Buffer encoding(server.requests(), 80);
  keep(server.requests(), 100);  // guilty: one_of_many
  const Buffer referrer(server.requests(), 120);
}

/** A list of all articles, small blocks that are needed, and once a copy of the whole list. */
void forget_one_big_block(const Server& /*server*/, int request) {
  static const int articles = qk_mem_new_handle("DATA", "AR");
  for (int i = 0; i < 4; ++i) {
    keep(articles, 24);
    qk_mem_strdup(articles, "name of an article");
  }
  if (request != 1500) return;
  keep(articles, 400'000);  // guilty: big_block
}

/** Each answer is put into a cache, from which nothing is ever removed. */
void fill_a_cache_without_bounds(const Server& /*server*/, int /*request*/) {
  static const int cache = qk_mem_new_handle("DATA", "AN");
  struct Answer {
    Answer* next;
    char text[240];
  };
  static Answer* answers = nullptr;
  auto* const answer = static_cast<Answer*>(keep(cache, sizeof(Answer)));  // guilty: cache
  answer->next = answers;
  answers = answer;
}

/** Work of two hundred requests is a phase. Each phase leaves a part of its tables behind. */
void grow_by_phases(const Server& /*server*/, int request) {
  static const int tables = qk_mem_new_handle("DATA", "TA");
  static void* parts[8];
  const int step = request % 200;
  if (step < 8) parts[step] = keep(tables, 5'000);  // guilty: phases
  if (step != 199) return;
  for (int i = 0; i < 5; ++i) qk_mem_free(tables, parts[i]);
}

/** Once, in the middle, a report for the whole year is sorted in memory. */
void need_much_for_a_moment(const Server& server, int request) {
  if (request != 1'000) return;
  const Buffer totals(server.requests(), 10'000);
  const Buffer year(server.requests(), 3'000'000);  // guilty: peak
  const Buffer legend(server.requests(), 1'000);
}

/** Compares twenty words, and copies each of them for that. */
void churn(const Server& server, int /*request*/) {
  for (int i = 0; i < 20; ++i) {
    const Buffer word(server.requests(), 32);  // guilty: churn
  }
}

/** A customer, who can't be read if his number is wrong. */
class Customer {
 public:
  Customer(int handle, int number)
      : handle_(handle), orders_(keep(handle, 2'000)) {  // guilty: constructor
    if (number % 8 == 5) throw std::invalid_argument("customer");
  }
  Customer(const Customer&) = delete;
  Customer& operator=(const Customer&) = delete;
  ~Customer() { qk_mem_free(handle_, orders_); }

 private:
  int handle_;
  void* orders_;
};

void throw_from_a_constructor(const Server& server, int request) {
  try {
    const Customer customer(server.requests(), request);
  } catch (const std::invalid_argument&) {
    const Buffer message(server.requests(), 200);
  }
}

void write_statistics(int handle) {
  const Buffer text(handle, 1'000);
  for (int i = 0; i < 10; ++i) keep(handle, 1'200);  // guilty: thread
}

/** Now and then a thread that nobody joins. The next request comes when its work is done. */
void leak_in_a_detached_thread(const Server& server, int request) {
  if (request % 100 != 0) return;
  static std::atomic<bool> is_done;
  is_done = false;
  std::thread([handle = server.requests()] {
    write_statistics(handle);
    is_done = true;
    is_done.notify_one();
  }).detach();
  is_done.wait(false);
}

/** Two steps use the library. The second one forgets what it got. */
void leak_in_a_callback(const Server& /*server*/, int /*request*/) {
  static const Hooks hooks = hooks_on_a_handle();
  {
    const qk::Site step("checking prices");
    forget_list(hooks, parse_list(hooks));
  }
  const qk::Site step("importing prices");  // label: callback
  static_cast<void>(parse_list(hooks));
}

/** The same without labels. Only the call stack tells the steps apart. */
void leak_in_a_callback_without_labels(const Server& /*server*/, int /*request*/) {
  static const Hooks hooks = hooks_on_a_handle();
  forget_list(hooks, parse_list(hooks));
  static_cast<void>(parse_list(hooks));  // caller: library
}

struct Named {
  std::string_view name;
  Fault fault;
};

constexpr Named kFaults[] = {
    {"none", nothing},
    {"error_path", leak_on_an_error_path},
    {"one_of_many", leak_one_of_many},
    {"big_block", forget_one_big_block},
    {"cache", fill_a_cache_without_bounds},
    {"phases", grow_by_phases},
    {"peak", need_much_for_a_moment},
    {"churn", churn},
    {"constructor", throw_from_a_constructor},
    {"thread", leak_in_a_detached_thread},
    {"callback", leak_in_a_callback},
    {"library", leak_in_a_callback_without_labels},
};

}  // namespace

Fault fault_named(std::string_view name) {
  for (const Named& named : kFaults) {
    if (named.name == name) return named.fault;
  }
  return nullptr;
}

}  // namespace seeded
