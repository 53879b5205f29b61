#include <gtest/gtest.h>

#include <regex>
#include <set>

#include "tests/command/command.h"
#include "tests/kit/scene.h"

namespace {

using kit::contents;
using kit::output_of;
using kit::Scene;

/** What a pattern's first group matches, wherever it does. */
std::set<std::string> found_in(const std::string& text, const char* pattern) {
  std::set<std::string> found;
  const std::regex expression(pattern);
  for (std::sregex_iterator match(text.begin(), text.end(), expression), end; match != end;
       ++match) {
    found.insert((*match)[1]);
  }
  return found;
}

TEST(Documents, NameAllSubcommandsAndNoOthers) {
  const Scene scene;
  const std::string help = output_of({"--help"});
  EXPECT_EQ(found_in(help.substr(help.find("Subcommands:")), "\n  ([a-z]+) "),
            found_in(contents(QKMEM_DOCUMENTS "command.md"), "\n[|] `([a-z]+)[` ]"));
}

TEST(Documents, NameAllOptionsAndNoOthers) {
  const Scene scene;
  std::set<std::string> options = found_in(output_of({"top", "--help"}), "[ ,](-[-a-z]+)");
  for (const char* other : {"-h", "--help", "--output", "--force"}) options.erase(other);
  const std::string page = contents(QKMEM_DOCUMENTS "command.md");
  const std::size_t table = page.find("| option | means |");
  EXPECT_EQ(options,
            found_in(page.substr(table, page.find("\n\n", table) - table), "[|,.] `(-[-a-z]+)"));
}

TEST(Documents, NameAllOptionsOfProgramsThatAreRun) {
  const Scene scene;
  std::set<std::string> options = found_in(output_of({"run", "--help"}), "[ ,](-[-a-z]+)");
  options.merge(found_in(output_of({"env", "--help"}), "[ ,](-[-a-z]+)"));
  for (const char* other : {"-h", "--help", "--output", "--"}) options.erase(other);
  const std::string page = contents(QKMEM_DOCUMENTS "command.md");
  const std::size_t table = page.find("| option | of `run` and `env` |");
  EXPECT_EQ(options,
            found_in(page.substr(table, page.find("\n\n", table) - table), "[|,.] `(-[-a-z]+)"));
}

TEST(Documents, NameAllFormatsOfExports) {
  const Scene scene;
  const std::string help = output_of({"export", "--help"});
  const std::size_t formats = help.find("The format: ") + 11;
  EXPECT_EQ(found_in(help.substr(formats, help.find("  -", formats) - formats), "[ ,]([a-z]+)"),
            found_in(contents(QKMEM_DOCUMENTS "viewers.md"), "\n[|] ([a-z]+) [|] .*`"));
}

}  // namespace
