// Arbitrary calls, compared with a model. The bytes choose each call and its arguments.
#include "qkmem/qkmem.h"
#include "tests/fuzz/fuzzing.h"
#include "tests/kit/call_model.h"

namespace {

class Bytes : public kit::Choices {
 public:
  Bytes(const std::uint8_t* data, std::size_t size) : data_(data), size_(size) {}

  unsigned pick(unsigned end) override {
    if (size_ == 0) return 0;
    unsigned number = *data_++;
    --size_;
    if (end > 256 && size_ > 0) {
      number = number * 256 + *data_++;
      --size_;
    }
    return number % end;
  }

  [[nodiscard]] bool more() const { return size_ > 0; }

 private:
  const std::uint8_t* data_;
  std::size_t size_;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  // Whether the data handle keeps records is decided when it is created.
  static const bool configured = setenv("QK_MEM_DEBUG", "EXCEPTIONS LOG=/dev/null", 1) == 0;
  fuzz::require(configured, "environment");
  fuzz::reset();
  qk::Status status;
  fuzz::require(qk_mem_debug_config("EXCEPTIONS LOG=/dev/null", &status) == 0, "configuration");
  Bytes bytes(data, size);
  kit::CallModel model(bytes);
  while (bytes.more()) fuzz::require(model.step(), model.error().c_str());
  fuzz::require(model.finish(), model.error().c_str());
  return 0;
}
