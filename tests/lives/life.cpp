#include "tests/lives/life.h"

#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <iterator>

#include "qkmem/qkmem.h"
#include "tests/lives/arena.h"
#include "tests/lives/journal.h"

namespace lives {
namespace {

// Nothing that reports after every event, and no line for every event: for crowded lives.
constexpr const char* kQuiet[] = {
    "",
    "",
    "",
    "TRACE",
    "TRACE",
    "EXCEPTIONS",
    "EXCEPTIONS=qk_ifree",
    "SUMMARY",
    "EXCEPTIONS SUMMARY",
    "DEBUG=qk_mem_idel_handle",
    "SUMMARY EXCEPTIONS='not qk_ifree'",
    "DEBUG=qk_istrdup,qk_icalloc EXCEPTIONS=qk_ifree LOG=STDERR",
    "SUMMARY LOG=STDOUT",
    "NONSENSE",
};
constexpr const char* kLoud[] = {
    "DEBUG",
    "DEBUG FLUSH",
    "DEBUG LOG=STDERR",
    "DEBUG=qk_imalloc,qk_ifree SUMMARY",
    "DEBUG='not qk_istrdup' EXCEPTIONS",
    "CTRLBLKS=qk_istrdup EXCEPTIONS",
    "CTRLBLKS=qk_iregister,qk_mem_iclear_handle",
    "DEBUG=qk_irealloc CTRLBLKS=qk_mem_idel_handle LOG=other.log",
};
constexpr const char* kOptions[] = {
    "", "", "", "", "HEAPSIZE", "DB", "DB HEAPSIZE", "DB=rows.tdf FLUSH", "FLUSH", "WRONG"};
constexpr const char* kSections[] = {"",
                                     "",
                                     "OPTIONS=POINTERS",
                                     "OPTIONS=SUMMARY,HANDLES,MGMT,BLOCKS,POINTERS",
                                     "OPTIONS=HANDLES,MGMT,GROWTH",
                                     "OPTIONS=COMPARISON",
                                     "OPTIONS=HEAPSIZE,BLOCKS",
                                     "OPTIONS=X"};
constexpr const char* kFilters[] = {"",
                                    "",
                                    "",
                                    "HANDLE=3",
                                    "HANDLE=5",
                                    "TAG=AA",
                                    "TAG=NONE",
                                    "TYPE=OVERHEAD",
                                    "BLOCKMGMT=TRUE",
                                    "AUTOFREE=FALSE TYPE=DATA",
                                    "NEW_HANDLE=TRUE",
                                    "NEW_PTRS=TRUE",
                                    "TAG=ABC",
                                    "NOTHING=1"};

}  // namespace

Character::Character(Choice& choice)
    : crowded(choice.one_in(3)),
      careless(choice.one_in(3)),
      steps(crowded ? 1200 : 150 + choice.below(600)),
      most_live(crowded ? 700 + choice.below(4000) : 16 + choice.below(100)),
      largest(choice.one_in(3) ? 4000 : 200) {}

Life::Life(unsigned seed) : choice_(seed), character_(choice_) {
  constexpr unsigned kSpreads[] = {8, 2, 1, 1};
  arena::spread_over(choice_.of(kSpreads));
  constexpr unsigned kShortages[] = {0, 0, 0, 40, 100};
  arena::fail_indexes(choice_.of(kShortages));
}

void Life::choose_environment() {
  const auto set = [](const char* name, const char* value) {
    note("%s=%s", name, value);
    if (*value != '\0') setenv(name, value, 1);
  };
  is_loud_ = !character_.crowded && choice_.one_in(2);
  set("QK_MEM_DEBUG", is_loud_ ? choice_.of(kLoud) : choice_.of(kQuiet));
  set("QK_MEM_OPTIONS", choice_.one_in(2) ? "" : choice_.of(kOptions));
  set("QK_MEM_DUMP", choice_.of(kSections));
}

void Life::live() {
  note("%s, %s, %u steps, at most %u live of %u bytes", character_.crowded ? "crowded" : "calm",
       character_.careless ? "careless" : "careful", character_.steps, character_.most_live,
       character_.largest);
  report_ = std::fopen("reports.txt", "w");
  if (choice_.one_in(4)) companion_.start();
  qk_mem_init();
  pools_.push_back({QK_MEM_DATA_HANDLE, false, qk_mem_generation(QK_MEM_DATA_HANDLE), {}});
  if (!is_loud_ && choice_.one_in(12)) create_many();
  for (int i = 0; i < 3; ++i) create();
  if (character_.crowded) allocate_many();
  const unsigned pause = character_.crowded ? 200 : 20;
  for (unsigned i = 1; i <= character_.steps; ++i) {
    call_on_some_thread(i);
    if (i % pause == 0) note_inventory();
  }
  note_inventory();
}

void Life::call_on_some_thread(unsigned number) {
  const bool in_second = companion_.exists() && choice_.one_in(2);
  note("%u%s", number, in_second ? " in the second thread" : "");
  if (in_second) {
    companion_.act([this] { step(); });
  } else {
    step();
  }
  if (const int code = qk_mem_error(); code != 0) note("  error %d", code);
  if (choice_.one_in(character_.crowded ? 400 : 60) && !is_child_) change_threads();
  if (choice_.one_in(character_.crowded ? 900 : 400) && !is_child_) fork_child();
}

void Life::step() {
  struct Row {
    void (Life::*act)();
    unsigned weight;
    unsigned weight_if_careless;
  };
  static constexpr Row kRows[] = {
      {&Life::allocate, 300, 300},
      {&Life::release, 120, 120},
      {&Life::release_newest, 80, 80},
      {&Life::resize, 110, 110},
      {&Life::push, 50, 50},
      {&Life::free_array, 6, 6},
      {&Life::register_external, 30, 30},
      {&Life::register_object, 30, 30},
      {&Life::deregister, 40, 40},
      {&Life::create, 12, 20},
      {&Life::destroy, 8, 16},
      {&Life::clear, 10, 10},
      {&Life::ask, 20, 30},
      {&Life::misuse_free, 8, 60},
      {&Life::misuse_realloc, 4, 40},
      {&Life::misuse_registration, 4, 40},
      {&Life::configure, 5, 8},
      {&Life::print_report, 4, 6},
      {&Life::set_baseline, 4, 4},
      {&Life::ask_for_info, 5, 5},
      {&Life::fail_some_request, 6, 12},
  };
  const bool careless = character_.careless;
  unsigned all = 0;
  for (const Row& row : kRows) all += careless ? row.weight_if_careless : row.weight;
  unsigned number = choice_.below(all);
  const Row* row = kRows;
  for (;; ++row) {
    const unsigned weight = careless ? row->weight_if_careless : row->weight;
    if (number < weight) break;
    number -= weight;
  }
  choose_place();
  (this->*row->act)();
}

void Life::choose_place() {
  constexpr const char* kFiles[] = {"src/app.c", "app.c", "lib/list.cpp", "/usr/src/x/y.h"};
  file_ = choice_.of(kFiles);
  line_ = static_cast<int>(1 + choice_.below(choice_.one_in(9) ? 70000 : 60));
}

Life::Pool& Life::any_pool() { return pools_[choice_.below(static_cast<unsigned>(pools_.size()))]; }

Life::Entry* Life::any_entry(Pool& pool) {
  const auto count = static_cast<unsigned>(pool.entries.size());
  if (count == 0) return nullptr;
  return &pool.entries[choice_.one_in(4) ? count - 1 : choice_.below(count)];
}

void Life::forget(Pool& pool, const Entry& entry) {
  gone_.push_back(entry.memory);
  pool.entries.erase(pool.entries.begin() + (&entry - pool.entries.data()));
}

int Life::wrong_number() {
  constexpr int kNumbers[] = {0, -1, 99, 513, 100000, QK_MEM_OVERHEAD_HANDLE};
  return choice_.of(kNumbers);
}

// ---- The library as a whole

void Life::configure() {
  qk::Status status;
  const char* options = nullptr;
  int result = 0;
  switch (choice_.below(4)) {
    case 0:
      options = choice_.of(kSections);
      result = qk_mem_dump_config(options, &status);
      break;
    case 1:
      options = choice_.of(kOptions);
      result = qk_mem_options(options, &status);
      break;
    default:
      options = character_.crowded || choice_.one_in(2) ? choice_.of(kQuiet) : choice_.of(kLoud);
      if (choice_.one_in(4)) options = "OFF";
      result = qk_mem_debug_config(options, &status);
  }
  char settings[QK_MEM_SETTINGS_SIZE] = "";
  qk_mem_debug_settings(settings, &status);
  note("configure '%s': %d, now '%s'", options, result, settings);
}

void Life::print_report() {
  constexpr unsigned kOpts[] = {0, 0x3F, 0x35, 0x40, 0xBC, 0x1BC, 0x02};
  const char* filter = choice_.of(kFilters);
  const unsigned opts = choice_.of(kOpts);
  note("report '%s' %x", filter, opts);
  std::fprintf(report_, "---- '%s' %x\n", filter, opts);
  qk_mem_dump(report_, filter, opts);
}

void Life::set_baseline() {
  const char* filter = choice_.of(kFilters);
  note("baseline '%s': %d", filter, qk_mem_baseline(filter));
}

void Life::ask_for_info() {
  constexpr const char* kQueries[] = {
      "INITIAL_HEAP",       "CURRENT_HEAP",  "HEAP_CHG_SINCE_BASELINE",
      "UNTRACKED",          "CURRENT_ALLOC", "CURRENT_PTRS",
      "BASELINE_ALLOC",     "BASELINE_PTRS", "CHG_SINCE_BASELINE",
      "PCT_SINCE_BASELINE", "WHAT",          ""};
  const char* query = choice_.of(kQueries);
  const char* filter = choice_.of(kFilters);
  long answer = -7;
  const int result = qk_mem_info(query, filter, &answer);
  note("info '%s' '%s': %d, %ld", query, filter, result, answer);
}

void Life::fail_some_request() {
  const unsigned nth = 1 + choice_.below(4);
  note("request %u is to fail", nth);
  arena::fail_request(nth);
}

void Life::change_threads() {
  if (companion_.exists()) {
    note("the second thread ends");
    companion_.join();
  } else {
    note("a second thread begins");
    companion_.start();
  }
}

void Life::fork_child() {
  note("fork");
  std::fflush(nullptr);
  const pid_t child = fork();
  if (child == 0) be_the_child();
  int status = 0;
  waitpid(child, &status, 0);
  note("  child: %x", static_cast<unsigned>(status));
}

void Life::be_the_child() {
  is_child_ = true;
  companion_.forget();
  begin_journal("child.txt");
  report_ = std::fopen("childs_reports.txt", "w");
  for (unsigned i = 1; i <= 40; ++i) call_on_some_thread(i);
  note_inventory();
  print_report();
  if (choice_.one_in(2)) end();
  std::fflush(nullptr);
  _exit(3);
}

void Life::end() {
  if (choice_.one_in(2)) {
    while (pools_.size() > 1) destroy();
  }
  note_inventory();
  std::fflush(report_);
  switch (choice_.below(6)) {
    case 0:
      raise(SIGTERM);
      break;
    case 1:
      raise(SIGSEGV);
      break;
    default:
      break;
  }
  std::exit(is_child_ ? 5 : 0);
}

}  // namespace lives
