#ifndef SYMBOLS_LIBDW_H_
#define SYMBOLS_LIBDW_H_

#include <cstddef>
#include <cstdint>

/**
 * libdw of elfutils, which reads debug information. It is loaded when it is wanted and never
 * linked, so that programs run without it; nor is its header needed to build the library. What is
 * declared here is its interface, which newer versions keep.
 */
namespace qk::dwarf {

struct Session;
struct Files;
struct Line;

/** An entry of the debug information: a unit that was compiled, a function, a call, ... */
struct Die {
  void* address;
  void* unit;
  void* abbreviation;
  long padding;
};

struct Attribute {
  unsigned int code;
  unsigned int form;
  unsigned char* value;
  void* unit;
};

inline constexpr int kTagClass = 0x02;
inline constexpr int kTagBlock = 0x0b;
inline constexpr int kTagStructure = 0x13;
inline constexpr int kTagUnion = 0x17;
inline constexpr int kTagInlined = 0x1d;
inline constexpr int kTagModule = 0x1e;
inline constexpr int kTagFunction = 0x2e;
inline constexpr int kTagNamespace = 0x39;

inline constexpr unsigned int kName = 0x03;
inline constexpr unsigned int kCallFile = 0x58;
inline constexpr unsigned int kCallLine = 0x59;
inline constexpr unsigned int kLinkageName = 0x6e;

/** Its functions that are used, under their names without "dwarf_". */
struct Functions {
  Session* (*begin)(int file, int command);
  int (*end)(Session* session);
  int (*nextcu)(Session* session, std::uint64_t offset, std::uint64_t* next, std::size_t* header,
                std::uint64_t* abbreviations, std::uint8_t* address_size,
                std::uint8_t* offset_size);
  Die* (*offdie)(Session* session, std::uint64_t offset, Die* die);
  int (*child)(Die* die, Die* child);
  int (*siblingof)(Die* die, Die* sibling);
  std::uint64_t (*dieoffset)(Die* die);
  int (*tag)(Die* die);
  std::ptrdiff_t (*ranges)(Die* die, std::ptrdiff_t offset, std::uint64_t* base,
                           std::uint64_t* begin, std::uint64_t* end);
  int (*haspc)(Die* die, std::uint64_t address);
  Attribute* (*attr_integrate)(Die* die, unsigned int name, Attribute* attribute);
  const char* (*formstring)(Attribute* attribute);
  int (*formudata)(Attribute* attribute, std::uint64_t* value);
  Line* (*getsrc_die)(Die* unit, std::uint64_t address);
  int (*lineno)(Line* line, int* number);
  const char* (*linesrc)(Line* line, std::uint64_t* time, std::uint64_t* length);
  int (*getsrcfiles)(Die* unit, Files** files, std::size_t* count);
  const char* (*filesrc)(Files* files, std::size_t index, std::uint64_t* time,
                         std::uint64_t* length);
};

/** Returns null if the machine has no libdw. Allocates the first time. Threads: any. */
[[nodiscard]] const Functions* load() noexcept;

}  // namespace qk::dwarf

#endif  // SYMBOLS_LIBDW_H_
