// A shop that forgets the baskets of customers who walk out. It serves some customers, sets a
// baseline, serves more, and prints the report that the command line names:
//
//   QK_MEM_DEBUG=TRACE build/reports comparison
//
// docs/reports.md shows and explains the reports.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <initializer_list>

#include "qkmem/qkmem.h"

namespace {

struct Form {
  const char* name;
  const char* filter;
  unsigned sections;
};

constexpr Form kForms[] = {
    {"configured", "", 0},
    {"summary", "", QK_MEM_DUMP_SUMMARY},
    {"heapsize", "", QK_MEM_DUMP_HEAPSIZE},
    {"handles", "", QK_MEM_DUMP_HANDLES},
    {"pointers", "", QK_MEM_DUMP_POINTERS},
    {"blocks", "", QK_MEM_DUMP_BLOCKS},
    {"management", "TAG=BA", QK_MEM_DUMP_MGMT},
    {"tag", "TAG=BA", QK_MEM_DUMP_HANDLES | QK_MEM_DUMP_POINTERS},
    {"comparison", "", QK_MEM_DUMP_COMPARISON},
    {"growth", "", QK_MEM_DUMP_GROWTH | QK_MEM_DUMP_HANDLES | QK_MEM_DUMP_POINTERS},
    {"growth-of-catalogue", "TAG=CA", QK_MEM_DUMP_GROWTH | QK_MEM_DUMP_POINTERS},
    {"terse", "TAG=CA", QK_MEM_DUMP_GROWTH | QK_MEM_DUMP_TERSE | QK_MEM_DUMP_POINTERS},
};

class Shop {
 public:
  Shop() {
    qk_mem_strdup(settings_, "opens=8:00");
    yesterday_ = qk_mem_malloc(ledger_, 600);
    for (const char* product : {"apples", "bread", "cheese"}) qk_mem_strdup(catalogue_, product);
    // Stands for a library that uses plain malloc: no handle accounts for this memory.
    for (auto& picture : pictures_) picture = std::malloc(100000);
  }
  ~Shop() {
    for (void* picture : pictures_) std::free(picture);
  }
  Shop(const Shop&) = delete;
  Shop& operator=(const Shop&) = delete;

  void serve(int customers) {
    for (int i = 0; i < customers; ++i) serve_one();
  }

  void put_yesterday_away() { qk_mem_free(ledger_, yesterday_); }

  static void open_second_counter() {
    const int counter = qk_mem_new_handle("MULTITHREADED", "BA");
    qk_mem_calloc(counter, 4, 24);
  }

 private:
  void serve_one() {
    ++served_;
    void* basket = qk_mem_malloc(baskets_, 96);
    const bool walks_out = served_ % 3 == 0;
    if (walks_out) return;
    sales_ = qk_mem_realloc(ledger_, sales_, static_cast<size_t>(served_) * 40);
    print_receipt();
    qk_mem_free(baskets_, basket);
  }

  /** Uses a handle of its own, whose deletion frees everything on it. */
  static void print_receipt() {
    const int receipt = qk_mem_new_handle("", "");
    qk_mem_strdup(receipt, "thank you");
    qk_mem_del_handle(receipt);
  }

  int settings_ = qk_mem_new_handle("AUTOFREE", "");
  int catalogue_ = qk_mem_new_handle("BLOCKMGMT BLOCKSIZE=1024", "CA");
  int baskets_ = qk_mem_new_handle("", "BA");
  int ledger_ = qk_mem_new_handle("", "LE");
  void* yesterday_ = nullptr;
  void* sales_ = nullptr;
  void* volatile pictures_[3] = {};  // volatile, or the compiler removes the unused memory
  int served_ = 0;
};

void print_answers() {
  constexpr const char* kQuestions[][2] = {
      {"CURRENT_ALLOC", ""},
      {"CURRENT_ALLOC", "TAG=BA"},
      {"CURRENT_PTRS", "TAG=BA"},
      {"CHG_SINCE_BASELINE", "TAG=BA"},
      {"PCT_SINCE_BASELINE", "TAG=BA"},
      {"CHG_SINCE_BASELINE", "NEW_HANDLE=TRUE"},
      {"UNTRACKED", ""},
  };
  for (const auto& [query, filter] : kQuestions) {
    long answer = 0;
    if (qk_mem_info(query, filter, &answer) != 0) continue;
    std::printf("%-18s  %-15s  %8ld\n", query, filter, answer);
  }
}

/** Returns false if no report has that name. */
bool print_report(const char* name) {
  if (std::strcmp(name, "answers") == 0) {
    print_answers();
    return true;
  }
  for (const Form& form : kForms) {
    if (std::strcmp(name, form.name) != 0) continue;
    qk_mem_dump(stdout, form.filter, form.sections);
    return true;
  }
  return false;
}

int explain_usage() {
  std::fprintf(stderr, "usage: reports [answers");
  for (const Form& form : kForms) std::fprintf(stderr, "|%s", form.name);
  std::fprintf(stderr, "]\n");
  return 2;
}

}  // namespace

int main(int argc, char** argv) {
  Shop shop;
  shop.serve(4);
  qk_mem_baseline("");
  shop.serve(6);
  shop.put_yesterday_away();
  Shop::open_second_counter();
  if (argc == 1) return 0;
  return argc == 2 && print_report(argv[1]) ? 0 : explain_usage();
}
