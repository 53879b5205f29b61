// The library when only plug-ins need it, shared or as a copy in each. This program doesn't contain
// it.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <regex>
#include <sstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace {

constexpr char kLog[] = "plugin.log";

class PlugIn : public ::testing::Test {
 protected:
  PlugIn() {
    std::string name = (std::filesystem::temp_directory_path() / "qkmem-test-XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr) std::abort();
    folder_ = name;
    std::filesystem::current_path(folder_);
    setenv("QK_MEM_DEBUG", "EXCEPTIONS SUMMARY LOG=plugin.log", 1);
    setenv("QK_MEM_DUMP", "OPTIONS=HANDLES", 1);
  }
  void SetUp() override {
#ifdef __SANITIZE_THREAD__
    GTEST_SKIP() << "the thread sanitizer's atexit() calls into unloaded libraries";
#endif
  }
  ~PlugIn() override {
    std::filesystem::current_path("/");
    std::filesystem::remove_all(folder_);
  }

  static std::string log() {
    std::ostringstream text;
    text << std::ifstream(kLog).rdbuf();
    return text.str();
  }

 private:
  std::filesystem::path folder_;
};

/** The wait status of a process that runs `body` and exits with 3. */
template <class Body>
int status_of(Body body) {
  const pid_t child = fork();
  if (child == 0) {
    body();
    std::exit(3);
  }
  int status = 0;
  waitpid(child, &status, 0);
  return status;
}

int exit_code_of(int status) { return WIFEXITED(status) ? WEXITSTATUS(status) : -1; }

/** Loads a plug-in and uses it. Returns the plug-in, and the number of the handle it created. */
std::pair<void*, int> load(const char* name) {
  void* plugin = dlopen(name, RTLD_NOW | RTLD_LOCAL);
  if (plugin == nullptr) _exit(90);
  const auto use = reinterpret_cast<int (*)()>(dlsym(plugin, "use_plugin"));
  const int hid = use == nullptr ? 0 : use();
  if (hid == 0) _exit(91);
  return {plugin, hid};
}

/** Loads the plug-in with the shared library, uses it and unloads it. */
void use_once() {
  if (dlclose(load(QKMEM_PLUGIN).first) != 0) _exit(92);
}

TEST_F(PlugIn, WritesTheReportWhenItIsUnloaded) {
  EXPECT_EQ(exit_code_of(status_of([] {
              use_once();
              std::filesystem::rename(kLog, "at-unloading.log");
            })),
            3);
  EXPECT_EQ(log(), "");
  std::filesystem::rename("at-unloading.log", kLog);
  EXPECT_NE(log().find("(normal termination)"), std::string::npos) << log();
  EXPECT_NE(log().find(" PL "), std::string::npos) << log();
}

TEST_F(PlugIn, CanBeLoadedAgainAndAgain) {
  EXPECT_EQ(exit_code_of(status_of([] {
              for (int i = 0; i < 20; ++i) use_once();
            })),
            3);
}

TEST_F(PlugIn, RestoresTheSignalsWhenItIsUnloaded) {
  const int status = status_of([] {
    use_once();
    raise(SIGTERM);
  });
  ASSERT_TRUE(WIFSIGNALED(status));
  EXPECT_EQ(WTERMSIG(status), SIGTERM);
}

TEST_F(PlugIn, LeavesForksAloneWhenItIsUnloaded) {
  EXPECT_EQ(exit_code_of(status_of([] {
              use_once();
              if (exit_code_of(status_of([] {})) != 3) _exit(93);
            })),
            3);
}

TEST_F(PlugIn, CanBeUnloadedByAnotherThreadThanMain) {
  EXPECT_EQ(exit_code_of(status_of([] { std::thread(use_once).join(); })), 3);
}

class TwoCopies : public PlugIn {
 protected:
  static constexpr char kNothing[] = "0                 0";
  static constexpr char kOneOfTenBytes[] = "1                10";

  /** Each has its own handles 1 and 2, so that the first one of the plug-in is 3. */
  static void use_both() {
    if (load(QKMEM_FIRST_COPY).second != 3) _exit(94);
    if (load(QKMEM_SECOND_COPY).second != 3) _exit(95);
  }

  /** The log of one copy. `data` is what the data handle holds. */
  static std::string log_of_one(const std::string& reason, const std::string& data,
                                const std::string& flush = "") {
    return "QK_MEM_DEBUG:  initializing options [EXCEPTIONS SUMMARY LOG=plugin.log" + flush +
           "]\n"
           "QK_MEM_DUMP:  initializing options [OPTIONS=HANDLES]\n"
           "   qk_mem_cleanup:      Memory at program termination (" +
           reason +
           ")\n"
           "\n"
           "    Hndl Tg          Address Typ Qty     Size    Total     Seq Location\n"
           "   ----------------------------------------------------------------------------\n"
           "   - - - - - - - - - - - - - Overhead handles  - - - - - - - - - - - - - - - - \n"
           "\n"
           "   - - - - - - - - - - - - - Data handles  - - - - - - - - - - - - - - - - - - \n"
           "   +   2                           " +
           data +
           " # qkmem.cpp:#\n"
           "   +   3 PL                        1                10 # plugin.cpp:#\n"
           "   ----------------------------------------------------------------------------\n";
  }

  /** The log without event numbers and lines. How many events there are depends on addresses. */
  static std::string plain_log() {
    return std::regex_replace(log(), std::regex(R"( +\d+ (\w+\.cpp):\d+\n)"), " # $1:#\n");
  }

  static std::vector<std::string> sorted_lines(const std::string& text) {
    std::istringstream in(text);
    std::vector<std::string> lines;
    for (std::string line; std::getline(in, line);) lines.push_back(line);
    std::sort(lines.begin(), lines.end());
    return lines;
  }
};

TEST_F(TwoCopies, WriteTheirReportsOneAfterTheOther) {
  std::ofstream(kLog) << "an older log\n";
  EXPECT_EQ(exit_code_of(status_of(use_both)), 3);
  const std::string one = log_of_one("normal termination", kNothing);
  EXPECT_EQ(plain_log(), one + one);
}

TEST_F(TwoCopies, LoseNoLineUnderFlush) {
  setenv("QK_MEM_DEBUG", "EXCEPTIONS SUMMARY LOG=plugin.log FLUSH", 1);
  EXPECT_EQ(exit_code_of(status_of(use_both)), 3);
  const std::string one = log_of_one("normal termination", kNothing, " FLUSH");
  EXPECT_EQ(sorted_lines(plain_log()), sorted_lines(one + one));
}

TEST_F(TwoCopies, WriteOnlyTheFirstOnesReportAtASignal) {
  const int status = status_of([] {
    use_both();
    raise(SIGTERM);
    for (;;) pause();  // the end may be put off
  });
  ASSERT_TRUE(WIFSIGNALED(status));
  EXPECT_EQ(WTERMSIG(status), SIGTERM);
  EXPECT_EQ(plain_log(), log_of_one("Terminated", kOneOfTenBytes));
}

}  // namespace
