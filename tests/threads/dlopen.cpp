// The library when only plug-ins need it, shared or as a copy in each. This program doesn't contain
// it.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
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

  static std::string contents(const char* name) {
    std::ostringstream text;
    text << std::ifstream(name).rdbuf();
    return text.str();
  }

  static std::string log() { return contents(kLog); }

 private:
  std::filesystem::path folder_;
};

/** The wait status of a process that runs `body` and exits with a code. */
template <class Body>
int status_of(Body body, int code = 3) {
  const pid_t child = fork();
  if (child == 0) {
    body();
    std::exit(code);
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

/** The profiles of copies. */
class TwoProfiles : public TwoCopies {
 protected:
  /** What is written to standard error, plain. */
  static std::string errors_of(const char* options, void (*use)()) {
    setenv("QK_MEM_PROFILE", options, 1);
    EXPECT_EQ(exit_code_of(status_of([use] {
                if (std::freopen("errors", "w", stderr) == nullptr) _exit(96);
                use();
              })),
              3);
    return plain(contents("errors"));
  }

  /** A report of one of two copies. */
  static std::string report_of(const std::string& module) {
    return "qkmem: 1 site still holds 10 B in 1 block; peak 20 B at T s (event 2)\n"
           "qkmem: 2 copies of the library are in this process; this is the report of the one in " +
           module +
           "\n"
           "  bytes  blocks  share  made  handle  site\n"
           "   10 B       1   100%     1    3 PL  plugin.cpp:#\n"
           "qkmem: the profile took M of its own\n";
  }

  /** Without what depends on the time, on the plug-in's source, and on how tables grow. */
  static std::string plain(const std::string& text) {
    const std::string timed = std::regex_replace(text, std::regex(R"(at \d+\.\d s)"), "at T s");
    const std::string sized =
        std::regex_replace(timed, std::regex(R"(took [0-9.]+ .iB)"), "took M");
    return std::regex_replace(sized, std::regex(R"(plugin\.cpp:\d+)"), "plugin.cpp:#");
  }

  static constexpr char kFirst[] = "libthreads_first_copy.so";
  static constexpr char kSecond[] = "libthreads_second_copy.so";
};

TEST_F(TwoProfiles, SayThatThereAreTwo) {
  EXPECT_EQ(errors_of("SITES", use_both), report_of(kSecond) + report_of(kFirst));
}

TEST_F(TwoProfiles, SayThatThereAreTwoIfOneIsTheSharedLibrary) {
  EXPECT_EQ(errors_of("SITES",
                      [] {
                        load(QKMEM_PLUGIN);
                        load(QKMEM_SECOND_COPY);
                      }),
            report_of(kSecond) + report_of("libqkmem.so.1"));
}

TEST_F(TwoProfiles, RememberACopyThatWasUnloaded) {
  EXPECT_EQ(errors_of("SITES REPORT=report",
                      [] {
                        void* const first = load(QKMEM_FIRST_COPY).first;
                        load(QKMEM_SECOND_COPY);
                        dlclose(first);
                      }),
            "");
  EXPECT_EQ(plain(contents("report")), report_of(kFirst));
  EXPECT_EQ(plain(contents("report.copy2")), report_of(kSecond));
}

TEST_F(TwoProfiles, GoToFilesOfTheirOwn) {
  EXPECT_EQ(errors_of("SITES REPORT=report.txt", use_both), "");
  EXPECT_EQ(plain(contents("report.txt")), report_of(kFirst));
  EXPECT_EQ(plain(contents("report.copy2.txt")), report_of(kSecond));
}

TEST_F(TwoProfiles, ShareWhatIsNoFile) {
  std::filesystem::create_symlink("/dev/null", "nowhere");
  EXPECT_EQ(errors_of("SITES REPORT=nowhere", use_both), "");
  EXPECT_FALSE(std::filesystem::exists("nowhere.copy2"));
}

TEST_F(TwoProfiles, HaveNumbersForPrograms) {
  EXPECT_EQ(errors_of("SITES FORMAT=JSON REPORT=report.json", use_both), "");
  EXPECT_NE(contents("report.json").find(R"("copy":1,"copies":2,)"), std::string::npos);
  EXPECT_NE(contents("report.copy2.json").find(R"("copy":2,"copies":2,)"), std::string::npos);
}

TEST_F(TwoProfiles, HaveSeriesOfTheirOwnForCollectors) {
  EXPECT_EQ(errors_of("SITES FORMAT=OPENMETRICS REPORT=report.prom", use_both), "");
  const std::regex peak(R"(\nqkmem_peak_bytes\{program="threads_dlopen",pid="\d+"(.*)\} 20\n)");
  const std::string first = contents("report.prom");
  const std::string second = contents("report.copy2.prom");
  std::smatch match;
  ASSERT_TRUE(std::regex_search(first, match, peak)) << first;
  EXPECT_EQ(match[1], "");
  ASSERT_TRUE(std::regex_search(second, match, peak)) << second;
  EXPECT_EQ(match[1], R"(,copy="2")");
}

TEST_F(TwoProfiles, SayNothingOfACopyWithoutAProfile) {
  EXPECT_EQ(errors_of("SITES REPORT=report",
                      [] {
                        load(QKMEM_FIRST_COPY);
                        setenv("QK_MEM_PROFILE", "", 1);
                        load(QKMEM_SECOND_COPY);
                      }),
            "");
  EXPECT_EQ(contents("report").find("copies"), std::string::npos);
}

/** What LEAKS=FAIL makes of processes that load plug-ins. */
class LeakingPlugIn : public PlugIn {
 protected:
  LeakingPlugIn() { setenv("QK_MEM_PROFILE", "LEAKS=FAIL REPORT=report", 1); }

  template <class Body>
  static int code_of(Body body, int code = 0) {
    return exit_code_of(status_of(body, code));
  }
};

TEST_F(LeakingPlugIn, GivesTheProcessACode) {
  EXPECT_EQ(code_of([] { load(QKMEM_PLUGIN); }), 23);
  EXPECT_NE(contents("report").find("qkmem: 1 site still holds 10 B in 1 block"),
            std::string::npos);
}

TEST_F(LeakingPlugIn, GivesTheProcessACodeIfItIsLoadedForAllToSee) {
  EXPECT_EQ(code_of([] {
              dlopen(QKMEM_PLUGIN, RTLD_NOW | RTLD_GLOBAL);
              load(QKMEM_PLUGIN);
            }),
            23);
}

TEST_F(LeakingPlugIn, LeavesOtherCodesAlone) {
  EXPECT_EQ(code_of([] { load(QKMEM_PLUGIN); }, 5), 5);
}

TEST_F(LeakingPlugIn, ChangesNoCodeIfItIsUnloadedBefore) {
  EXPECT_EQ(code_of(use_once), 0);
  EXPECT_NE(contents("report").find("qkmem: 1 site still holds 10 B in 1 block"),
            std::string::npos);
  EXPECT_EQ(code_of([] {
              void* const plugin = dlopen(QKMEM_PLUGIN, RTLD_NOW | RTLD_GLOBAL);
              dlclose(load(QKMEM_PLUGIN).first);
              dlclose(plugin);
            }),
            0);
}

TEST_F(LeakingPlugIn, GivesTheProcessACodeIfItIsLoadedAgain) {
  EXPECT_EQ(code_of([] {
              for (int i = 0; i < 20; ++i) use_once();
              load(QKMEM_PLUGIN);
            }),
            23);
}

TEST_F(LeakingPlugIn, GivesTheProcessACodeIfAHandlerOfTheExitUnloadsIt) {
  static void* plugin = nullptr;
  EXPECT_EQ(code_of([] {
              std::atexit([] { dlclose(plugin); });
              plugin = load(QKMEM_PLUGIN).first;
            }),
            23);
}

TEST_F(LeakingPlugIn, IsUnloadedByAHandlerThatIsCalledBeforeItsReport) {
  static void* plugin = nullptr;
  EXPECT_EQ(code_of([] {
              plugin = load(QKMEM_PLUGIN).first;
              std::atexit([] { dlclose(plugin); });
            }),
            0);
}

TEST_F(LeakingPlugIn, GivesOneCodeForTwoCopies) {
  EXPECT_EQ(code_of([] {
              load(QKMEM_FIRST_COPY);
              load(QKMEM_SECOND_COPY);
            }),
            23);
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
