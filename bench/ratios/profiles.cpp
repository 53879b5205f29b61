// Recorded pairs with the profile or the checks on, beside the same pairs without them.
#include "bench/ratios/profiles.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <spawn.h>
#include <unistd.h>

#include <array>
#include <barrier>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>

#include "bench/ratios/allocators.h"
#include "bench/ratios/pairs.h"
#include "bench/ratios/scratch.h"
#include "bench/ratios/threads.h"
#include "bench/ratios/workloads.h"

namespace ratios {
namespace {

constexpr std::size_t kSites = 10'000;

/** A handle whose allocations come from many lines, in random order. */
class ManySites {
 public:
  explicit ManySites(const char* options, std::size_t sites = kSites)
      : id_(qk_mem_new_handle(options, "QB")) {
    for (std::uint32_t& line : lines_) {
      state_ = state_ * 6364136223846793005U + 1442695040888963407U;
      line = static_cast<std::uint32_t>((state_ >> 33) % sites);
    }
  }

  void* allocate(std::size_t size) {
    return qk_mem_imalloc(id_, size, QK_MEM_ALIGNMENT, "many.c",
                          static_cast<int>(lines_[next_++ % lines_.size()]));
  }
  void release(void* memory) { qk_mem_free(id_, memory); }

 private:
  int id_;
  std::uint64_t state_ = 1;
  std::size_t next_ = 0;
  std::array<std::uint32_t, 65536> lines_;
};

/** Adds a walk up the stack to each allocation. */
class Unwound : public Qkmem {
 public:
  using Qkmem::Qkmem;

  void* allocate(std::size_t size) {
    void* frames[16];
    unwind_(frames, 16);
    asm volatile("" : : "r"(frames) : "memory");
    return Qkmem::allocate(size);
  }

 private:
  using Unwind = int(void** frames, int most);

  static Unwind* find() {
    void* const library = dlopen("libunwind.so.8", RTLD_NOW | RTLD_LOCAL);
    void* const function = library == nullptr ? nullptr : dlsym(library, "unw_backtrace");
    if (function == nullptr) throw std::runtime_error("libunwind not found");
    return reinterpret_cast<Unwind*>(function);
  }

  Unwind* unwind_ = find();
};

/** Calls `body` below so many calls more. */
template <class Body>
[[gnu::noinline]] void at_depth(int depth, Body& body) {
  if (depth == 0) {
    body();
  } else {
    at_depth(depth - 1, body);
  }
  asm volatile("");  // keeps the call from being the last thing, and so from leaving no frame
}

template <class Allocator, class... Arguments>
Run pairs_at_depth(int depth, Arguments... arguments) {
  return [=, allocator = std::make_shared<Allocator>(arguments...)](std::size_t times) {
    return timed([&] {
      auto body = [&] { allocate_and_release<1>(*allocator, mixed_sizes(), times); };
      at_depth(depth, body);
    });
  };
}

/** Pairs of one size. */
template <class Allocator, class... Arguments>
Run pairs_of_64(Arguments... arguments) {
  static const auto sizes = sizes_between<kPairSizes>(64, 64);
  return [allocator = std::make_shared<Allocator>(arguments...)](std::size_t times) {
    return timed([&] { allocate_and_release<1>(*allocator, sizes, times); });
  };
}

/** Keeps a second thread in the process, asleep. */
template <class Allocator>
Run pairs_beside_idle_thread(const char* options) {
  auto end = std::make_shared<std::barrier<>>(2);
  // It lives as long as the process, which ends after the workload.
  std::thread([end] { end->arrive_and_wait(); }).detach();
  return pairs_at_depth<Allocator>(0, options);
}

/** Pairs by two threads at once, which have a handle each. */
Run pairs_of_two_threads() { return pairs_in_threads<Qkmem>(2, Ownership::kOwn, "MULTITHREADED"); }

/** The pairs of a workload without the profile; those at a depth with it, and with a walk. */
struct Peer {
  const char* name;
  Run (*start)();
};

constexpr Peer kPeers[] = {
    {"one_site", [] { return pairs_at_depth<Qkmem>(0, "DATA"); }},
    {"of_64", [] { return pairs_of_64<Qkmem>("DATA"); }},
    {"many_sites", [] { return pairs_at_depth<ManySites>(0, "DATA"); }},
    {"idle_thread", [] { return pairs_beside_idle_thread<Qkmem>("MULTITHREADED"); }},
    {"two_threads", [] { return pairs_of_two_threads(); }},
    {"unwound",
     [] {
       setenv("QK_MEM_PROFILE", "SITES REPORT=/dev/null", 1);
       return pairs_at_depth<Unwound>(16, "DATA");
     }},
};

/**
 * A peer in a process of its own, because the profile is on for the whole process. It waits between
 * the turns, as a contestant in this process does.
 */
class PeerProcess {
 public:
  explicit PeerProcess(const char* name) {
    int to_peer[2];
    int from_peer[2];
    if (pipe2(to_peer, O_CLOEXEC) != 0 || pipe2(from_peer, O_CLOEXEC) != 0) fail();
    posix_spawn_file_actions_t files;
    posix_spawn_file_actions_init(&files);
    posix_spawn_file_actions_adddup2(&files, to_peer[0], STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&files, from_peer[1], STDOUT_FILENO);
    std::string program = "/proc/self/exe";
    std::string option = "--peer";
    std::string peer = name;
    char* const arguments[] = {program.data(), option.data(), peer.data(), nullptr};
    pid_t process = 0;
    if (posix_spawn(&process, program.c_str(), &files, nullptr, arguments, environ) != 0) fail();
    posix_spawn_file_actions_destroy(&files);
    close(to_peer[0]);
    close(from_peer[1]);
    to_ = fdopen(to_peer[1], "w");
    from_ = fdopen(from_peer[0], "r");
  }
  PeerProcess(const PeerProcess&) = delete;
  PeerProcess& operator=(const PeerProcess&) = delete;
  /** The peer ends with its input. */
  ~PeerProcess() {
    std::fclose(to_);
    std::fclose(from_);
  }

  Nanoseconds run(std::size_t times) {
    std::fprintf(to_, "%zu\n", times);
    std::fflush(to_);
    double nanoseconds = 0;
    if (std::fscanf(from_, "%lf", &nanoseconds) != 1) fail();
    return Nanoseconds(nanoseconds);
  }

 private:
  [[noreturn]] static void fail() { throw std::runtime_error("can't run a peer"); }

  FILE* to_;
  FILE* from_;
};

Contestant peer(const char* contestant, const char* name) {
  return {contestant, [=]() -> Run {
            return [process = std::make_shared<PeerProcess>(name)](std::size_t times) {
              return process->run(times);
            };
          }};
}

/** The environment is read at the first call, which creates the handle. */
Contestant profiled(const char* options, Run (*start)()) {
  return {"qkmem", [=] {
            setenv("QK_MEM_PROFILE", options, 1);
            return start();
          }};
}

Contestant checked(const char* options, Run (*start)()) {
  return {"qkmem", [=] {
            setenv("QK_MEM_CHECK", options, 1);
            return start();
          }};
}

/** The recording goes to a temporary file. */
Contestant recorded(Run (*start)(), const char* stacks = "") {
  return {"qkmem", [=]() -> Run {
            auto folder = std::make_shared<ScratchFolder>();
            const std::string options =
                "REPORT=/dev/null RECORD=" + folder->file("recording") + stacks;
            setenv("QK_MEM_PROFILE", options.c_str(), 1);
            return [folder, run = start()](std::size_t times) { return run(times); };
          }};
}

constexpr char kSitesOnly[] = "SITES REPORT=/dev/null";

}  // namespace

void serve_peer(const char* name) {
  // The process that has started this one may have them on.
  unsetenv("QK_MEM_PROFILE");
  unsetenv("QK_MEM_CHECK");
  for (const Peer& peer : kPeers) {
    if (std::string(name) != peer.name) continue;
    const Run run = peer.start();
    for (std::size_t times = 0; std::scanf("%zu", &times) == 1;) {
      std::printf("%.0f\n", run(times).count());
      std::fflush(stdout);
    }
    return;
  }
  throw std::runtime_error(std::string("unknown: ") + name);
}

std::vector<Workload> profile_workloads() {
  return {
      {"profiled",
       "Ordinary handle with the profile on: recorded pairs of 16 to 512 bytes from one line",
       Goal(1.3).above("unprofiled"),
       1,
       Threads::kOne,
       {{"malloc", [] { return pairs_at_depth<Malloc>(0); }},
        profiled(kSitesOnly, [] { return pairs_at_depth<Qkmem>(0, "DATA"); }),
        peer("unprofiled", "one_site")}},
      {"profiled_10000",
       "The same from 10,000 lines in random order",
       Goal(3.5).above("unprofiled"),
       1,
       Threads::kOne,
       {{"malloc", [] { return pairs_at_depth<Malloc>(0); }},
        profiled(kSitesOnly, [] { return pairs_at_depth<ManySites>(0, "DATA"); }),
        peer("unprofiled", "many_sites")}},
      {"profiled_idle",
       "MULTITHREADED handle with the profile on, beside an idle thread",
       Goal(1.5).above("unprofiled"),
       1,
       Threads::kIdleSecond,
       {{"malloc", [] { return pairs_at_depth<Malloc>(0); }},
        profiled(kSitesOnly, [] { return pairs_beside_idle_thread<Qkmem>("MULTITHREADED"); }),
        peer("unprofiled", "idle_thread")}},
      {"profiled_stacks",
       "The profile with call stacks: recorded pairs at a depth of 16 calls",
       kNoGoal.or_times(1.3, "unw_backtrace"),
       1,
       Threads::kOne,
       {{"malloc", [] { return pairs_at_depth<Malloc>(16); }},
        profiled("STACKS=16 REPORT=/dev/null", [] { return pairs_at_depth<Qkmem>(16, "DATA"); }),
        peer("unw_backtrace", "unwound")}},
      {"recorded_one_site",
       "Ordinary handle with a recording: recorded pairs of 16 to 512 bytes from one line",
       Goal(8.0),
       1,
       Threads::kOne,
       {{"malloc", [] { return pairs_at_depth<Malloc>(0); }},
        recorded([] { return pairs_at_depth<Qkmem>(0, "DATA"); })}},
      {"recorded_300_sites",
       "The same from 300 lines in random order",
       Goal(11.0),
       1,
       Threads::kOne,
       {{"malloc", [] { return pairs_at_depth<Malloc>(0); }},
        recorded([] { return pairs_at_depth<ManySites>(0, "DATA", std::size_t{300}); })}},
      {"recorded_4000_sites",
       "The same from 4,000 lines in random order",
       Goal(15.0),
       1,
       Threads::kOne,
       {{"malloc", [] { return pairs_at_depth<Malloc>(0); }},
        recorded([] { return pairs_at_depth<ManySites>(0, "DATA", std::size_t{4000}); })}},
      {"recorded_stacks",
       "The recording with call stacks: recorded pairs at a depth of 16 calls",
       Goal(10.0),
       1,
       Threads::kOne,
       {{"malloc", [] { return pairs_at_depth<Malloc>(16); }},
        recorded([] { return pairs_at_depth<Qkmem>(16, "DATA"); }, " STACKS=16"),
        peer("unw_backtrace", "unwound")}},
      {"recorded_two_threads",
       "A MULTITHREADED handle for each of two threads with a recording: pairs at once, elapsed",
       kNoGoal.or_times(1.5, "unrecorded"),
       1,
       Threads::kSeveral,
       {{"malloc", [] { return pairs_in_threads<Malloc>(2, Ownership::kOwn); }},
        recorded([] { return pairs_of_two_threads(); }),
        peer("unrecorded", "two_threads")}},
      {"checked_64",
       "Ordinary handle with guards and fillings: recorded pairs of 64 bytes",
       Goal(1.0).above("unchecked"),
       1,
       Threads::kOne,
       {{"malloc", [] { return pairs_of_64<Malloc>(); }},
        checked("GUARD FILL REPORT=/dev/null", [] { return pairs_of_64<Qkmem>("DATA"); }),
        peer("unchecked", "of_64")}},
      {"checked",
       "The same with 16 to 512 bytes",
       Goal(2.0).above("unchecked"),
       1,
       Threads::kOne,
       {{"malloc", [] { return pairs_at_depth<Malloc>(0); }},
        checked("GUARD FILL REPORT=/dev/null", [] { return pairs_at_depth<Qkmem>(0, "DATA"); }),
        peer("unchecked", "one_site")}},
      {"checked_quarantine",
       "Ordinary handle with a quarantine: recorded pairs of 64 bytes",
       Goal(1.5).above("unchecked"),
       1,
       Threads::kOne,
       {{"malloc", [] { return pairs_of_64<Malloc>(); }},
        checked("QUARANTINE REPORT=/dev/null", [] { return pairs_of_64<Qkmem>("DATA"); }),
        peer("unchecked", "of_64")}},
  };
}

}  // namespace ratios
