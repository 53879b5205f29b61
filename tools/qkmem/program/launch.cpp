#include "program/launch.h"

#include <signal.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>

extern char** environ;

namespace qk::command {
namespace {

constexpr std::array kOfKeys = {SIGINT, SIGQUIT};
constexpr std::array kPassedOn = {SIGTERM, SIGHUP, SIGUSR1, SIGUSR2};

volatile std::sig_atomic_t running = 0;  // the program's process

void pass_on(int signal) {
  if (running > 0) kill(running, signal);
}

/** While a program runs: the keys' signals reach it as well as us, and it decides what they mean. */
class SignalsForProgram {
 public:
  SignalsForProgram() {
    leave_keys_to_program();
    // Until the program's number is known there is nobody to pass a signal on to.
    sigset_t later;
    sigemptyset(&later);
    for (const int signal : kPassedOn) sigaddset(&later, signal);
    sigprocmask(SIG_BLOCK, &later, &mask_);
    pass_others_on();
  }
  SignalsForProgram(const SignalsForProgram&) = delete;
  SignalsForProgram& operator=(const SignalsForProgram&) = delete;
  ~SignalsForProgram() {
    for (std::size_t i = 0; i < kOfKeys.size(); ++i) sigaction(kOfKeys[i], &before_[i], nullptr);
    for (std::size_t i = 0; i < kPassedOn.size(); ++i) {
      sigaction(kPassedOn[i], &before_passed_[i], nullptr);
    }
    sigprocmask(SIG_SETMASK, &mask_, nullptr);
    running = 0;
  }

  void pass_on_to(pid_t process) const {
    running = process;
    sigprocmask(SIG_SETMASK, &mask_, nullptr);
  }

  /** What the program has: the signals as they were before. */
  [[nodiscard]] const sigset_t& usual() const { return usual_; }
  [[nodiscard]] const sigset_t& mask() const { return mask_; }

 private:
  void leave_keys_to_program() {
    sigemptyset(&usual_);
    for (std::size_t i = 0; i < kOfKeys.size(); ++i) {
      struct sigaction ignored = {};
      ignored.sa_handler = SIG_IGN;
      sigaction(kOfKeys[i], &ignored, &before_[i]);
      // Whoever started us can have them ignored, as nohup does; then the program inherits that.
      if (before_[i].sa_handler != SIG_IGN) sigaddset(&usual_, kOfKeys[i]);
    }
  }

  void pass_others_on() {
    for (std::size_t i = 0; i < kPassedOn.size(); ++i) {
      struct sigaction passed = {};
      passed.sa_handler = &pass_on;
      passed.sa_flags = SA_RESTART;
      sigaction(kPassedOn[i], nullptr, &before_passed_[i]);
      if (before_passed_[i].sa_handler != SIG_IGN) sigaction(kPassedOn[i], &passed, nullptr);
    }
  }

  std::array<struct sigaction, kOfKeys.size()> before_ = {};
  std::array<struct sigaction, kPassedOn.size()> before_passed_ = {};
  sigset_t usual_ = {};
  sigset_t mask_ = {};
};

/** Our environment and the settings. */
class Environment {
 public:
  explicit Environment(const std::vector<Setting>& settings) {
    for (char** entry = environ; *entry != nullptr; ++entry) {
      if (!is_replaced(*entry, settings)) texts_.emplace_back(*entry);
    }
    for (const Setting& setting : settings) texts_.push_back(setting.name + "=" + setting.text);
    for (std::string& text : texts_) entries_.push_back(text.data());
    entries_.push_back(nullptr);
  }

  [[nodiscard]] char* const* entries() const { return entries_.data(); }

 private:
  static bool is_replaced(std::string_view entry, const std::vector<Setting>& settings) {
    for (const Setting& setting : settings) {
      if (entry.starts_with(setting.name) && entry.substr(setting.name.size()).starts_with('=')) {
        return true;
      }
    }
    return false;
  }

  std::vector<std::string> texts_;
  std::vector<char*> entries_;
};

std::string why_not_started(const std::string& program, int error) {
  return program + ": " + std::strerror(error);
}

pid_t start(const std::vector<std::string>& words, const Environment& environment,
            const SignalsForProgram& signals) {
  std::vector<char*> arguments;
  arguments.reserve(words.size() + 1);
  for (const std::string& word : words) arguments.push_back(const_cast<char*>(word.c_str()));
  arguments.push_back(nullptr);
  posix_spawnattr_t attributes;
  posix_spawnattr_init(&attributes);
  posix_spawnattr_setsigdefault(&attributes, &signals.usual());
  posix_spawnattr_setsigmask(&attributes, &signals.mask());
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK);
  pid_t process = 0;
  const int error = posix_spawnp(&process, arguments[0], nullptr, &attributes, arguments.data(),
                                 environment.entries());
  posix_spawnattr_destroy(&attributes);
  if (error == 0) return process;
  const LaunchFailure failure =
      error == ENOENT ? LaunchFailure::kNotFound : LaunchFailure::kNotExecutable;
  throw NotStarted{failure, why_not_started(words.front(), error)};
}

}  // namespace

bool Ended::by_signal() const { return WIFSIGNALED(status); }
int Ended::signal() const { return WTERMSIG(status); }
int Ended::exit_code() const { return WEXITSTATUS(status); }

Ended run_program(const std::vector<std::string>& words, const std::vector<Setting>& settings) {
  const Environment environment(settings);
  const SignalsForProgram signals;
  Ended ended;
  ended.process = start(words, environment, signals);
  signals.pass_on_to(ended.process);
  while (waitpid(ended.process, &ended.status, 0) < 0) {
    if (errno != EINTR) throw NotStarted{LaunchFailure::kOwn, std::strerror(errno)};
  }
  return ended;
}

void end_as(const Ended& ended) {
  std::fflush(nullptr);
  if (!ended.by_signal()) std::_Exit(ended.exit_code());
  // The program has left a core file, if it has; ours would be of no use.
  const rlimit none = {0, 0};
  setrlimit(RLIMIT_CORE, &none);
  std::signal(ended.signal(), SIG_DFL);
  raise(ended.signal());
  std::_Exit(128 + ended.signal());
}

}  // namespace qk::command
