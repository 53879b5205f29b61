#include "symbols/folding.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "tests/symbols/called.h"

namespace {

using qk::Frame;
using qk::is_folded;
using qk::matches;
using qk::without_return_type;
using Functions = std::vector<std::string>;

Frame frame_of(std::string_view function, const qk::KnownModule* module = nullptr) {
  Frame frame;
  frame.function = function;
  frame.module = module;
  return frame;
}

bool folds(std::string_view function, std::string_view skip = "") {
  return is_folded(frame_of(function), skip);
}

bool folds_in(const char* path, std::string_view function, std::string_view skip = "") {
  qk::KnownModule module;
  module.path = path;
  return is_folded(frame_of(function, &module), skip);
}

Functions visible(const Functions& functions, std::string_view skip = "") {
  std::vector<Frame> frames;
  for (const std::string& function : functions) frames.push_back(frame_of(function));
  frames.resize(static_cast<std::size_t>(
      visible_frames(frames.data(), static_cast<int>(frames.size()), skip)));
  Functions shown;
  for (const Frame& frame : frames) shown.emplace_back(frame.function);
  return shown;
}

TEST(Folding, HidesThisLibrary) {
  EXPECT_TRUE(folds("qk_mem_imalloc"));
  EXPECT_TRUE(folds("qk::mem::record_pointer(qk::mem::CallContext const&)"));
  EXPECT_TRUE(folds("qk::Handle::make<app::Thing>(int)"));
  EXPECT_TRUE(folds("_ZN2qk6HandleC1Ev"));
  EXPECT_FALSE(folds("app::qk_mem_user()"));
  EXPECT_FALSE(folds("qk_memory_of_app"));
  EXPECT_FALSE(folds("qkmaker"));
}

TEST(Folding, HidesTheCppLibrary) {
  EXPECT_TRUE(folds("std::vector<int, std::allocator<int> >::push_back(int const&)"));
  EXPECT_TRUE(folds("void std::__sort<int*>(int*, int*)"));
  EXPECT_TRUE(folds("std::enable_if<true, void>::type std::swap<int>(int&, int&)"));
  EXPECT_TRUE(folds("std::function<void (app::Thing)>::operator()(app::Thing) const"));
  EXPECT_TRUE(folds("__gnu_cxx::new_allocator<int>::allocate(unsigned long, void const*)"));
  EXPECT_TRUE(folds("operator new(unsigned long)"));
  EXPECT_TRUE(folds("operator new[](unsigned long)"));
  EXPECT_TRUE(folds("__cxa_allocate_exception"));
  EXPECT_TRUE(folds("_ZNSt6vectorIiSaIiEE9push_backERKi"));
  EXPECT_TRUE(folds("_Znwm"));
}

TEST(Folding, HidesFunctionsInHeadersOfTheLibraries) {
  Frame frame = frame_of("push_back");
  frame.file = "/usr/include/c++/12/bits/stl_vector.h";
  EXPECT_TRUE(is_folded(frame, ""));
  frame.file = "/usr/include/qkmem/containers.hpp";
  EXPECT_TRUE(is_folded(frame, ""));
  frame.file = "/home/me/app/stl_vector.h";
  EXPECT_FALSE(is_folded(frame, ""));
}

TEST(Folding, HidesWhatStartsProgramsAndThreads) {
  for (const char* const function :
       {"_start", "__libc_start_main", "__libc_start_main_impl", "__libc_start_call_main",
        "start_thread", "clone", "clone3", "__clone3", "execute_native_thread_routine"}) {
    EXPECT_TRUE(folds(function)) << function;
  }
  for (const char* const function : {"main", "clone_tree", "restart", "start_threads"}) {
    EXPECT_FALSE(folds(function)) << function;
  }
}

TEST(Folding, ShowsFunctionsOfTheProgramWithTypesOfTheLibrary) {
  EXPECT_FALSE(folds("app::use(std::vector<int, std::allocator<int> >&)"));
  EXPECT_FALSE(folds("std::string app::make<int>(int)"));
  EXPECT_FALSE(folds("std::vector<std::string> app::split<char>(std::string const&)"));
  EXPECT_FALSE(folds("app::Thing::operator std::string() const"));
  EXPECT_FALSE(folds("app::Thing::operator()(std::string) const"));
  EXPECT_FALSE(folds("app::operator<<(std::ostream&, app::Thing const&)"));
  EXPECT_FALSE(folds("app::run()::{lambda(std::string)#1}::operator()(std::string) const"));
  EXPECT_FALSE(folds("(anonymous namespace)::run(std::string)"));
  EXPECT_FALSE(folds("void (anonymous namespace)::run<std::string>(std::string)"));
}

TEST(Folding, HidesUnnamedFramesOfSystemLibraries) {
  EXPECT_TRUE(folds_in("/lib/x86_64-linux-gnu/libc.so.6", ""));
  EXPECT_TRUE(folds_in("/lib64/ld-linux-x86-64.so.2", ""));
  EXPECT_FALSE(folds_in("/lib/x86_64-linux-gnu/libc.so.6", "qsort"));
  EXPECT_FALSE(folds_in("/usr/lib/libcairo.so.2", ""));
  EXPECT_FALSE(folds_in("/usr/bin/app", ""));
}

TEST(Folding, HidesTheModulesOfThisLibraryAndOfTheCppLibrary) {
  EXPECT_TRUE(folds_in("/usr/lib/libqkmem.so.1", "qk_hash"));
  EXPECT_TRUE(folds_in("/usr/lib/x86_64-linux-gnu/libstdc++.so.6", "init_pool"));
  EXPECT_TRUE(folds_in("/usr/lib/x86_64-linux-gnu/libstdc++.so.6", ""));
}

TEST(Folding, SkipsFunctionsWithAPattern) {
  EXPECT_TRUE(folds("sqlite3_exec", "sqlite3"));
  EXPECT_TRUE(folds("app::Cache::get(int)", "Cache"));
  EXPECT_FALSE(folds("app::Cache::get(int)", "cache"));
  EXPECT_FALSE(folds("app::run()", "Cache"));
  EXPECT_FALSE(folds("", "Cache"));
}

TEST(Folding, SkipsModulesWithAPattern) {
  EXPECT_TRUE(folds_in("/usr/lib/libsqlite3.so.0", "exec", "libsqlite3"));
  EXPECT_TRUE(folds_in("/usr/lib/libsqlite3.so.0", "", "libsqlite3.so*"));
  EXPECT_FALSE(folds_in("/usr/lib/libsqlite3.so.0", "exec", "/usr/lib"));
}

TEST(Folding, TakesSeveralPatternsSeparatedByCommas) {
  for (const char* const function : {"first", "second", "third"}) {
    EXPECT_TRUE(folds(function, "first, second ,third")) << function;
    EXPECT_TRUE(folds(function, "first,,second,\tthird,")) << function;
  }
  EXPECT_FALSE(folds("fourth", "first, second ,third"));
  EXPECT_FALSE(folds("fourth", ", ,"));
}

TEST(Folding, MatchesPatternsWithStarsAgainstTheWholeName) {
  EXPECT_TRUE(folds("sqlite3_exec", "sqlite3*"));
  EXPECT_FALSE(folds("my_sqlite3_exec", "sqlite3*"));
  EXPECT_TRUE(folds("std::string app::Db::get<int>(int)", "app::Db::*"));
}

TEST(Patterns, MatchWhatTheyStandFor) {
  EXPECT_TRUE(matches("abc", "b"));
  EXPECT_TRUE(matches("abc", "a*c"));
  EXPECT_TRUE(matches("abc", "a?c"));
  EXPECT_TRUE(matches("abc", "*"));
  EXPECT_TRUE(matches("", "*"));
  EXPECT_TRUE(matches("abcbc", "a*bc"));
  EXPECT_TRUE(matches("abc", "abc**"));
  EXPECT_FALSE(matches("abc", "a*b"));
  EXPECT_FALSE(matches("abc", "?abc"));
  EXPECT_FALSE(matches("abc", "b*"));
  EXPECT_FALSE(matches("ac", "a?c"));
  EXPECT_FALSE(matches("abd", "a*c"));
}

TEST(ReturnTypes, AreLeftOut) {
  EXPECT_EQ(without_return_type("main"), "main");
  EXPECT_EQ(without_return_type("app::run(int, char)"), "app::run(int, char)");
  EXPECT_EQ(without_return_type("void app::run<int, char>(int)"), "app::run<int, char>(int)");
  EXPECT_EQ(without_return_type("a<b (c)>::d e::f<g>(h)"), "e::f<g>(h)");
  EXPECT_EQ(without_return_type("operator new(unsigned long)"), "operator new(unsigned long)");
  EXPECT_EQ(without_return_type("decltype (a(b)) c::d<e>(f)"), "c::d<e>(f)");
  EXPECT_EQ(without_return_type("void (*a::b<c>(d))(e)"), "a::b<c>(d))(e)");
  EXPECT_EQ(without_return_type("bool operator< <a>(b, c)"), "operator< <a>(b, c)");
  EXPECT_EQ(without_return_type("(anonymous namespace)::a b::c<d>(e)"), "b::c<d>(e)");
  EXPECT_EQ(without_return_type("a::cooperator b(c)"), "b(c)");
  EXPECT_EQ(without_return_type(""), "");
}

TEST(VisibleFrames, AreThoseThatAreNotFoldedFromInsideOutwards) {
  EXPECT_EQ(visible({"qk_mem_imalloc", "sqlite3_malloc", "sqlite3_exec", "app::load()",
                     "std::for_each()", "app::start()", "main", "__libc_start_main", "_start"},
                    "sqlite3*"),
            (Functions{"app::load()", "app::start()", "main"}));
}

TEST(VisibleFrames, AreTheInnermostOneIfAllAreFolded) {
  EXPECT_EQ(visible({"std::a()", "std::b()", "_start"}), (Functions{"std::a()"}));
  EXPECT_EQ(visible({"only"}, "*"), (Functions{"only"}));
  EXPECT_EQ(visible({}), Functions{});
}

TEST(VisibleFrames, OfACallThroughTheCppLibraryAreTheCallers) {
  qk::ModuleList modules;
  called::Library library(called::kWithSymbols);
  modules.refresh();
  const called::Addresses stack = library.stack_in("call_back_for_each");
  qk::Names names(modules);
  std::vector<Frame> frames(200);
  const int count =
      names.frames_of(stack.data(), static_cast<int>(stack.size()), frames.data(), 200);
  Functions all;
  for (int i = 0; i < count; ++i) all.emplace_back(frames[static_cast<std::size_t>(i)].function);
  const int kept = visible_frames(frames.data(), count, "");
  Functions shown;
  for (int i = 0; i < kept; ++i) shown.emplace_back(frames[static_cast<std::size_t>(i)].function);
  const auto has = [](const Functions& functions, std::string_view part) {
    return std::any_of(functions.begin(), functions.end(), [part](const std::string& function) {
      return function.find(part) != std::string::npos;
    });
  };
  EXPECT_TRUE(has(all, "std::for_each"));
  EXPECT_FALSE(has(shown, "std::for_each"));
  EXPECT_TRUE(has(shown, "call_back_for_each"));
  EXPECT_FALSE(has(shown, "_start"));
}

TEST(LibraryFrames, AreLeftOnlyAtTheBeginning) {
  Frame frames[] = {frame_of("qk::mem::profile::site_of(int)"), frame_of("qk_mem_malloc"),
                    frame_of("load"), frame_of("qk_mem_scope"), frame_of("main")};
  ASSERT_EQ(3, qk::leave_library(frames, 5));
  EXPECT_EQ("load", frames[0].function);
  EXPECT_EQ("qk_mem_scope", frames[1].function);
  EXPECT_EQ("main", frames[2].function);
}

std::string short_name_of(std::string_view function) {
  std::string name;
  qk::put_short_name(function, [&name](std::string_view piece) { name += piece; });
  return name;
}

TEST(ShortNames, HaveNeitherTypesNorAnonymousNamespaces) {
  EXPECT_EQ("parse", short_name_of("parse"));
  EXPECT_EQ("net::parse", short_name_of("void net::parse(char const*, int)"));
  EXPECT_EQ("net::Reader::next",
            short_name_of("net::(anonymous namespace)::Reader::next(unsigned long) const"));
}

}  // namespace
