#ifndef TESTS_COMMAND_MADE_RECORDING_H_
#define TESTS_COMMAND_MADE_RECORDING_H_

#include <cstdint>
#include <string>
#include <vector>

/** Recordings of programs that were never run. */
namespace kit {

/** Collects what a recording has of one thread on one handle, number 3, of the tag NT. */
class MadeRecording {
 public:
  MadeRecording();

  /** When the program has begun, in nanoseconds since 1970, and its command line. */
  void started(std::uint64_t nanoseconds, const std::string& command = "net");

  /** A module with the addresses from `begin` to `end`. */
  void module(const std::string& path, const std::string& build_id, std::uint64_t begin,
              std::uint64_t end);

  /** The name of a return address; one behind the other if calls were inlined. */
  void name(std::uint64_t address, std::uint64_t depth, const std::string& function,
            const std::string& file, std::uint64_t line);

  /** The number of a site with return addresses, the innermost first; without any, no stack. */
  std::uint32_t site(const std::string& path, std::uint64_t line,
                     const std::vector<std::uint64_t>& addresses);

  /** A block is allocated. */
  void made(std::uint32_t site, std::uint64_t bytes);

  /** Writes the recording. */
  void write(const std::string& name);

 private:
  std::uint64_t text(const std::string& text);

  std::string definitions_;
  std::uint64_t texts_ = 0;
  std::uint64_t stacks_ = 0;
  std::uint32_t sites_ = 0;
  struct Block {
    std::uint32_t site;
    std::uint64_t bytes;
  };
  std::vector<Block> blocks_;
};

}  // namespace kit

#endif  // TESTS_COMMAND_MADE_RECORDING_H_
