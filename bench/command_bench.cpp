// What the command qkmem takes for each event of an input, beside other programs that read the same
// events: gawk, which only adds up a column of the trace file by site, and heaptrack_print, which
// reads the recording as `qkmem export` writes it for heaptrack. Those that are not installed are
// left out. "Time" is what a user waits, "processor" what both processors work, for an event.
//   command_bench [EVENTS [LIVE]] [options of Google Benchmark]
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cctype>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

extern char** environ;

namespace {

using Words = std::vector<std::string>;

struct Seconds {
  double waited;
  double processor;
};

/** Runs a program with its output to a file. Returns how long it took, if it succeeds. */
std::optional<Seconds> run(const Words& words, const char* out = "/dev/null") {
  std::vector<char*> arguments;
  for (const std::string& word : words) arguments.push_back(const_cast<char*>(word.c_str()));
  arguments.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, out, O_WRONLY | O_CREAT | O_TRUNC,
                                   0666);
  posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
  pid_t child = 0;
  const auto begin = std::chrono::steady_clock::now();
  const int error =
      posix_spawnp(&child, arguments[0], &actions, nullptr, arguments.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  if (error != 0) return std::nullopt;
  int status = 0;
  rusage used = {};
  if (wait4(child, &status, 0, &used) != child || status != 0) return std::nullopt;
  const std::chrono::duration<double> waited = std::chrono::steady_clock::now() - begin;
  const auto seconds = [](const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) * 1e-6;
  };
  return Seconds{waited.count(), seconds(used.ru_utime) + seconds(used.ru_stime)};
}

void measure(benchmark::State& state, const Words& command, double events) {
  for ([[maybe_unused]] auto iteration : state) {
    const std::optional<Seconds> seconds = run(command);
    if (!seconds) {
      state.SkipWithError("the program failed");
      return;
    }
    state.SetIterationTime(seconds->waited / events);
    state.counters["processor_ns"] = seconds->processor / events * 1e9;
  }
}

class Folder {
 public:
  Folder() {
    if (mkdtemp(name_.data()) == nullptr) std::exit(1);
  }
  Folder(const Folder&) = delete;
  Folder& operator=(const Folder&) = delete;
  ~Folder() { std::filesystem::remove_all(name_); }

  [[nodiscard]] std::string file(const char* name) const { return name_ + "/" + name; }

 private:
  std::string name_ = std::filesystem::temp_directory_path() / "qkmem-bench-XXXXXX";
};

/** The number at the front of the arguments, which is taken from them. */
std::string take_number(int& argc, char** argv, const char* usual) {
  if (argc < 2 || std::isdigit(static_cast<unsigned char>(argv[1][0])) == 0) return usual;
  const std::string number = argv[1];
  for (int i = 1; i < argc; ++i) argv[i] = argv[i + 1];
  --argc;
  return number;
}

void enter(const std::string& name, const Words& command, double events) {
  if (!run({"which", command[0]})) {
    std::printf("%s is not installed\n", command[0].c_str());
    return;
  }
  benchmark::RegisterBenchmark(
      name.c_str(), [command, events](benchmark::State& state) { measure(state, command, events); })
      ->Iterations(1)
      ->UseManualTime();
}

}  // namespace

int main(int argc, char** argv) {
  const std::string events = take_number(argc, argv, "3000000");
  const std::string live = take_number(argc, argv, "50000");
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;

  const Folder folder;
  const std::string table = folder.file("run.tdf");
  const std::string recording = folder.file("run.qkm");
  const std::string heaptrack = folder.file("run.heaptrack");
  const std::string qkmem = QKMEM_COMMAND;
  if (!run({LARGE_INPUT, "table", "events", events, live}, table.c_str()) ||
      !run({LARGE_INPUT, "recording", "events", events, live}, recording.c_str()) ||
      !run({qkmem, "export", "--to", "heaptrack", "-o", heaptrack, recording})) {
    std::fputs("the inputs can't be made\n", stderr);
    return 1;
  }
  const double count = std::atof(events.c_str());
  enter("trace_file/qkmem", {qkmem, "top", table}, count);
  enter(
      "trace_file/gawk",
      {"gawk", "-F\t",
       "$3 ~ /[MCRS]/ { made[$2, $8, $9] += $5 * $6 } END { for (site in made) print made[site] }",
       table},
      count);
  enter("recording/qkmem", {qkmem, "top", recording}, count);
  enter("recording/heaptrack_print", {"heaptrack_print", heaptrack}, count);
  benchmark::RunSpecifiedBenchmarks();
}
