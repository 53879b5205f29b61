#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <string>

#include "tests/kit/failing_allocator.h"
#include "tests/kit/ledger.h"
#include "tests/kit/report.h"
#include "tests/kit/scene.h"

/** What each routine writes under which switches. */
namespace {

using kit::Ledger;

struct Routine {
  const char* name;     // as in configuration lists
  const char* other;    // another routine's name
  const char* speaker;  // its name in log lines
  void (*act)(int hid);
  void (*misuse)(int hid);
  void (*fail)(int hid);  // null if it can't fail
};

const Routine kMalloc = {
    "qk_imalloc",
    "qk_icalloc",
    "qk_mem_imalloc",
    [](int hid) { qk_mem_imalloc(hid, 10, 16, "src/app.c", 1); },
    [](int hid) { qk_mem_imalloc(hid, 0, 16, "src/app.c", 2); },
    [](int hid) { qk_mem_imalloc(hid, 10, 16, "src/app.c", 3); },
};

const Routine kCalloc = {
    "qk_icalloc",
    "qk_imalloc",
    "qk_mem_icalloc",
    [](int hid) { qk_mem_icalloc(hid, 1, 10, 16, "src/app.c", 1); },
    [](int hid) { qk_mem_icalloc(hid, 0, 10, 16, "src/app.c", 2); },
    [](int hid) { qk_mem_icalloc(hid, 1, 10, 16, "src/app.c", 3); },
};

const Routine kRealloc = {
    "qk_irealloc",
    "qk_imalloc",
    "qk_mem_irealloc",
    [](int hid) { qk_mem_irealloc(hid, nullptr, 10, 16, "src/app.c", 1); },
    [](int hid) { qk_mem_irealloc(hid, nullptr, 0, 16, "src/app.c", 2); },
    [](int hid) { qk_mem_irealloc(hid, nullptr, 10, 16, "src/app.c", 3); },
};

const Routine kStrdup = {
    "qk_istrdup",
    "qk_imalloc",
    "qk_mem_istrdup",
    [](int hid) { qk_mem_istrdup(hid, "hello", "src/app.c", 1); },
    [](int hid) { qk_mem_istrdup(hid, nullptr, "src/app.c", 2); },
    [](int hid) { qk_mem_istrdup(hid, "hello", "src/app.c", 3); },
};

const Routine kFree = {
    "qk_ifree",
    "qk_imalloc",
    "qk_mem_ifree",
    [](int hid) {
      void* memory = std::malloc(10);
      kit::hold(kit::handle_of(hid), reinterpret_cast<std::uintptr_t>(memory), 'M', 1, 10);
      qk_mem_ifree(hid, memory, "src/app.c", 1);
    },
    [](int hid) { qk_mem_ifree(hid, nullptr, "src/app.c", 2); },
    nullptr,
};

bool has(const std::string& text, const char* part) { return text.find(part) != std::string::npos; }

/** Which kinds of lines a routine writes, and whether the report follows an event. */
std::string what_it_writes(Ledger& ledger, const Routine& routine) {
  std::string result;
  ledger.skip_all();
  routine.act(ledger.pool);
  if (!ledger.log(routine.speaker).empty()) result += "event ";
  if (has(ledger.log(), "Hndl Tg")) result += "report ";
  ledger.skip_all();
  routine.misuse(ledger.pool);
  if (has(ledger.log(routine.speaker), "WARNING: ")) result += "warning ";
  if (routine.fail != nullptr) {
    ledger.skip_all();
    kit::fail_request(1);
    routine.fail(ledger.pool);
    if (has(ledger.log(routine.speaker), "ERROR: ")) result += "error ";
  }
  return result;
}

std::string without_error(std::string words) {
  const std::size_t at = words.find("error ");
  return at == std::string::npos ? words : words.erase(at, 6);
}

void expect_obeyed_by(const Routine& routine) {
  const std::string own = routine.name;
  const std::string other = routine.other;
  const struct {
    std::string debug;
    const char* shows;
  } rows[] = {
      {"DEBUG", "event warning error "},
      {"EXCEPTIONS", "warning error "},
      {"CTRLBLKS", "report "},
      {"SUMMARY", ""},
      {"TRACE", ""},
      {"DEBUG CTRLBLKS", "event report warning error "},
      {"EXCEPTIONS CTRLBLKS", "report warning error "},
      {"DEBUG=" + own, "event warning error "},
      {"EXCEPTIONS=" + own, "warning error "},
      {"CTRLBLKS=" + own, "report "},
      {"DEBUG=" + other + "," + own, "event warning error "},
      {"DEBUG=" + other, ""},
      {"EXCEPTIONS=" + other, ""},
      {"CTRLBLKS=" + other, ""},
      {"DEBUG=global", ""},
      {"DEBUG=not," + own, ""},
      {"EXCEPTIONS=not," + own, ""},
      {"CTRLBLKS=not," + own, ""},
      {"DEBUG=not," + other, "event warning error "},
      {"CTRLBLKS=" + own + " EXCEPTIONS=" + other, "report "},
      {"DEBUG TRACE=not," + own, "event error "},
      {"EXCEPTIONS TRACE=not," + own, "error "},
      {"CTRLBLKS TRACE=not," + own, "report "},
  };
  Ledger ledger("EXCEPTIONS");
  for (const auto& row : rows) {
    ledger.configure(row.debug.c_str());
    const std::string shows =
        routine.fail == nullptr ? without_error(row.shows) : std::string(row.shows);
    EXPECT_EQ(what_it_writes(ledger, routine), shows) << row.debug;
  }
}

TEST(Switches, AreObeyedByMalloc) { expect_obeyed_by(kMalloc); }
TEST(Switches, AreObeyedByCalloc) { expect_obeyed_by(kCalloc); }
TEST(Switches, AreObeyedByRealloc) { expect_obeyed_by(kRealloc); }
TEST(Switches, AreObeyedByStrdup) { expect_obeyed_by(kStrdup); }
TEST(Switches, AreObeyedByFree) { expect_obeyed_by(kFree); }

}  // namespace
