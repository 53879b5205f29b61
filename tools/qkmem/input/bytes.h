#ifndef QKMEM_TOOLS_INPUT_BYTES_H_
#define QKMEM_TOOLS_INPUT_BYTES_H_

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

/** The bytes of an input: a file, plain or compressed, or standard input. */
namespace qk::command {

/** Bytes that come in pieces, from the first one on. */
class Bytes {
 public:
  Bytes() = default;
  Bytes(const Bytes&) = delete;
  Bytes& operator=(const Bytes&) = delete;
  virtual ~Bytes() = default;

  /** The next piece, valid until the next call. Empty at the end. Throws InputError. */
  [[nodiscard]] virtual std::string_view next() = 0;

  /** How much of the input was read so far and how large it is, in bytes; 0 if that is not known. */
  [[nodiscard]] virtual std::uint64_t position() const = 0;
  [[nodiscard]] virtual std::uint64_t size() const = 0;

  /** The file's descriptor, if the bytes are those of a file that can be read at any place; or -1. */
  [[nodiscard]] virtual int random_access() const = 0;
};

/**
 * Opens a file, or standard input for "-". What gzip or zstd has compressed is recognised by its
 * first bytes, whatever its name. Throws InputError.
 */
[[nodiscard]] std::unique_ptr<Bytes> open_bytes(const std::string& name);

}  // namespace qk::command

#endif  // QKMEM_TOOLS_INPUT_BYTES_H_
