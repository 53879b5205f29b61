#ifndef TESTS_COMMAND_COMMAND_H_
#define TESTS_COMMAND_COMMAND_H_

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

/** Runs the command qkmem. */
namespace kit {

struct Ran {
  int status;  // 128 and the signal if one has ended it
  std::string out;
  std::string err;
};

/** Runs `qkmem` beside the test. */
class StartedCommand {
 public:
  /** @param in, out, err  its standard files. */
  StartedCommand(const std::vector<std::string>& arguments, int in, int out, int err);
  StartedCommand(const StartedCommand&) = delete;
  StartedCommand& operator=(const StartedCommand&) = delete;
  ~StartedCommand();

  [[nodiscard]] pid_t process() const { return child_; }

  /** Waits for its end, and returns what Ran calls its status. To be called once. */
  [[nodiscard]] int end();

 private:
  const pid_t child_;
  bool has_ended_ = false;
};

/** Runs `qkmem` with arguments and an input, in a locale of UTF-8 with 100 columns. */
[[nodiscard]] Ran qkmem(const std::vector<std::string>& arguments, std::string_view input = {});

/** What it prints. Expects that it has succeeded and complained of nothing. */
[[nodiscard]] std::string output_of(const std::vector<std::string>& arguments);

/** A table of two handles, of which three blocks are made and one is released. */
void write_small_table();

void write_file(const std::string& name, std::string_view text);

/** A trace file of rows, which are written as "1 3 M 1000 1 100 100 a.c 7", with zeros behind. */
[[nodiscard]] std::string table_of(const std::vector<std::string>& rows);

}  // namespace kit

#endif  // TESTS_COMMAND_COMMAND_H_
