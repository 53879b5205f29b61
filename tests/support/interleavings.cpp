#include "tests/support/interleavings.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>

namespace interleavings {
namespace {

Interleavings* running = nullptr;

class Hash {
 public:
  void add(std::uint64_t value) {
    hash_ = (hash_ ^ value) * 0x9E3779B97F4A7C15U;
    hash_ ^= hash_ >> 32;
  }
  void add(const char* bytes, std::size_t count) {
    for (; count >= sizeof(std::uint64_t); count -= sizeof(std::uint64_t)) {
      std::uint64_t word = 0;
      std::memcpy(&word, bytes, sizeof word);
      add(word);
      bytes += sizeof word;
    }
  }
  [[nodiscard]] std::uint64_t value() const { return hash_; }

 private:
  std::uint64_t hash_ = 0xCBF29CE484222325U;
};

/** Registers and the part of the stack in use say what the thread does next. */
void add_thread(Hash& hash, const Thread& thread) {
  hash.add(static_cast<std::uint64_t>(thread.state));
  hash.add(reinterpret_cast<std::uintptr_t>(thread.sleeps_on));
  for (int i = 0; i < thread.pending; ++i) {
    hash.add(reinterpret_cast<std::uintptr_t>(thread.stores[i].variable));
    hash.add(thread.stores[i].value);
  }
  if (thread.state == State::kEnded) return;
  std::size_t unused = 0;
#if defined(__x86_64__)
  const auto& registers = thread.context.uc_mcontext.gregs;
  for (const int kept : {REG_RBX, REG_RBP, REG_R12, REG_R13, REG_R14, REG_R15, REG_RSP, REG_RIP}) {
    hash.add(static_cast<std::uint64_t>(registers[kept]));
  }
  unused = static_cast<std::uintptr_t>(registers[REG_RSP]) -
           reinterpret_cast<std::uintptr_t>(thread.stack);
  if (unused < 512 || unused > Thread::kStackBytes) std::abort();  // it has nearly run over
#endif
  hash.add(thread.stack + unused, Thread::kStackBytes - unused);
}

void show_first_store(Thread& thread) {
  *thread.stores[0].variable = thread.stores[0].value;
  std::copy(thread.stores + 1, thread.stores + thread.pending, thread.stores);
  --thread.pending;
}

void show_stores(Thread& thread) {
  while (thread.pending != 0) show_first_store(thread);
}

void prepare(Thread& thread, void (*life)()) {
  getcontext(&thread.context);
  thread.context.uc_stack.ss_sp = thread.stack;
  thread.context.uc_stack.ss_size = sizeof thread.stack;
  makecontext(&thread.context, life, 0);
}

}  // namespace

Interleavings::Interleavings() { running = this; }

Interleavings::~Interleavings() { running = nullptr; }

Interleavings& Interleavings::now() { return *running; }

void Interleavings::live() {
  running->lives[running->current_]();
  running->stop(State::kEnded);
}

void Interleavings::begin() {
  world_.is_signal_due = signal != nullptr;
  for (Thread& each : world_.threads) prepare(each, live);
  for (current_ = 0; current_ < 2; ++current_) {
    swapcontext(&scheduler_, &thread().context);  // up to its first access
  }
}

std::size_t Interleavings::walk() {
  begin();
  explore();
  return states_.size();
}

/** States in which there is only one way to go on aren't worth to be remembered. */
void Interleavings::explore() {
  Options now = options();
  while (now.count == 1) {
    make(now.all[0]);
    goes_on_ = goes_on_ && is_right();
    now = options();
  }
  if (now.count == 0) {
    goes_on_ = goes_on_ && has_ended();
    return;
  }
  if (!goes_on_ || !states_.insert(hash()).second) return;
  const auto before = std::make_unique<World>(world_);
  for (int i = 0; i < now.count && goes_on_; ++i) {
    if (i != 0) std::memcpy(static_cast<void*>(&world_), before.get(), sizeof world_);
    make(now.all[i]);
    goes_on_ = goes_on_ && is_right();
    explore();
  }
}

Interleavings::Options Interleavings::options() const {
  Options now = {};
  for (int i = 0; i < 2; ++i) {
    const Thread& each = world_.threads[i];
    if (each.state == State::kReady) now.all[now.count++] = {Move::kGoOn, i};
    if (each.pending != 0) now.all[now.count++] = {Move::kShowStore, i};
  }
  if (world_.is_signal_due && state_of(0) != State::kEnded) {
    now.all[now.count++] = {Move::kSignal, 0};
  }
  return now;
}

void Interleavings::make(Option option) {
  Thread& chosen = world_.threads[option.thread];
  if (option.move == Move::kShowStore) return show_first_store(chosen);
  if (option.move == Move::kSignal) {
    world_.is_signal_due = false;
    world_.takes_signal = true;
    chosen.state = State::kReady;
  }
  current_ = option.thread;
  swapcontext(&scheduler_, &chosen.context);
}

std::uint64_t Interleavings::hash() const {
  Hash hash;
  for (const Thread& each : world_.threads) add_thread(hash, each);
  hash.add(world_.is_signal_due ? 1 : 0);
  hash.add(world_.scene, sizeof world_.scene);
  return hash.value();
}

void Interleavings::step() {
  swapcontext(&thread().context, &scheduler_);
  take_signal();
}

void Interleavings::take_signal() {
  if (!world_.takes_signal) return;
  world_.takes_signal = false;
  signal();
  step();
}

void Interleavings::stop(State state) {
  thread().state = state;
  swapcontext(&thread().context, &scheduler_);
}

void Interleavings::end() { stop(State::kEnded); }

std::uint64_t Interleavings::read(const std::uint64_t& variable) const {
  const Thread& reader = world_.threads[current_];
  std::uint64_t value = variable;
  for (int i = 0; i < reader.pending; ++i) {
    if (reader.stores[i].variable == &variable) value = reader.stores[i].value;
  }
  return value;
}

void Interleavings::write(std::uint64_t& variable, std::uint64_t value) {
  Thread& writer = thread();
  if (writer.pending == Thread::kMaxPending) std::abort();
  writer.stores[writer.pending++] = {&variable, value};
}

void Interleavings::show_own_stores() { show_stores(thread()); }

void Interleavings::show_all_stores() {
  for (Thread& each : world_.threads) show_stores(each);
}

void Interleavings::sleep(const std::uint64_t& variable) {
  thread().sleeps_on = &variable;
  stop(State::kAsleep);
  take_signal();
}

void Interleavings::wake(const std::uint64_t& variable, int limit) {
  for (Thread& each : world_.threads) {
    if (limit == 0) return;
    if (each.state != State::kAsleep || each.sleeps_on != &variable) continue;
    each.state = State::kReady;
    --limit;
  }
}

}  // namespace interleavings
