#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "qkmem/qkmem.h"
#include "tests/kit/scene.h"
#include "tests/kit/text.h"

namespace {

/** Without what depends on the time, on the plug-in's source, and on how tables grow. */
std::string plain(const std::string& report) {
  const std::string timed = kit::replaced(report, R"(at \d+\.\d s)", "at T s");
  const std::string sized = kit::replaced(timed, R"(took [0-9.]+ .iB)", "took M");
  return kit::replaced(sized, R"(plugin\.cpp:\d+)", "plugin.cpp:#");
}

/** Loads a plug-in that uses the shared library. */
void use_plugin() {
  void* const plugin = dlopen(QKMEM_PLUGIN, RTLD_NOW | RTLD_LOCAL);
  if (plugin == nullptr) std::_Exit(90);
  reinterpret_cast<int (*)()>(dlsym(plugin, "use_plugin"))();
}

TEST(CopyInAPlugIn, ReportsBesideTheOneInTheProgram) {
#ifdef __SANITIZE_THREAD__
  GTEST_SKIP() << "the thread sanitizer's atexit() calls into unloaded libraries";
#endif
  const kit::Scene scene;
  const kit::Ended ended = kit::run({"", "", "", "SITES REPORT=r"}, [] {
    static_cast<void>(qk_mem_imalloc(QK_MEM_DATA_HANDLE, 100, 16, "a.c", 1));
    use_plugin();
  });
  EXPECT_EQ("", ended.err);
  EXPECT_EQ(
      "qkmem: 1 site still holds 100 B in 1 block; peak 100 B at T s (event 1)\n"
      "qkmem: 2 copies of the library are in this process; this is the report of the one in "
      "profile_tests\n"
      "  bytes  blocks  share  made  handle  site\n"
      "  100 B       1   100%     1       2  a.c:1\n"
      "qkmem: the profile took M of its own\n",
      plain(kit::contents("r")));
  EXPECT_EQ(
      "qkmem: 1 site still holds 10 B in 1 block; peak 20 B at T s (event 2)\n"
      "qkmem: 2 copies of the library are in this process; this is the report of the one in "
      "libqkmem.so.1\n"
      "  bytes  blocks  share  made  handle  site\n"
      "   10 B       1   100%     1    3 PL  plugin.cpp:#\n"
      "qkmem: the profile took M of its own\n",
      plain(kit::contents("r.copy2")));
}

}  // namespace
