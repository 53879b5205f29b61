#ifndef QKMEM_STATUS_H_
#define QKMEM_STATUS_H_

#include <exception>

#pragma GCC visibility push(default)

namespace qk {

/**
 * Describes why a call failed.
 *
 * The caller owns the object and passes its address. A call that fails fills it and returns its
 * code. Fields that it has no value for keep what they had. Copies are independent. One thread at a
 * time uses an object. Every text is terminated, and cut to the size of its field.
 */
class Status : public std::exception {
 public:
  int code = 0;             ///< the error code; 0 is success
  int detail1 = 0;          ///< always 0 in this library
  int detail2 = 0;          ///< always 0 in this library
  int num1 = 0;             ///< first number of the message, such as a length
  int num2 = 0;             ///< second number of the message, such as the limit
  char subject[257] = {};   ///< name that the failure is about, such as a routine
  char location[320] = {};  ///< "file(routine):line" in the library, see src/qkmem.cpp
  char arg1[257] = {};      ///< first word of the message, such as the keyword
  char arg2[257] = {};      ///< second word of the message
  char host[64] = {};       ///< host name of the machine

  /** Creates a success: all numbers are 0 and all texts are empty. */
  Status() noexcept = default;
  Status(const Status&) noexcept = default;
  Status& operator=(const Status&) noexcept = default;
  ~Status() override;

  /** Resets the object to a success: all numbers are 0 and all texts are empty. */
  void init() noexcept;

  /** Sets code and details to 0 and empties the texts. num1 and num2 keep their values. */
  void clear() noexcept;
};

}  // namespace qk

extern "C" {

/**
 * Clears a status: its code, details and texts. num1 and num2 keep their values.
 *
 * @param status  the caller's; nothing is done for null. One thread at a time uses it.
 */
void QK_CLEAR_STATUS(qk::Status* status);

/**
 * Resets a status to a success: all numbers are 0 and all texts are empty.
 *
 * @param status  the caller's; nothing is done for null. One thread at a time uses it.
 */
void QK_INIT_STATUS(qk::Status* status);

}  // extern "C"

#pragma GCC visibility pop

#endif  // QKMEM_STATUS_H_
