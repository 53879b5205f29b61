#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <random>
#include <stdexcept>
#include <vector>

#include "bench/ratios/allocators.h"
#include "bench/ratios/scratch.h"
#include "bench/ratios/workloads.h"
#include "qkmem/check.h"
#include "qkmem/profile.h"

namespace ratios {
namespace {

constexpr std::size_t kBlocks = 1000000;

struct Node {
  Node* next;
  std::size_t filling[7];
};

/** Blocks that follow one another, from address to address or at random. Nine of ten are kept. */
template <class Allocator>
class Linked {
 public:
  template <class... Options>
  explicit Linked(bool at_random, Options... options) : allocator_(options...) {
    std::vector<Node*> nodes(kBlocks);
    for (Node*& node : nodes) node = new (allocator_.allocate(sizeof(Node))) Node{};
    if (at_random) std::shuffle(nodes.begin(), nodes.end(), std::mt19937(1));
    for (std::size_t i = 1; i < kBlocks; ++i) {
      if (i != kBlocks / 10) nodes[i]->next = nodes[i - 1];
    }
    last_ = nodes.back();
    std::fill(nodes.begin(), nodes.end(), nullptr);
  }

  [[nodiscard]] Node* last() const { return last_; }

 private:
  Allocator allocator_;
  Node* last_;
};

void walk(const Linked<Malloc>& list) {
  std::size_t count = 0;
  for (const Node* node = list.last(); node != nullptr; node = node->next) ++count;
  if (count != kBlocks - kBlocks / 10) throw std::logic_error("the list is not whole");
}

void search(FILE* stream) {
  if (qk_mem_lost(stream) != 0) throw std::runtime_error("no search");
}

/** All time counts: the search is another process's. */
Run with_walk(bool at_random) {
  return [list = std::make_shared<Linked<Malloc>>(at_random)](std::size_t times) {
    return elapsed([&] {
      while (times-- != 0) walk(*list);
    });
  };
}

Run with_search(bool at_random) {
  setenv("QK_MEM_PROFILE", "LOST MAX=1G REPORT=/dev/null", 1);
  return [list = std::make_shared<Linked<Qkmem>>(at_random, "DATA"),
          file = std::make_shared<ScratchFile>()](std::size_t times) {
    return elapsed([&] {
      while (times-- != 0) file->rewrite(search);
    });
  };
}

/** A look at the guards of all blocks. */
Run with_look() {
  setenv("QK_MEM_CHECK", "GUARD REPORT=/dev/null", 1);
  return [list = std::make_shared<Linked<Qkmem>>(false, "DATA")](std::size_t times) {
    return elapsed([&] {
      while (times-- != 0) {
        if (qk_mem_check(0) != 0) throw std::logic_error("a block is damaged");
      }
    });
  };
}

Workload search_of(const char* name, const char* linked, bool at_random) {
  return {name,
          std::string("Search for lost memory in 1,000,000 blocks of 64 bytes, linked ") + linked +
              ", elapsed, for each block",
          kNoGoal,
          kBlocks,
          Threads::kOne,
          {{"walk along the list", [=] { return with_walk(at_random); }},
           {"qkmem", [=] { return with_search(at_random); }}}};
}

}  // namespace

std::vector<Workload> search_workloads() {
  return {search_of("lost_in_order", "in order", false),
          search_of("lost_at_random", "at random", true),
          {"look_at_guards",
           "Look at the guards of 1,000,000 blocks of 64 bytes, elapsed, for each block",
           kNoGoal,
           kBlocks,
           Threads::kOne,
           {{"walk along the list", [] { return with_walk(false); }}, {"qkmem", with_look}}}};
}

}  // namespace ratios
