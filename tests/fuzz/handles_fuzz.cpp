// Creation of a handle: the first line is its options, the second its tag.
#include "core/registry.h"
#include "qkmem/qkmem.h"
#include "tests/fuzz/fuzzing.h"

namespace {

void use(int hid) {
  fuzz::require(hid > QK_MEM_DATA_HANDLE, "the number of one of the library's own handles");
  void* piece = qk_mem_imalloc(hid, 100, 16, "fuzz.cpp", 2);
  void* other = qk_mem_icalloc(hid, 3, 50, 8, "fuzz.cpp", 3);
  piece = qk_mem_irealloc(hid, piece, 10, 16, "fuzz.cpp", 4);
  qk_mem_ifree(hid, other, "fuzz.cpp", 5);
  (void)qk_mem_iclear_handle(hid, "fuzz.cpp", 6);
  void* array = nullptr;
  (void)qk_mem_imarralloc(hid, &array, 8, 5, "fuzz.cpp", 7);
  fuzz::require(qk_mem_idel_handle(hid, "fuzz.cpp", 8) == 0, "deletion");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::reset();
  fuzz::Lines lines(data, size);
  const std::string options = lines.next();
  const std::string tag = lines.next();
  const fuzz::ExactText exact_options(options);
  const fuzz::ExactText exact_tag(tag);
  const int handles = Qk_mem_num_handles;
  const int hid = qk_mem_inew_handle(exact_options, exact_tag, "fuzz.cpp", 1);
  if (hid == 0) {
    const int code = qk_mem_error();
    fuzz::require(code == 11102 || code == 11110 || code == 5012, "code");
    fuzz::require(code != 11102 || !options.empty(), "empty options are refused");
    fuzz::require((code == 11110) == (code != 11102 && code != 5012 && tag.size() > 2), "tag");
  } else {
    fuzz::require(tag.size() <= 2 && options.size() <= 256,
                  "options or a tag that are too long are accepted");
    use(hid);
  }
  fuzz::require(Qk_mem_num_handles == handles, "a wrong number of handles");
  fuzz::require(tag.empty() || qk_mem_tag_size(exact_tag) == 0, "bytes are left under a tag");
  fuzz::require(options == static_cast<const char*>(exact_options), "the options are changed");
  return 0;
}
