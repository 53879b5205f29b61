// What is found in the file of a program.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include "tests/command/command.h"
#include "tests/kit/scene.h"

namespace {

using kit::output_of;
using kit::Ran;
using kit::Scene;

/** A copy of a program without all or some of its symbols. */
std::string stripped(const std::string& program, const std::string& name, const std::string& how) {
  EXPECT_EQ(0, std::system(("strip " + how + " -o " + name + " " + program).c_str()));
  return "./" + name;
}

TEST(Doctor, KnowsTheLibraryInAProgramAlsoWithoutSymbols) {
  const Scene scene;
  std::filesystem::copy(QKMEM_WATCHED_PROGRAM, "plain");
  const std::string has_library = " has qkmem 1.0.0 in it\n\nlibrary    linked into the program\n";
  const std::string without_lines =
      "lines      only those that calls of the library name: build with -g for the lines of their "
      "callers\n";
  EXPECT_EQ("./bare" + has_library +
                "functions  only those that libraries may call: the program was stripped of its "
                "symbols\n" +
                without_lines,
            output_of({"doctor", stripped("plain", "bare", "--strip-all")}));
  EXPECT_EQ("./lineless" + has_library + "functions  by its symbols\n" + without_lines,
            output_of({"doctor", stripped("plain", "lineless", "--strip-debug")}));
}

TEST(Doctor, FindsDebugInformationInAProgram) {
  const Scene scene;
  std::filesystem::copy(QKMEM_DEBUGGED_PROGRAM, "debugged");
  EXPECT_EQ(
      "./debugged has qkmem 1.0.0 in it\n\n"
      "library    linked into the program\n"
      "functions  by its symbols\n"
      "lines      by its debug information\n",
      output_of({"doctor", "./debugged"}));
}

TEST(Doctor, KnowsTheLibraryThatTheLoaderFindsAndSaysIfItFindsNone) {
  const Scene scene;
  std::filesystem::copy(QKMEM_WATCHED_SHARED_PROGRAM, "shared");
  unsetenv("LD_LIBRARY_PATH");
  const Ran without = kit::qkmem({"doctor", "./shared"});
  EXPECT_EQ(1, without.status);
  EXPECT_EQ(
      "./shared needs qkmem, which is not found\n\n"
      "library    libqkmem.so.1 is not where the loader looks: name its folder in "
      "LD_LIBRARY_PATH\n",
      without.out);
  setenv("LD_LIBRARY_PATH", QKMEM_SHARED_FOLDER, 1);
  const std::string with = output_of({"doctor", "./shared"});
  EXPECT_TRUE(with.starts_with("./shared has qkmem 1.0.0 in it\n\nlibrary    " QKMEM_SHARED_FOLDER
                               "/libqkmem.so.1\n"))
      << with;
}

TEST(Doctor, SaysThatAProgramDoesNotUseTheLibrary) {
  const Scene scene;
  std::filesystem::copy("/bin/true", "without");
  const Ran ran = kit::qkmem({"doctor", "./without"});
  EXPECT_EQ(1, ran.status);
  EXPECT_EQ(
      "./without doesn't use qkmem\n\n"
      "library    not in the program, nor in the libraries that it starts with; one that it loads "
      "later can have it\n",
      ran.out);
  const Ran as_json = kit::qkmem({"doctor", "--json", "./without"});
  EXPECT_EQ(
      "{\"command\":\"doctor\",\n\"program\":\"./without\",\n\"has_library\":false,\n"
      "\"version\":null,\n\"library\":null,\n\"has_all_functions\":false,\n"
      "\"has_lines\":false}\n",
      as_json.out);
}

TEST(Doctor, LooksForAProgramAsAShellDoes) {
  const Scene scene;
  std::filesystem::create_directory("bin");
  std::filesystem::copy(QKMEM_WATCHED_PROGRAM, "bin/plain");
  setenv("PATH", "/nowhere:bin", 1);
  const std::string said = output_of({"doctor", "plain"});
  EXPECT_TRUE(said.starts_with("bin/plain has qkmem 1.0.0 in it\n")) << said;
}

TEST(Doctor, CannotLookAtWhatIsNoProgram) {
  const Scene scene;
  kit::write_file("script", "#!/bin/sh\n");
  const Ran script = kit::qkmem({"doctor", "./script"});
  EXPECT_EQ(2, script.status);
  EXPECT_EQ("qkmem: ./script is no program of 64 bits, but a script or another kind of file\n",
            script.err);
  const Ran nothing = kit::qkmem({"doctor", "./nothing"});
  EXPECT_EQ(2, nothing.status);
  EXPECT_EQ("qkmem: ./nothing: No such file or directory\n", nothing.err);
}

TEST(Doctor, SaysThatAProgramOfAnotherUserIgnoresTheVariables) {
  const Scene scene;
  std::filesystem::copy(QKMEM_WATCHED_PROGRAM, "plain");
  using std::filesystem::perms;
  std::filesystem::permissions("plain", perms::set_uid | perms::owner_all);
  const std::string said = output_of({"doctor", "./plain"});
  EXPECT_TRUE(
      said.ends_with("\n\nit runs as another user or group: the library's variables are ignored\n"))
      << said;
}

TEST(Doctor, IsNotHarmedByACutFile) {
  const Scene scene;
  const std::string whole = kit::contents(QKMEM_WATCHED_PROGRAM);
  for (std::size_t size = whole.size(); size > 0; size = size * 7 / 8) {
    kit::write_file("cut", whole.substr(0, size));
    const Ran ran = kit::qkmem({"doctor", "./cut"});
    EXPECT_LE(ran.status, 2) << size;
  }
}

}  // namespace
