#ifndef QKMEM_TOOLS_INPUT_BYTES_H_
#define QKMEM_TOOLS_INPUT_BYTES_H_

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>

/** The bytes of an input: a file, plain or compressed, or standard input. */
namespace qk::command {

/** How much is read at once: what stays in the processor's cache until it is used. */
inline constexpr std::size_t kPieceBytes = std::size_t{1} << 16;

/** Bytes that come one after the other. */
class Bytes {
 public:
  Bytes() = default;
  Bytes(const Bytes&) = delete;
  Bytes& operator=(const Bytes&) = delete;
  virtual ~Bytes() = default;

  /** The first bytes, which tell formats apart, before any was read. Throws InputError. */
  [[nodiscard]] std::string_view start();

  /** Reads the next bytes. Returns how many: some, or 0 at the end. Throws InputError. */
  [[nodiscard]] std::size_t read(std::span<char> to);

  /** Has a read() in another thread end that waits for more, as of a pipe, and those after it. */
  virtual void interrupt() = 0;

  /** How much of the input was read so far and how large it is, in bytes; 0 if that is not known. */
  [[nodiscard]] virtual std::uint64_t position() const = 0;
  [[nodiscard]] virtual std::uint64_t size() const = 0;

  /** The file's descriptor, if the bytes are those of a file that can be read at any place; or -1. */
  [[nodiscard]] virtual int random_access() const = 0;

 private:
  [[nodiscard]] virtual std::size_t read_more(std::span<char> to) = 0;

  std::array<char, 8> start_ = {};
  std::size_t start_count_ = 0;
  std::size_t start_taken_ = 0;
};

/**
 * Opens a file, or standard input for "-". What gzip or zstd has compressed is recognised by its
 * first bytes, whatever its name. Throws InputError.
 */
[[nodiscard]] std::unique_ptr<Bytes> open_bytes(const std::string& name);

}  // namespace qk::command

#endif  // QKMEM_TOOLS_INPUT_BYTES_H_
