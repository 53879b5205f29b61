#include "tests/lock_order/recorder.h"

#include <execinfo.h>

#include <algorithm>
#include <cstdlib>
#include <map>
#include <mutex>
#include <set>
#include <utility>

// The library's own lock, which the recording one calls.
#include "support/mtx.h"
#define Mtx RealMtx
#include "../../src/support/mtx.cpp"
#undef Mtx

namespace lock_order {
namespace {

constexpr int kMostHeld = 4096;

struct Held {
  const void* locks[kMostHeld];
  int count;
};
thread_local Held mine = {};

std::mutex mutex;

/** Never destroyed: static destructors take locks too. */
std::map<std::pair<const void*, const void*>, std::string>& found() {
  static auto* const edges = new std::map<std::pair<const void*, const void*>, std::string>;
  return *edges;
}

std::string stack() {
  void* frames[24];
  const int count = backtrace(frames, 24);
  char** lines = backtrace_symbols(frames, count);
  std::string text;
  for (int i = 2; i < count; ++i) text += std::string("    ") + lines[i] + "\n";
  std::free(lines);
  return text;
}

}  // namespace

void requested(const void* lock) {
  if (mine.count == 0) return;
  const std::lock_guard guard(mutex);
  for (int i = 0; i < mine.count; ++i) {
    if (mine.locks[i] == lock) continue;
    auto [edge, is_new] = found().try_emplace({mine.locks[i], lock});
    if (is_new) edge->second = stack();
  }
}

void acquired(const void* lock) {
  if (mine.count == kMostHeld) std::abort();
  mine.locks[mine.count++] = lock;
}

void released(const void* lock) {
  for (int i = mine.count - 1; i >= 0; --i) {
    if (mine.locks[i] != lock) continue;
    std::copy(mine.locks + i + 1, mine.locks + mine.count, mine.locks + i);
    --mine.count;
    return;
  }
}

std::vector<const void*> held() { return {mine.locks, mine.locks + mine.count}; }

void forget() {
  const std::lock_guard guard(mutex);
  found().clear();
}

std::vector<Edge> edges(const std::function<std::string(const void*)>& class_of) {
  const std::lock_guard guard(mutex);
  std::set<std::pair<std::string, std::string>> seen;
  std::vector<Edge> result;
  for (const auto& [locks, first_stack] : found()) {
    const Edge edge = {class_of(locks.first), class_of(locks.second), first_stack};
    if (edge.outer != edge.inner && seen.insert({edge.outer, edge.inner}).second) {
      result.push_back(edge);
    }
  }
  return result;
}

namespace {

/** A path from `from` to `to`, or "". */
std::string path(const std::vector<Edge>& edges, const std::string& from, const std::string& to,
                 std::set<std::string>& visited) {
  for (const Edge& edge : edges) {
    if (edge.outer != from) continue;
    const std::string step =
        edge.outer + " held, " + edge.inner + " requested\n" + edge.first_stack;
    if (edge.inner == to) return step;
    if (!visited.insert(edge.inner).second) continue;
    if (const std::string rest = path(edges, edge.inner, to, visited); !rest.empty()) {
      return step + rest;
    }
  }
  return "";
}

}  // namespace

std::string cycle_in(const std::vector<Edge>& edges) {
  for (const Edge& edge : edges) {
    std::set<std::string> visited;
    if (std::string cycle = path(edges, edge.outer, edge.outer, visited); !cycle.empty()) {
      return cycle;
    }
  }
  return "";
}

}  // namespace lock_order
