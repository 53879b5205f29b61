// The shared library when only a plug-in needs it. This program doesn't contain it.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>

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

/** Loads the plug-in, uses it and unloads it. */
void use_once() {
  void* plugin = dlopen(QKMEM_PLUGIN, RTLD_NOW | RTLD_LOCAL);
  if (plugin == nullptr) _exit(90);
  const auto use = reinterpret_cast<int (*)()>(dlsym(plugin, "use_plugin"));
  if (use == nullptr || use() == 0) _exit(91);
  if (dlclose(plugin) != 0) _exit(92);
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

}  // namespace
