#include <gtest/gtest.h>

#include <string>

#include "tests/kit/ledger.h"
#include "tests/kit/scene.h"
#include "tests/kit/standalone_handle.h"

/** What registration and deregistration write under which switches. */
namespace {

using kit::at;
using kit::Ledger;

bool has(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}

/** Which kinds of lines a routine has written, and whether there is a report. */
std::string kinds_written(const Ledger& ledger, const char* routine) {
  const std::string lines = ledger.log(routine);
  std::string result;
  if (has(lines, "X 100")) result += "event ";
  if (has(ledger.log(), "Hndl Tg")) result += "report ";
  if (has(lines, "WARNING: ")) result += "warning ";
  return result;
}

/** Registers something twice, which makes an event and a warning. */
std::string written_by_registration(Ledger& ledger) {
  ledger.skip_all();
  for (int i = 0; i < 2; ++i) {
    qk_mem_iregister(ledger.pool, QK_MEM_EXTERNAL, at(0x5000), nullptr, 100, "app.c", 1);
  }
  return kinds_written(ledger, "qk_mem_iregister");
}

/** Deregisters it three times, which makes events and a warning. */
std::string written_by_deregistration(Ledger& ledger) {
  ledger.skip_all();
  for (int i = 0; i < 3; ++i) {
    qk_mem_ideregister(ledger.pool, QK_MEM_EXTERNAL, at(0x5000), "app.c", 2);
  }
  return kinds_written(ledger, "qk_mem_ideregister");
}

TEST(Switches, AreObeyedByRegistrationAndDeregistration) {
  const struct {
    const char* debug;
    const char* registration;
    const char* deregistration;
  } rows[] = {
      {"DEBUG", "event warning ", "event warning "},
      {"EXCEPTIONS", "warning ", "warning "},
      {"CTRLBLKS", "report ", "report "},
      {"SUMMARY", "", ""},
      {"TRACE", "", ""},
      {"DEBUG CTRLBLKS", "event report warning ", "event report warning "},
      {"DEBUG=qk_iregister", "event warning ", ""},
      {"DEBUG=qk_ideregister", "", "event warning "},
      {"EXCEPTIONS=qk_iregister", "warning ", ""},
      {"EXCEPTIONS=qk_ideregister", "", "warning "},
      {"CTRLBLKS=qk_iregister", "report ", ""},
      {"CTRLBLKS=qk_ideregister", "", "report "},
      {"DEBUG=global,qk_ifree", "", ""},
      {"EXCEPTIONS='not qk_iregister'", "", "warning "},
      {"EXCEPTIONS='not qk_ideregister'", "warning ", ""},
      {"DEBUG TRACE='not qk_iregister'", "event ", "event warning "},
      // The second warning of an unknown pointer is written even if the routine is off.
      {"DEBUG TRACE='not qk_ideregister'", "event warning ", "event warning "},
  };
  Ledger ledger("EXCEPTIONS");
  for (const auto& row : rows) {
    ledger.configure(row.debug);
    EXPECT_EQ(written_by_registration(ledger), row.registration) << row.debug;
    EXPECT_EQ(written_by_deregistration(ledger), row.deregistration) << row.debug;
  }
}

}  // namespace
