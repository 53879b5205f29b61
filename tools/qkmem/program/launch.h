#ifndef QKMEM_TOOLS_PROGRAM_LAUNCH_H_
#define QKMEM_TOOLS_PROGRAM_LAUNCH_H_

#include <sys/types.h>

#include <string>
#include <string_view>
#include <vector>

/** Runs the user's program. */
namespace qk::command {

/** A variable of a program's environment, and its text. */
struct Setting {
  std::string name;
  std::string text;
};

/** Exit codes of our own, which programs that run others have in common. */
enum class LaunchFailure : int { kOwn = 125, kNotExecutable = 126, kNotFound = 127 };

/** How a program has ended. */
struct Ended {
  pid_t process = 0;
  int status = 0;  // as waitpid() has it

  [[nodiscard]] bool by_signal() const;
  [[nodiscard]] int signal() const;
  [[nodiscard]] int exit_code() const;
};

/** A program that could not be started. */
struct NotStarted {
  LaunchFailure failure;
  std::string why;
};

/**
 * Runs a program, which is searched for as a shell does, with our environment and some settings, and
 * waits for its end. It has our terminal. Signals of the terminal's keys are for it; those that ask
 * us to end are passed on to it. Throws NotStarted.
 */
[[nodiscard]] Ended run_program(const std::vector<std::string>& words,
                                const std::vector<Setting>& settings);

/** Ends this process as another one has ended. */
[[noreturn]] void end_as(const Ended& ended);

}  // namespace qk::command

#endif  // QKMEM_TOOLS_PROGRAM_LAUNCH_H_
