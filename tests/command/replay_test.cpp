#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <functional>
#include <random>
#include <sstream>
#include <thread>

#include "qkmem/profile.h"
#include "qkmem/qkmem.h"
#include "tests/command/command.h"
#include "tests/kit/profile.h"
#include "tests/kit/scene.h"

namespace {

using kit::contents;
using kit::output_of;
using kit::Pool;
using kit::Scene;

constexpr int kLines = 40;

/** A life of random steps, in lines of its own. */
void live(int hid, unsigned seed, int steps) {
  std::minstd_rand random(seed);
  std::vector<void*> blocks;
  for (int i = 0; i < steps; ++i) {
    const int line = static_cast<int>(1000 * seed + random() % kLines);
    if (blocks.size() < 20 || random() % 2 == 0) {
      blocks.push_back(qk_mem_imalloc(hid, random() % 300 + 1, 16, "a.c", line));
      continue;
    }
    void*& block = blocks[random() % blocks.size()];
    if (random() % 3 == 0) {
      block = qk_mem_irealloc(hid, block, random() % 900 + 1, 16, "a.c", line);
      continue;
    }
    qk_mem_ifree(hid, block, "a.c", line);
    block = blocks.back();
    blocks.pop_back();
  }
}

/** What the library knows of the lines of a life, as the command lists it. */
void write_figures(int hid, const char* tag, unsigned seed, std::ostream& figures) {
  for (unsigned line = 1000 * seed; line < 1000 * seed + kLines; ++line) {
    const qk::mem::profile::Row row = kit::site_at("a.c", line);
    figures << row.live_bytes << ',' << row.live_blocks << ',' << row.bytes_at_peak << ','
            << row.made_blocks << ',' << row.made_bytes << ',' << hid << ',' << tag
            << "a.c:" << line << '\n';
  }
}

std::string sorted_lines(const std::string& text) {
  std::istringstream stream(text);
  std::vector<std::string> lines;
  for (std::string line; std::getline(stream, line);) {
    if (line.ends_with(",site")) continue;
    lines.push_back(line + "\n");
  }
  std::sort(lines.begin(), lines.end());
  std::string sorted;
  for (const std::string& line : lines) sorted += line;
  return sorted;
}

/** The first columns of CSV, without the line of keys. */
std::string columns_of(const std::string& csv, int count) {
  std::istringstream stream(csv);
  std::vector<std::string> lines;
  std::string line;
  std::getline(stream, line);
  while (std::getline(stream, line)) {
    std::size_t end = 0;
    for (int i = 0; i < count; ++i) end = line.find(',', end) + 1;
    lines.push_back(line.substr(0, end - 1) + "\n");
  }
  std::sort(lines.begin(), lines.end());
  std::string columns;
  for (const std::string& each : lines) columns += each;
  return columns;
}

/** Runs a program that ends as it should. */
void run_program(const kit::Environment& environment, const std::function<void()>& body) {
  const kit::Ended ended = kit::run(environment, body);
  EXPECT_EQ(0, ended.exit_code);
  EXPECT_EQ("", ended.err);
}

kit::Environment recorded(const char* debug = "") {
  return {debug, "DB=t.tdf", "", "RECORD=r.qkm REPORT=/dev/null"};
}

TEST(Replay, OfARecordingComesToTheLibrarysOwnFigures) {
  const Scene scene;
  run_program(recorded(), [] {
    const Pool first;
    const Pool second("", "AB");
    live(first, 1, 30'000);
    live(second, 2, 30'000);
    live(first, 3, 40'000);
    std::ostringstream figures;
    write_figures(first, ",", 1, figures);
    write_figures(second, "AB,", 2, figures);
    write_figures(first, ",", 3, figures);
    kit::write_file("figures", figures.str());
  });
  EXPECT_EQ(sorted_lines(contents("figures")),
            sorted_lines(output_of({"top", "-n", "0", "--csv", "r.qkm"})));
}

TEST(Replay, OfATableComesToTheFiguresOfTheRecordingByHandle) {
  const Scene scene;
  run_program(recorded("TRACE"), [] {
    const Pool first;
    const Pool second;
    live(first, 1, 30'000);
    live(second, 2, 30'000);
    live(first, 3, 40'000);
  });
  const std::string of_recording = output_of({"top", "--by", "handle", "--csv", "r.qkm"});
  const std::string of_table = output_of({"top", "--by", "handle", "--csv", "t.tdf"});
  EXPECT_EQ(columns_of(of_recording, 5), columns_of(of_table, 5));
  EXPECT_EQ(3, std::count(of_table.begin(), of_table.end(), '\n'));
}

TEST(Replay, OfATableHasNoReleaseOfUnknownMemoryThoughReallocsMove) {
  const Scene scene;
  run_program({"TRACE", "DB=t.tdf", "", ""}, [] {
    const Pool pool;
    live(pool, 1, 100'000);
  });
  const std::string check = output_of({"check", "--json", "t.tdf"});
  EXPECT_NE(std::string::npos, check.find("\"is_whole\":true")) << check;
  EXPECT_EQ(std::string::npos, check.find("\"moved_reallocs\":0,"));
  EXPECT_EQ(std::string::npos, check.find("\"moved_reallocs_with_choice\":0,"));
}

/** Eight threads on two handles. */
void live_in_threads() {
  const Pool first("MULTITHREADED");
  const Pool second("MULTITHREADED", "T2");
  std::vector<std::thread> threads;
  for (unsigned i = 1; i <= 8; ++i) {
    threads.emplace_back([&, i] { live(i % 2 == 0 ? first : second, i, 15'000); });
  }
  for (std::thread& thread : threads) thread.join();
  std::ostringstream figures;
  for (unsigned i = 1; i <= 8; ++i) {
    const bool is_first = i % 2 == 0;
    write_figures(is_first ? first : second, is_first ? "," : "T2,", i, figures);
  }
  kit::write_file("figures", figures.str());
}

/** Without the column of what was held at the peak, which threads reach at their own times. */
std::string without_peak(const std::string& rows) {
  std::istringstream stream(rows);
  std::string kept;
  for (std::string line; std::getline(stream, line);) {
    const std::size_t peak = line.find(',', line.find(',') + 1) + 1;
    kept += line.erase(peak, line.find(',', peak) + 1 - peak) + "\n";
  }
  return kept;
}

TEST(Replay, OfEightThreadsComesToTheLibrarysOwnFigures) {
  const Scene scene;
  run_program(recorded(), &live_in_threads);
  const std::string check = output_of({"check", "r.qkm"});
  EXPECT_NE(std::string::npos,
            check.find("whole: each release has its block, and the sums are those that the input "
                       "says\nthe program has ended it\n"))
      << check;
  EXPECT_EQ(without_peak(sorted_lines(contents("figures"))),
            without_peak(sorted_lines(output_of({"top", "-n", "0", "--csv", "r.qkm"}))));
}

TEST(Replay, OfSeveralThreadsCanTellThemApart) {
  const Scene scene;
  run_program(recorded(), &live_in_threads);
  const std::string by_thread = output_of({"top", "--by", "thread", "--csv", "r.qkm"});
  EXPECT_EQ(9, std::count(by_thread.begin(), by_thread.end(), '\n')) << by_thread;
  const std::string of_one =
      output_of({"top", "--thread", "2", "--by", "thread", "--csv", "r.qkm"});
  EXPECT_EQ(2, std::count(of_one.begin(), of_one.end(), '\n')) << of_one;
}

TEST(Replay, OfSeveralThreadsTellsWhoHasReleasedABlock) {
  const Scene scene;
  run_program(recorded(), [] {
    const Pool pool("MULTITHREADED");
    void* const block = qk_mem_imalloc(pool, 100, 16, "a.c", 1);
    std::thread([&] { qk_mem_ifree(pool, block, "b.c", 2); }).join();
  });
  const std::string history = output_of({"history", "--csv", "a.c:1", "r.qkm"});
  EXPECT_NE(std::string::npos, history.find("event,what,address,bytes,handle,thread,site,"));
  EXPECT_NE(std::string::npos, history.find(",100,3,1,a.c:1,"));
  EXPECT_NE(std::string::npos, history.find(",100,3,2,,"));
}

TEST(Replay, OfSeveralThreadsIsInTheOrderOfTime) {
  const Scene scene;
  run_program(recorded(), [] {
    const Pool pool("MULTITHREADED");
    void* const block = qk_mem_imalloc(pool, 100, 16, "a.c", 1);
    std::thread([&] { qk_mem_imalloc(pool, 200, 16, "b.c", 2); }).join();
    qk_mem_ifree(pool, block, "a.c", 3);
  });
  // Each thread by itself has 200 bytes at most.
  const std::string peak = output_of({"peak", "--json", "r.qkm"});
  EXPECT_NE(std::string::npos, peak.find("\"peak_bytes\":300,")) << peak;
}

TEST(Replay, OfAProgramThatWasKilledGoesUpToItsEnd) {
  const Scene scene;
  const kit::Ended ended = kit::run(recorded(), [] {
    const Pool pool;
    live(pool, 1, 50'000);
    qk_mem_imalloc(pool, 77, 16, "last.c", 1);
    raise(SIGKILL);
  });
  ASSERT_EQ(SIGKILL, ended.signal);
  EXPECT_NE(std::string::npos,
            output_of({"check", "r.qkm"}).find("the program was killed or still runs: all up to"));
  EXPECT_NE(std::string::npos, output_of({"history", "last.c:1", "r.qkm"}).find(" 77 "));
  unlink("r.qkm.tail");
  EXPECT_NE(std::string::npos, output_of({"check", "r.qkm"}).find("it breaks off behind event "));
}

TEST(Replay, KeepsWhatWasThereBeforeApartFromLeaks) {
  const Scene scene;
  run_program({"", "", "", "REPORT=/dev/null"}, [] {
    const Pool pool;
    void* const released = qk_mem_imalloc(pool, 100, 16, "old.c", 1);
    qk_mem_imalloc(pool, 200, 16, "old.c", 2);
    qk_mem_profile_config("RECORD=r.qkm REPORT=/dev/null");
    qk_mem_imalloc(pool, 30, 16, "new.c", 3);
    qk_mem_ifree(pool, released, "new.c", 4);
  });
  EXPECT_EQ(
      "r.qkm: 2 events, 3 handles, 3 sites\n"
      "30 B in 1 block was never released\n"
      "\n"
      "  bytes  blocks  share  made  largest  last made  handle  site\n"
      "   30 B       1   100%     1     30 B          3       3  new.c:3\n"
      "\n"
      "200 B in 1 block of what is live: made before the recording begins\n",
      output_of({"leaks", "r.qkm"}));
}

TEST(Replay, OfTheLatestEventsBeginsWithWhatWasLive) {
  const Scene scene;
  run_program({"", "", "", "RECORD=r.qkm RECORD_MAX=1M REPORT=/dev/null"}, [] {
    const Pool pool;
    for (int i = 0; i < 100; ++i) qk_mem_imalloc(pool, 1000, 16, "early.c", 1);
    live(pool, 1, 600'000);
    std::ostringstream figures;
    write_figures(pool, "", 1, figures);
    kit::write_file("figures", figures.str());
  });
  const std::string check = output_of({"check", "r.qkm"});
  EXPECT_NE(std::string::npos, check.find("whole: each release has its block")) << check;
  EXPECT_NE(std::string::npos, check.find(" dropped to stay below RECORD_MAX")) << check;
  // Half of the limit at least is kept, and no event takes 50 bytes, however slow the machine.
  const std::string all = output_of({"top", "--json", "-n", "1", "r.qkm"});
  EXPECT_LT(5'000U, std::stoul(all.substr(all.find("\"made_blocks\":") + 14))) << all;
  const std::string early = output_of({"top", "--csv", "--file", "early.c", "r.qkm"});
  EXPECT_NE(std::string::npos, early.find("\n100000,100,100000,0,0,3,early.c:1\n")) << early;
  // The first two columns: what is live at the end.
  EXPECT_EQ(columns_of("keys\n" + contents("figures"), 2),
            columns_of(output_of({"top", "-n", "0", "--csv", "--file", "a.c", "r.qkm"}), 2));
}

}  // namespace
