#ifndef TESTS_LIVES_JOURNAL_H_
#define TESTS_LIVES_JOURNAL_H_

/** The file in which a life writes its calls and what they return. */
namespace lives {

/** Begins a file in the current folder. Lines go to it from now on. */
void begin_journal(const char* name);

/** Writes one line, at once: the life can end at any moment. */
[[gnu::format(printf, 1, 2)]] void note(const char* format, ...);

/** Notes the sums, arrays, slots and blocks of all handles. */
void note_inventory();

}  // namespace lives

#endif  // TESTS_LIVES_JOURNAL_H_
