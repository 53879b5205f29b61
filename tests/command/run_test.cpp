// A program that is run by the command, which says what it has done.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cctype>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "tests/command/command.h"
#include "tests/kit/scene.h"

namespace {

using kit::output_of;
using kit::Ran;
using kit::Scene;
using kit::StartedCommand;

/** The text with "NUMBER" for the numbers of processes in names of files. */
std::string without_processes(std::string text) {
  for (std::size_t at = 0; (at = text.find("watched.", at)) != std::string::npos;) {
    at += std::string_view("watched.").size();
    std::size_t end = at;
    while (end < text.size() && std::isdigit(static_cast<unsigned char>(text[end])) != 0) ++end;
    if (end != at) text.replace(at, end - at, "NUMBER");
  }
  return text;
}

Ran run(std::vector<std::string> arguments) {
  arguments.insert(arguments.begin(), "run");
  Ran ran = kit::qkmem(arguments);
  ran.err = without_processes(ran.err);
  return ran;
}

/** The files in the folder with an ending, without the numbers of processes. */
std::vector<std::string> files_with(std::string_view ending) {
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(".")) {
    const std::string name = entry.path().filename().string();
    if (name.ends_with(ending)) names.push_back(without_processes(name));
  }
  return names;
}

constexpr char kOneScreen[] =
    "watched.NUMBER.json: 3 events, 3 handles, 2 sites\n"
    "100 B in 1 block was never released; watched.c:19 has 100% of it\n"
    "\n"
    "peak    120 B at event 2\n"
    "churn   120 B in 2 blocks made; 50% of the blocks lived for 16 events at most\n"
    "\n"
    "what is left\n"
    "  bytes  blocks  share  made  largest  last made  handle  tag  site\n"
    "  100 B       1   100%     1    100 B          1       3  WA   watched.c:19\n"
    "\n"
    "what held the peak\n"
    "  at peak  share  own peak  at end  handle  tag  site\n"
    "    100 B    83%     100 B   100 B       3  WA   watched.c:19\n"
    "     20 B    17%      20 B     0 B       3  WA   watched.c:20\n"
    "\n"
    "what churns\n"
    "  made  bytes made  short-lived  share  handle  tag  site\n"
    "     1        20 B            1   100%       3  WA   watched.c:20\n"
    "     1       100 B            0     0%       3  WA   watched.c:19\n"
    "\n"
    "qkmem: qkmem top watched.NUMBER.json shows all\n";

TEST(Run, EndsAsTheProgramDoesAndThenSaysWhatIsLeft) {
  const Scene scene;
  const Ran ran = run({"--peak", "--", QKMEM_WATCHED_PROGRAM, "end", "3"});
  EXPECT_EQ(3, ran.status);
  EXPECT_EQ("ready\n", ran.out);
  EXPECT_EQ(std::string("qkmem: watched ended with 3\n") + kOneScreen, ran.err);
}

TEST(Run, NeedsNoDashesBeforeTheProgramWhoseOptionsAreItsOwn) {
  const Scene scene;
  const Ran ran = run({QKMEM_WATCHED_PROGRAM, "--json", "--", "-x"});
  EXPECT_EQ(0, ran.status);
  EXPECT_EQ("ready\n", ran.out);
  EXPECT_TRUE(ran.err.starts_with("qkmem: watched ended with 0\n")) << ran.err;
}

TEST(Run, SaysThatAProgramDoesNotUseTheLibrary) {
  const Scene scene;
  const Ran ran = run({"--", "true"});
  EXPECT_EQ(125, ran.status);
  EXPECT_EQ("qkmem: true doesn't use qkmem; nothing was recorded\n", ran.err);
}

TEST(Run, DoesNotTakeTheReportOfAnEarlierRunForThisOnes) {
  const Scene scene;
  ASSERT_EQ(0, run({"--", QKMEM_WATCHED_PROGRAM}).status);
  usleep(20'000);
  EXPECT_EQ(125, run({"--", "true"}).status);
}

TEST(Run, NamesAMistakeInTheLibrarysWordsBeforeAnythingRuns) {
  const Scene scene;
  struct Case {
    const char* option;
    const char* text;
    const char* message;
  };
  for (const auto& [option, text, message] : std::vector<Case>{
           {"--debug", "SUMARY", "unknown word SUMARY in --debug; did you mean SUMMARY?"},
           {"--debug", "DEBUG=qk_imaloc",
            "unknown routine qk_imaloc in --debug; did you mean qk_imalloc?"},
           {"--debug", "DEBUG='qk_ifree not qk_imalloc'",
            "'not' in DEBUG is not the first word of its list in --debug"},
           {"--debug", "LOG", "LOG needs a value in --debug"},
           {"--dump", "OPTIONS=SUMMARY,POINTER",
            "unknown section POINTER in --dump; did you mean POINTERS?"},
           {"--options", "HEAPSIZE=3", "HEAPSIZE takes no value in --options"},
           {"--profile", "TOP=all", "TOP can't be 'all' in --profile"},
           {"--checks", "GUARD='16", "GUARD has a quote that is not closed in --checks"}}) {
    const Ran ran = run({option, text, "--", QKMEM_WATCHED_PROGRAM});
    EXPECT_EQ(125, ran.status) << text;
    EXPECT_EQ("", ran.out) << text;
    EXPECT_EQ(std::string("qkmem: ") + message + "\n", ran.err);
  }
}

TEST(Run, HasTheUsualCodesForProgramsThatCannotBeRun) {
  const Scene scene;
  const Ran missing = run({"--", "/no/such/program"});
  EXPECT_EQ(127, missing.status);
  EXPECT_EQ("qkmem: /no/such/program: No such file or directory\n", missing.err);
  const Ran not_executable = run({"--", "/etc/passwd"});
  EXPECT_EQ(126, not_executable.status);
  EXPECT_EQ("qkmem: /etc/passwd: Permission denied\n", not_executable.err);
  EXPECT_EQ(125, run({}).status);
  EXPECT_EQ(125, run({"--no-such-option", "--", "true"}).status);
}

TEST(Run, EndsByTheSignalThatHasEndedTheProgram) {
  const Scene scene;
  const int nowhere = open("/dev/null", O_RDWR | O_CLOEXEC);
  StartedCommand command({"run", "--", QKMEM_WATCHED_PROGRAM, "signal", "10"}, nowhere, nowhere,
                         nowhere);
  siginfo_t ended = {};
  ASSERT_EQ(0, waitid(P_PID, static_cast<id_t>(command.process()), &ended, WEXITED | WNOWAIT));
  EXPECT_EQ(CLD_KILLED, ended.si_code);
  EXPECT_EQ(SIGUSR1, ended.si_status);
  EXPECT_EQ(128 + SIGUSR1, command.end());
  close(nowhere);
}

TEST(Run, OfAProgramThatWasKilledHasWhatWasRecordedUntilThen) {
  const Scene scene;
  const Ran ran = run({"--record", "--", QKMEM_WATCHED_PROGRAM, "signal", "9"});
  EXPECT_EQ(128 + SIGKILL, ran.status);
  // What was recorded until then is there, with its tail.
  EXPECT_TRUE(
      ran.err.starts_with("qkmem: watched was ended by SIGKILL (Killed)\n"
                          "watched.NUMBER.qkm: 3 events, 3 handles, 2 sites\n"
                          "100 B in 1 block was never released"))
      << ran.err;
}

TEST(Run, WithoutAWordOfAProgramThatWasKilledSaysSo) {
  const Scene scene;
  const Ran ran = run({"--", QKMEM_WATCHED_PROGRAM, "signal", "9"});
  EXPECT_EQ(128 + SIGKILL, ran.status);
  EXPECT_EQ("qkmem: watched was ended by SIGKILL (Killed); it has written nothing\n", ran.err);
}

TEST(Run, NamesASignalThatHasNoName) {
  const Scene scene;
  const int unnamed = SIGRTMIN + 3;
  const Ran ran = run({"--", QKMEM_WATCHED_PROGRAM, "signal", std::to_string(unnamed)});
  EXPECT_EQ(128 + unnamed, ran.status);
  EXPECT_EQ("qkmem: watched was ended by signal " + std::to_string(unnamed) +
                "; it has written nothing\n",
            ran.err);
}

TEST(Run, HasOnlyCharactersThatTheLocaleHas) {
  const Scene scene;
  setenv("LC_ALL", "C", 1);
  const Ran ran = run({"--record", "--", QKMEM_WATCHED_PROGRAM});
  EXPECT_NE(std::string::npos, ran.err.find("\nlevel   ")) << ran.err;
  for (const char c : ran.err) EXPECT_LT(0, c) << ran.err;
}

TEST(Run, RecordsToTheFolderThatIsAskedFor) {
  const Scene scene;
  std::filesystem::create_directory("100% here");
  const Ran ran = run({"--record", "-o", "100% here", "--", QKMEM_WATCHED_PROGRAM});
  EXPECT_EQ(0, ran.status);
  EXPECT_NE(std::string::npos,
            ran.err.find("\nqkmem: qkmem top '100% here/watched.NUMBER.qkm' shows all\n"))
      << ran.err;
  EXPECT_EQ(std::vector<std::string>(), files_with(".qkm"));
}

TEST(Run, TellsOfEachProcessThatTheProgramHasRun) {
  const Scene scene;
  const std::string twice = std::string(QKMEM_WATCHED_PROGRAM) + "; " + QKMEM_WATCHED_PROGRAM;
  const Ran ran = run({"--peak", "--", "sh", "-c", twice + "; exit 4"});
  EXPECT_EQ(4, ran.status);
  EXPECT_EQ("ready\nready\n", ran.out);
  EXPECT_EQ(std::string("qkmem: sh ended with 4\n") + kOneScreen + kOneScreen, ran.err);
}

TEST(Run, ShowsFourProcessesAndOnlyNamesTheFilesOfMore) {
  const Scene scene;
  const std::string one_more = std::string("; ") + QKMEM_WATCHED_PROGRAM + " >/dev/null";
  std::string six = "true";
  for (int i = 0; i < 6; ++i) six += one_more;
  const Ran ran = run({"--peak", "--", "sh", "-c", six});
  EXPECT_EQ(std::string("qkmem: sh ended with 0\n") + kOneScreen + kOneScreen + kOneScreen +
                kOneScreen +
                "qkmem: written too, by other processes:\n"
                "  watched.NUMBER.json\n"
                "  watched.NUMBER.json\n",
            ran.err);
}

TEST(Run, LeavesAReportToWhereTheUserWantsIt) {
  const Scene scene;
  const Ran ran = run(
      {"--profile", "TOP=1 FORMAT=TEXT REPORT=own.txt", "--", QKMEM_WATCHED_PROGRAM, "end", "3"});
  EXPECT_EQ(3, ran.status);
  EXPECT_EQ("", ran.err);
  EXPECT_TRUE(kit::contents("own.txt").starts_with("qkmem: 1 site still holds 100 B in 1 block"));
}

TEST(Run, WithChecksTellsFindingsAtOnce) {
  const Scene scene;
  const Ran ran = run({"--check", "--fail", "--", QKMEM_WATCHED_PROGRAM, "damage", "2"});
  EXPECT_EQ(23, ran.status);
  EXPECT_TRUE(ran.err.starts_with("qkmem: 2 bytes written behind a block of 100")) << ran.err;
}

TEST(Run, FailsIfAskedWhereTheProgramLeavesMemory) {
  const Scene scene;
  EXPECT_EQ(23, run({"--fail", "--", QKMEM_WATCHED_PROGRAM}).status);
  EXPECT_EQ(5, run({"--fail", "--", QKMEM_WATCHED_PROGRAM, "end", "5"}).status);
}

TEST(Run, PassesOnTheSignalsThatAskItToEnd) {
  const Scene scene;
  int ends[2];
  ASSERT_EQ(0, pipe2(ends, O_CLOEXEC));
  const int nowhere = open("/dev/null", O_RDWR | O_CLOEXEC);
  StartedCommand command({"run", "--", QKMEM_WATCHED_PROGRAM, "wait"}, nowhere, ends[1], nowhere);
  close(ends[1]);
  std::string said;
  char byte;
  while (said.find("waiting\n") == std::string::npos && read(ends[0], &byte, 1) == 1) said += byte;
  kill(command.process(), SIGTERM);
  EXPECT_EQ(7, command.end());
  close(ends[0]);
  close(nowhere);
}

TEST(Env, PrintsTheVariablesForAShellAUnitAndADockerfile) {
  const Scene scene;
  EXPECT_EQ(
      "export QK_MEM_PROFILE='SITES LEAKS=FAIL'\n"
      "export QK_MEM_CHECK='GUARD FILL QUARANTINE FINDINGS=FAIL'\n",
      output_of({"env", "--check", "--fail"}));
  EXPECT_EQ(
      "Environment=\"QK_MEM_PROFILE=RECORD=/var/%%n.qkm\"\n"
      "Environment=\"QK_MEM_DEBUG=DEBUG='not qk_ifree' LOG=\\\"a b\\\"\"\n",
      output_of({"env", "--for", "systemd", "--profile", "RECORD=/var/%n.qkm", "--debug",
                 "DEBUG='not qk_ifree' LOG=\"a b\""}));
  EXPECT_EQ("ENV QK_MEM_PROFILE=\"PEAK STACKS=24\"\n",
            output_of({"env", "--for", "docker", "--peak", "--stacks", "24"}));
}

TEST(Explain, SaysInWordsWhatATextDoes) {
  const Scene scene;
  EXPECT_EQ(
      "QK_MEM_DEBUG\n"
      "\n"
      "  word                does\n"
      "  DEBUG=not qk_ifree  writes a line for each event of all routines but qk_ifree, and "
      "their warnings and errors\n",
      output_of({"explain", "DEBUG='not qk_ifree'"}));
  EXPECT_EQ(
      "QK_MEM_PROFILE\n"
      "\n"
      "  word       does\n"
      "  STACKS=24  tells the callers of a line apart, by 24 calls\n"
      "  peak       also reports what each line held when the program held most\n",
      output_of({"explain", "QK_MEM_PROFILE=\"STACKS=24 peak\""}));
}

TEST(Explain, SaysWhatIsNotUnderstoodAndWhatFollows) {
  const Scene scene;
  const Ran ran = kit::qkmem({"explain", "SUMARY LOG=x.log"});
  EXPECT_EQ(1, ran.status);
  EXPECT_EQ(
      "QK_MEM_DEBUG\n"
      "\n"
      "  word       does\n"
      "  SUMARY     not understood: unknown word SUMARY; did you mean SUMMARY?\n"
      "  LOG=x.log  the log goes to x.log\n"
      "\n"
      "with a mistake in it nothing of it is used\n",
      ran.out);
}

TEST(Explain, SaysWhatFollowsFromAMistakeInAList) {
  const Scene scene;
  const Ran ran = kit::qkmem({"explain", "SUMMARY DEBUG=qk_imaloc"});
  EXPECT_EQ(1, ran.status);
  EXPECT_EQ(
      "QK_MEM_DEBUG\n"
      "\n"
      "  word             does\n"
      "  SUMMARY          writes a report of what was not freed when the program ends\n"
      "  DEBUG=qk_imaloc  not understood: unknown routine qk_imaloc; did you mean "
      "qk_imalloc?\n"
      "\n"
      "a list with a mistake ends the reading; what was read before is used\n",
      ran.out);
}

TEST(Explain, SaysThatALogAloneWatchesNothing) {
  const Scene scene;
  EXPECT_EQ(
      "QK_MEM_DEBUG\n"
      "\n"
      "  word        does\n"
      "  LOG=STDERR  the log goes to STDERR\n"
      "\n"
      "nothing is watched without SUMMARY, EXCEPTIONS, DEBUG, CTRLBLKS or TRACE\n",
      output_of({"explain", "LOG=STDERR"}));
}

}  // namespace
