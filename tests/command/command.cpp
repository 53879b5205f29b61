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

/** A descriptor in place of a standard one. */
void redirect(const char* name, int flags, int descriptor) {
  const int file = open(name, flags, 0666);
  dup2(file, descriptor);
  close(file);
}

}  // namespace

Ran qkmem(const std::vector<std::string>& arguments, std::string_view input) {
  write_file("command.in", input);
  const pid_t child = fork();
  if (child == 0) {
    redirect("command.in", O_RDONLY, STDIN_FILENO);
    redirect("command.out", O_WRONLY | O_CREAT | O_TRUNC, STDOUT_FILENO);
    redirect("command.err", O_WRONLY | O_CREAT | O_TRUNC, STDERR_FILENO);
    for (const char* name : {"QK_MEM_PROFILE", "QK_MEM_DEBUG", "QK_MEM_OPTIONS"}) {
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
  int status = 0;
  waitpid(child, &status, 0);
  return {WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status),
          contents("command.out"), contents("command.err")};
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
