#include "symbols/names.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <system_error>
#include <vector>

#include "support/text.h"
#include "symbols/libdw.h"
#include "tests/kit/failing_allocator.h"
#include "tests/symbols/called.h"

namespace {

using called::Addresses;
using called::Library;
using qk::Frame;
using Lines = std::vector<std::string>;

std::string text_of(const Frame& frame) {
  qk::Line line;
  put_function(line, frame);
  if (frame.line != 0) {
    const std::string file(frame.file);
    line.put(" ").put(qk::file_name_only(file.c_str())).put(':');
    line.number(static_cast<std::uint64_t>(frame.line));
  }
  return std::string(line.finish());
}

/** A folder for copies of libraries. */
class Folder {
 public:
  Folder() : path_("/tmp/qkmem_names_" + std::to_string(getpid())) {
    std::filesystem::create_directory(path_);
  }
  Folder(const Folder&) = delete;
  Folder& operator=(const Folder&) = delete;
  ~Folder() { std::filesystem::remove_all(path_); }

  [[nodiscard]] std::string file(const char* name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

void copy_over(const char* from, const std::string& to) {
  // The file that was there can still be mapped.
  std::filesystem::remove(to);
  std::filesystem::copy_file(from, to);
}

class NamesTest : public ::testing::Test {
 protected:
  std::vector<Frame> frames_of(const Addresses& stack) {
    std::vector<Frame> frames(200);
    const int count =
        names_.frames_of(stack.data(), static_cast<int>(stack.size()), frames.data(), 200);
    frames.resize(static_cast<std::size_t>(count));
    return frames;
  }

  /** The frames in the test library, with offsets as one. */
  Lines lines_of(const Addresses& stack) {
    Lines lines;
    for (const Frame& frame : frames_of(stack)) {
      const bool is_called =
          frame.module != nullptr && frame.module->name().starts_with("libcalled_");
      if (!is_called) continue;
      const std::string offset = offset_text(frame.offset);
      std::string line = text_of(frame);
      if (line.ends_with("+0x" + offset))
        line.replace(line.size() - offset.size(), offset.size(), "N");
      lines.push_back(line);
    }
    return lines;
  }

  static std::string offset_text(std::uintptr_t offset) {
    qk::Line line;
    line.hex(offset, 1);
    return std::string(line.finish());
  }

  Lines lines_in(const char* path) {
    Library library(path);
    modules_.refresh();
    return lines_of(library.stack_in("call_back"));
  }

  qk::ModuleList modules_;
  qk::Names names_{modules_, called::kDebugFolder};
};

const Lines kFromDebugInfo = {
    "called::inlined(void (*)(void*), void*) called_library.cpp:100",
    "called::(anonymous namespace)::Widget::run(int, void (*)(void*), void*)"
    " called_library.cpp:200",
    "call_back called_library.cpp:300",
};

const Lines kFromSymbols = {
    "called::(anonymous namespace)::Widget::run(int, void (*)(void*), void*)",
    "call_back",
};

using Names = NamesTest;

TEST_F(Names, HaveFilesLinesAndInlinedCallsFromDebugInfo) {
  const bool has_libdw = qk::dwarf::load() != nullptr;
  EXPECT_EQ(lines_in(called::kWithDebugInfo), has_libdw ? kFromDebugInfo : kFromSymbols);
}

TEST_F(Names, HaveTheirScopeWhereDebugInfoHasOnlyLines) {
  Lines lines = lines_in(called::kWithLines);
  if (qk::dwarf::load() == nullptr) {
    EXPECT_EQ(lines, kFromSymbols);
    return;
  }
  ASSERT_EQ(lines.size(), 3U);
  // Compilers differ in what they note of inlined functions then.
  EXPECT_NE(lines[0].find("inlined"), std::string::npos);
  EXPECT_TRUE(lines[0].ends_with(" called_library.cpp:100"));
  EXPECT_EQ(lines[1], kFromDebugInfo[1]);
  EXPECT_EQ(lines[2], kFromDebugInfo[2]);
}

TEST_F(Names, ComeFromDebugInfoInAFileOfItsOwn) {
  const bool has_libdw = qk::dwarf::load() != nullptr;
  EXPECT_EQ(lines_in(called::kStripped), has_libdw ? kFromDebugInfo : kFromSymbols);
}

TEST_F(Names, ComeFromTheSymbolTableWithoutDebugInfo) {
  EXPECT_EQ(lines_in(called::kWithSymbols), kFromSymbols);
}

TEST_F(Names, AreMangledAndNeedNoHeapByTheSymbolTable) {
  names_.set_named_by(qk::NamedBy::kSymbolTables);
  Library library(called::kWithDebugInfo);
  modules_.refresh();
  const Addresses stack = library.stack_in("call_back");
  Frame frames[200];
  kit::fail_all_requests();
  (void)names_.frames_of(stack.data(), static_cast<int>(stack.size()), frames, 200);
  names_.close();
  const bool failed = kit::has_failed();
  kit::let_succeed();
  EXPECT_FALSE(failed);
  EXPECT_EQ(lines_of(stack),
            (Lines{"_ZN6called12_GLOBAL__N_16Widget3runEiPFvPvES2_", "call_back"}));
}

TEST_F(Names, ComeFromTheSymbolTableInAFileOfItsOwn) {
  names_.set_named_by(qk::NamedBy::kSymbolTables);
  EXPECT_EQ(lines_in(called::kStripped),
            (Lines{"_ZN6called12_GLOBAL__N_16Widget3runEiPFvPvES2_", "call_back"}));
}

TEST_F(Names, AreModuleAndOffsetWithoutASymbol) {
  qk::Names without_debug_files(modules_, "/nonexistent");
  Library library(called::kStripped);
  modules_.refresh();
  const Addresses stack = library.stack_in("call_back");
  Frame frames[200];
  const int count =
      without_debug_files.frames_of(stack.data(), static_cast<int>(stack.size()), frames, 200);
  Lines lines;
  for (int i = 0; i < count; ++i) {
    if (frames[i].module->name() != "libcalled_stripped.so") continue;
    lines.push_back(text_of(frames[i]));
    EXPECT_NE(frames[i].offset, 0U);
  }
  ASSERT_EQ(lines.size(), 2U);
  EXPECT_TRUE(lines[0].starts_with("libcalled_stripped.so+0x"));
  EXPECT_EQ(lines[1], "call_back");
}

TEST_F(Names, StayKnownWhenAModuleIsUnloaded) {
  const Lines before = lines_in(called::kWithSymbols);
  Addresses stack;
  {
    Library library(called::kWithSymbols);
    modules_.refresh();
    stack = library.stack_in("call_back");
  }
  modules_.refresh();
  EXPECT_EQ(lines_of(stack), before);
}

TEST_F(Names, OfUnloadedModulesAreModuleAndOffsetWithoutTheFile) {
  const Folder folder;
  const std::string copy = folder.file("libcalled_copy.so");
  copy_over(called::kWithDebugInfo, copy);
  Addresses stack;
  {
    Library library(copy.c_str());
    stack = library.stack_in("call_back");
    modules_.refresh();
  }
  std::filesystem::remove(copy);
  modules_.refresh();
  EXPECT_EQ(lines_of(stack), (Lines{"libcalled_copy.so+0xN", "libcalled_copy.so+0xN"}));
}

TEST_F(Names, AreNotTakenFromAFileThatWasReplaced) {
  const Folder folder;
  const std::string copy = folder.file("libcalled_copy.so");
  copy_over(called::kWithDebugInfo, copy);
  Library library(copy.c_str());
  modules_.refresh();
  copy_over(called::kWithSymbols, copy);
  EXPECT_EQ(lines_of(library.stack_in("call_back")),
            (Lines{"libcalled_copy.so+0xN", "libcalled_copy.so+0xN"}));
}

TEST_F(Names, AreKeptWhenTheFilesAreClosedAndGone) {
  const Folder folder;
  const std::string copy = folder.file("libcalled_copy.so");
  copy_over(called::kWithSymbols, copy);
  Library library(copy.c_str());
  modules_.refresh();
  const Addresses stack = library.stack_in("call_back");
  const Lines before = lines_of(stack);
  names_.close();
  std::filesystem::remove(copy);
  EXPECT_EQ(lines_of(stack), before);
  EXPECT_EQ(before, kFromSymbols);
}

TEST_F(Names, AreOfTheModuleThatIsInTheSamePlaceNow) {
  // Where the second library is loaded elsewhere, there is nothing to confuse.
  EXPECT_EQ(lines_in(called::kWithSymbols), kFromSymbols);
  const bool has_libdw = qk::dwarf::load() != nullptr;
  EXPECT_EQ(lines_in(called::kWithDebugInfo), has_libdw ? kFromDebugInfo : kFromSymbols);
  EXPECT_EQ(lines_in(called::kWithSymbols), kFromSymbols);
}

TEST_F(Names, LeaveNoFileOpenOrMappedWhenTheyAreClosed) {
  const Folder folder;
  const std::string copy = folder.file("libcalled_copy.so");
  copy_over(called::kWithDebugInfo, copy);
  Addresses stack;
  {
    Library library(copy.c_str());
    modules_.refresh();
    stack = library.stack_in("call_back");
  }
  EXPECT_FALSE(lines_of(stack).empty());
  names_.close();
  std::ifstream maps("/proc/self/maps");
  const std::string mapped{std::istreambuf_iterator<char>(maps), {}};
  EXPECT_EQ(mapped.find(copy), std::string::npos);
  for (const auto& file : std::filesystem::directory_iterator("/proc/self/fd")) {
    std::error_code gone;
    EXPECT_NE(std::filesystem::read_symlink(file.path(), gone), copy);
  }
}

TEST_F(Names, CanBeAskedForAgainAfterTheFilesWereClosed) {
  names_.close();
  Library library(called::kWithSymbols);
  modules_.refresh();
  const Addresses stack = library.stack_in("call_back");
  EXPECT_EQ(lines_of(stack), kFromSymbols);
  names_.close();
  names_.close();
  const Addresses other = library.stack_in("call_back_for_each");
  EXPECT_EQ(lines_of(other).back(), "call_back_for_each");
}

TEST_F(Names, EndWhereThereIsNoRoom) {
  Library library(called::kWithDebugInfo);
  modules_.refresh();
  const Addresses stack = library.stack_in("call_back");
  const int depth = static_cast<int>(stack.size());
  const int all = static_cast<int>(frames_of(stack).size());
  for (int most = 0; most <= all; ++most) {
    std::vector<Frame> frames(static_cast<std::size_t>(all) + 1);
    EXPECT_EQ(names_.frames_of(stack.data(), depth, frames.data(), most), most);
    EXPECT_EQ(text_of(frames[static_cast<std::size_t>(most)]), "0x0");
  }
  Frame frame;
  EXPECT_EQ(names_.frames_of(stack.data(), 0, &frame, 1), 0);
}

TEST_F(Names, AreNumbersOutsideOfAllModules) {
  modules_.refresh();
  EXPECT_EQ(text_of(frames_of({0x12346}).at(0)), "0x12345");
  EXPECT_EQ(text_of(frames_of({0}).at(0)), "0x0");
}

TEST_F(Names, AreLookedUpOnceForEachAddress) {
  modules_.refresh();
  std::uint64_t mapped = 0;
  for (int round = 0; round < 2; ++round) {
    for (std::uintptr_t address = 16; address <= 80000; address += 16) {
      ASSERT_EQ(frames_of({address}).at(0).offset, address - 1);
    }
    if (round == 0) mapped = names_.mapped();
  }
  EXPECT_EQ(names_.mapped(), mapped);
}

TEST(PlainFrame, HasModuleBuildIdAndOffsetOnly) {
  qk::ModuleList modules;
  Library library(called::kWithDebugInfo);
  modules.refresh();
  for (const std::uintptr_t address : library.stack_in("call_back")) {
    const Frame frame = plain_frame(modules, address);
    if (frame.module == nullptr || frame.module->name() != "libcalled_debug.so") continue;
    EXPECT_EQ(frame.function, "");
    EXPECT_EQ(frame.line, 0);
    EXPECT_EQ(frame.module->build_id.text(), called::kDebugId);
    EXPECT_EQ(frame.module->base + frame.offset + 1, address);
    return;
  }
  FAIL() << "the library is not in the stack";
}

TEST(FunctionOfAFrame, IsModuleAndOffsetIfItHasNoName) {
  qk::KnownModule module;
  module.path = "/usr/lib/libfoo.so.1";
  Frame frame;
  frame.module = &module;
  frame.offset = 0x1234;
  EXPECT_EQ(text_of(frame), "libfoo.so.1+0x1234");
  frame.module = nullptr;
  EXPECT_EQ(text_of(frame), "0x1234");
  frame.function = "foo";
  EXPECT_EQ(text_of(frame), "foo");
}

}  // namespace
