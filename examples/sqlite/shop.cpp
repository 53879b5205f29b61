// A shop with a catalogue in SQLite. It forgets a statement for each article that it doesn't have.
// usage: sqlite_shop [fixed]
#include <sqlite3.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "qkmem/adapters/sqlite.h"
#include "qkmem/profile.h"

namespace {

constexpr int kNotFound = -1;

bool forgets_statements = true;

/** Ends the program if SQLite has failed. */
void check(int result) {
  if (result == SQLITE_OK || result == SQLITE_ROW || result == SQLITE_DONE) return;
  std::fprintf(stderr, "shop: %s\n", sqlite3_errstr(result));
  std::exit(1);
}

sqlite3* open_database() {
  const qk::Site step("opening the database");
  sqlite3* database = nullptr;
  check(sqlite3_open(":memory:", &database));
  check(sqlite3_exec(database, "CREATE TABLE article (number INTEGER PRIMARY KEY, price INTEGER)",
                     nullptr, nullptr, nullptr));
  return database;
}

void load_catalogue(sqlite3* database) {
  const qk::Site step("loading the catalogue");
  sqlite3_stmt* statement = nullptr;
  check(sqlite3_prepare_v2(database, "INSERT INTO article VALUES (?, ?)", -1, &statement, nullptr));
  for (int number = 1; number <= 100; ++number) {
    check(sqlite3_bind_int(statement, 1, number));
    check(sqlite3_bind_int(statement, 2, 100 + number % 70));
    check(sqlite3_step(statement));
    check(sqlite3_reset(statement));
  }
  check(sqlite3_finalize(statement));
}

int price_of(sqlite3* database, int number) {
  const qk::Site step("looking up a price");
  sqlite3_stmt* statement = nullptr;
  check(sqlite3_prepare_v2(database, "SELECT price FROM article WHERE number = ?", -1, &statement,
                           nullptr));
  check(sqlite3_bind_int(statement, 1, number));
  const int result = sqlite3_step(statement);
  const int price = result == SQLITE_ROW ? sqlite3_column_int(statement, 0) : kNotFound;
  if (price == kNotFound && forgets_statements) return kNotFound;
  check(sqlite3_finalize(statement));
  return price;
}

void answer_customers(sqlite3* database) {
  const qk::Site step("answering customers");
  for (int number = 2; number <= 1'200; number += 2) price_of(database, number);
}

}  // namespace

int main(int argc, char** argv) {
  forgets_statements = argc < 2 || std::strcmp(argv[1], "fixed") != 0;
  check(qk_mem_adapt_sqlite(qk_mem_new_handle("MULTITHREADED", "SQ")));
  sqlite3* const database = open_database();
  load_catalogue(database);
  answer_customers(database);
  // Fails while there are statements, and then the database stays open.
  if (sqlite3_close(database) != SQLITE_OK) {
    sqlite3_int64 blocks = 0;
    sqlite3_int64 most_blocks = 0;
    check(sqlite3_status64(SQLITE_STATUS_MALLOC_COUNT, &blocks, &most_blocks, 0));
    std::fprintf(stderr, "shop: the database is still in use, with %lld bytes in %lld blocks\n",
                 sqlite3_memory_used(), blocks);
    return 0;
  }
  check(sqlite3_shutdown());
  return 0;
}
