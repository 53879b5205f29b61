// A mailroom that sorts letters, with one weakness at a time.
// usage: mailroom [leaks|grows|peaks|churns|misuses] [LETTERS]
#include <cstdlib>
#include <string_view>

#include "qkmem/qkmem.h"

namespace {

/** What is wrong with the mailroom; nothing if empty. */
std::string_view weakness;

const int office = qk_mem_new_handle("DATA", "OF");
const int mail = qk_mem_new_handle("DATA", "MA");

struct Receipt {
  Receipt* previous;
  int number;
};

/** What an office has from morning to evening. */
struct {
  void* boxes[40];
  void* register_of_letters;
  char* sign;
} furniture;

void furnish() {
  for (void*& box : furniture.boxes) box = qk_mem_malloc(office, 512);
  furniture.register_of_letters = qk_mem_calloc(office, 1000, 8);
  furniture.sign = qk_mem_strdup(office, "closed on Sundays");
}

/** Of ten letters one has no address. */
bool has_address(int letter) { return letter % 10 != 0; }

/** A letter without an address is set aside, and is forgotten there if the mailroom leaks. */
void deliver(int letter) {
  void* const text = qk_mem_malloc(mail, 300);
  if (!has_address(letter) && weakness == "leaks") return;
  qk_mem_free(mail, text);
}

/** Keeps all receipts, although only the last ones are asked for. */
void file_receipt(int letter) {
  static Receipt* receipts = nullptr;
  auto* const receipt = static_cast<Receipt*>(qk_mem_malloc(office, sizeof(Receipt)));
  receipt->previous = receipts;
  receipt->number = letter;
  receipts = receipt;
}

/** Sorts the letters of the whole day at once. */
void count_the_day(int letters) {
  void* const names = qk_mem_calloc(office, static_cast<std::size_t>(letters), 40);
  void* const sorted = qk_mem_malloc(office, static_cast<std::size_t>(letters) * 400);
  qk_mem_free(office, sorted);
  qk_mem_free(office, names);
}

/** Compares the address with each district, and copies the name of the district for that. */
void find_district() {
  for (int district = 0; district < 12; ++district) {
    char* const name = qk_mem_strdup(mail, "a district");
    qk_mem_free(mail, name);
  }
}

/** Frees the stamp of a letter without an address twice, and what is printed on it. */
void stamp(int letter) {
  static const int stamps = qk_mem_new_handle("BLOCKMGMT BLOCKFREE", "ST");
  char* const stamp = qk_mem_strdup(stamps, "postage 1.20");
  char* const price = stamp + 8;
  qk_mem_free(stamps, stamp);
  if (has_address(letter)) return;
  qk_mem_free(stamps, stamp);
  if (letter == 500) qk_mem_free(stamps, price);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc > 1) weakness = argv[1];
  const int letters = argc > 2 ? std::atoi(argv[2]) : 1'000;
  furnish();
  for (int letter = 1; letter <= letters; ++letter) {
    deliver(letter);
    if (weakness == "grows") file_receipt(letter);
    if (weakness == "churns") find_district();
    if (weakness == "misuses") stamp(letter);
  }
  if (weakness == "peaks") count_the_day(letters);
  return 0;
}
