#include "tests/command/command.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>

#include "formats/trace_columns.h"
#include "tests/kit/scene.h"

namespace kit {
namespace {

/** Where a file is a standard one. */
class Opened {
 public:
  Opened(const char* name, int flags) : file_(open(name, flags | O_CLOEXEC, 0666)) {}
  Opened(const Opened&) = delete;
  Opened& operator=(const Opened&) = delete;
  ~Opened() { close(file_); }

  operator int() const { return file_; }

 private:
  const int file_;
};

int status_of(pid_t child) {
  int status = 0;
  waitpid(child, &status, 0);
  return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
}

}  // namespace

StartedCommand::StartedCommand(const std::vector<std::string>& arguments, int in, int out, int err)
    : child_(fork()) {
  if (child_ != 0) return;
  dup2(in, STDIN_FILENO);
  dup2(out, STDOUT_FILENO);
  dup2(err, STDERR_FILENO);
  for (const char* name : {"QK_MEM_PROFILE", "QK_MEM_CHECK", "QK_MEM_DEBUG", "QK_MEM_OPTIONS"}) {
    unsetenv(name);
  }
  if (getenv("COLUMNS") == nullptr) setenv("COLUMNS", "100", 1);
  if (getenv("LC_ALL") == nullptr) setenv("LC_ALL", "C.UTF-8", 1);
  std::vector<char*> words = {const_cast<char*>("qkmem")};
  for (const std::string& argument : arguments) {
    words.push_back(const_cast<char*>(argument.c_str()));
  }
  words.push_back(nullptr);
  execv(QKMEM_COMMAND_PROGRAM, words.data());
  _exit(127);
}

StartedCommand::~StartedCommand() { EXPECT_TRUE(has_ended_); }

int StartedCommand::end() {
  has_ended_ = true;
  return status_of(child_);
}

Ran qkmem(const std::vector<std::string>& arguments, std::string_view input) {
  write_file("command.in", input);
  constexpr int kNew = O_WRONLY | O_CREAT | O_TRUNC;
  const Opened in("command.in", O_RDONLY);
  const Opened out("command.out", kNew);
  const Opened err("command.err", kNew);
  const int status = StartedCommand(arguments, in, out, err).end();
  return {status, contents("command.out"), contents("command.err")};
}

std::string output_of(const std::vector<std::string>& arguments) {
  const Ran ran = qkmem(arguments);
  EXPECT_EQ(0, ran.status);
  EXPECT_EQ("", ran.err);
  return ran.out;
}

void write_file(const std::string& name, std::string_view text) {
  std::ofstream(name, std::ios::binary) << text;
}

std::string table_of(const std::vector<std::string>& rows) {
  std::string table;
  for (const std::string_view heading : qk::mem::kTraceHeadings) {
    table.append(heading).append("\t");
  }
  table.back() = '\n';
  for (const std::string& row : rows) {
    std::string cells = row;
    std::size_t columns = 1;
    for (char& c : cells) {
      if (c != ' ') continue;
      c = '\t';
      ++columns;
    }
    for (; columns < qk::mem::kTraceHeadings.size(); ++columns) cells += "\t0";
    table += cells + "\n";
  }
  return table;
}

void write_small_table() {
  write_file("t.tdf", table_of({"1 3 N 0 0 0 0 main.c 10", "2 4 N 0 0 0 0 main.c 11",
                                "3 3 M 1000 1 100 100 a.c 7", "4 3 M 2000 1 100 200 a.c 7",
                                "5 4 C 3000 10 30 300 b.c 9", "6 3 F 1000 1 100 100 a.c 8"}));
}

}  // namespace kit
