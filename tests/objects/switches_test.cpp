#include <gtest/gtest.h>

#include <string>

#include "tests/kit/bare_handle.h"
#include "tests/kit/ledger.h"
#include "tests/kit/scene.h"

/** Under which switches registration and deregistration write what. */
namespace {

using kit::at;
using kit::Ledger;

bool has(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}

/** Which of its lines a routine has written, and whether the report is among them. */
std::string shown(const Ledger& ledger, const char* routine) {
  const std::string lines = ledger.log(routine);
  std::string result;
  if (has(lines, "X 100")) result += "event ";
  if (has(ledger.log(), "Hndl Tg")) result += "report ";
  if (has(lines, "WARNING: ")) result += "warning ";
  return result;
}

/** Registers something twice, and takes it out three times. */
std::string shown_of_registration(Ledger& ledger) {
  ledger.turn_page();
  for (int i = 0; i < 2; ++i) {
    qk_mem_iregister(ledger.pool, QK_MEM_EXTERNAL, at(0x5000), nullptr, 100, "app.c", 1);
  }
  return shown(ledger, "qk_mem_iregister");
}

std::string shown_of_deregistration(Ledger& ledger) {
  ledger.turn_page();
  for (int i = 0; i < 3; ++i) {
    qk_mem_ideregister(ledger.pool, QK_MEM_EXTERNAL, at(0x5000), "app.c", 2);
  }
  return shown(ledger, "qk_mem_ideregister");
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
      // Of an unknown pointer the second warning doesn't ask whether the routine is on.
      {"DEBUG TRACE='not qk_ideregister'", "event warning ", "event warning "},
  };
  Ledger ledger("EXCEPTIONS");
  for (const auto& row : rows) {
    ledger.configure(row.debug);
    EXPECT_EQ(shown_of_registration(ledger), row.registration) << row.debug;
    EXPECT_EQ(shown_of_deregistration(ledger), row.deregistration) << row.debug;
  }
}

}  // namespace
