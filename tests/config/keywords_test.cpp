#include <gtest/gtest.h>

#include <string>

#include "core/registry.h"
#include "tests/kit/scene.h"

namespace {

using kit::Scene;

/** The properties of a new handle, as "D autofree mutex 2048", or "refused" if there is none. */
std::string properties_with(const std::string& options) {
  const int hid = qk_mem_inew_handle(options.c_str(), "", "app.c", 1);
  if (hid == 0) return qk_mem_error() == 11102 ? "refused" : "failed otherwise";
  const qk_mem_handle& handle = kit::handle_of(hid);
  std::string text(1, handle.type);
  if (handle.autofree == 'a') text += " autofree";
  if (handle.mtx != nullptr) text += " mutex";
  if (handle.blockmgmt == 'B') text += " blocks";
  if (handle.blockfree == 1) text += " blockfree";
  text += " " + std::to_string(handle.blocksize);
  qk_mem_idel_handle(hid, "app.c", 2);
  return text;
}

TEST(HandleKeywords, AreAcceptedWholeOrShortened) {
  const Scene scene;
  const struct {
    const char* options;
    const char* handle;
  } cases[] = {
      {"OVERHEAD", "O 2048"},
      {"o", "O 2048"},
      {"DATA", "D 2048"},
      {"D", "D 2048"},
      {"DA,AUTO", "D autofree 2048"},
      {"a", "D autofree 2048"},
      {"MULTITHREADED", "D mutex 2048"},
      {"multithread", "D mutex 2048"},
      {"MULTITHREA", "refused"},
      {"BLOCKSIZE=64", "D 64"},
      {"BLOCKSIZ=64", "refused"},
      {"BLOCKSIZE", "refused"},
      {"BLOCKINITIAL=0", "D 2048"},
      {"BLOCKINIT=0", "D 2048"},
      {"BLOCKINI=0", "refused"},
      {"BLOCKINITIAL", "refused"},
      {"BLOCKFREE", "D blockfree 2048"},
      {"BLOCKFRE", "refused"},
      {"BLOCKMGMT BLOCKINITIAL=0", "D blocks 2048"},
      {"B BLOCKINIT=0", "D blocks 2048"},
      {"BLOCK,BLOCKINITI=0", "D blocks 2048"},
      {"OVERHEAD DATA", "O 2048"},
      {"DATA OVERHEAD", "O 2048"},
      {"AUTOFREE=yes", "refused"},
      {"OVERHEADS", "refused"},
      {"BLOCKSIZE='64", "refused"},
  };
  for (const auto& c : cases) EXPECT_EQ(properties_with(c.options), c.handle) << c.options;
}

TEST(HandleKeywords, MayFill256Characters) {
  const Scene scene;
  EXPECT_EQ(properties_with("AUTOFREE" + std::string(248, ' ')), "D autofree 2048");
  EXPECT_EQ(properties_with("AUTOFREE" + std::string(249, ' ')), "refused");
}

TEST(FilterKeywords, CannotBeShortened) {
  const Scene scene("TRACE");
  qk_mem_init();
  for (const char* filter : {"HANDLE=1", "TAG=AB", "TYPE=DATA", "AUTOFREE=TRUE", "BLOCKMGMT=FALSE",
                             "NEW_HANDLE=TRUE", "NEW_PTRS=FALSE", "AND", "handle=1 and tag=AB"}) {
    EXPECT_EQ(kit::dump(filter, QK_MEM_DUMP_HEAPSIZE).substr(0, 18), "Current heapsize: ")
        << filter;
  }
  for (const char* filter : {"HANDL=1", "TA=AB", "TYP=DATA", "AUTOFRE=TRUE", "BLOCKMGM=FALSE",
                             "NEW_HANDL=TRUE", "NEW_PTR=FALSE", "AN", "HANDLE", "AND=1"}) {
    EXPECT_EQ(kit::dump(filter, QK_MEM_DUMP_HEAPSIZE),
              "\"" + std::string(filter) + "\" are not legal filters\n");
    EXPECT_EQ(qk_mem_error(), 11102) << filter;
  }
}

}  // namespace
