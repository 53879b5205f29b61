#ifndef QKMEM_STATUS_H_
#define QKMEM_STATUS_H_

#include <exception>

#pragma GCC visibility push(default)

namespace qk {

/**
 * Tells a caller why a call failed.
 *
 * The caller owns the object and passes its address; the call that fails fills it and returns its
 * code. A plain record: copies are independent, and threads must not use one object at once. Every
 * text is terminated, and cut where its field ends.
 */
class Status : public std::exception {
 public:
  int code = 0;             ///< what went wrong; 0 is success
  int detail1 = 0;          ///< 0 unless the code has more to say
  int detail2 = 0;          ///< 0 unless the code has more to say
  int num1 = 0;             ///< first number of the message, such as a length
  int num2 = 0;             ///< second number of the message, such as the limit
  char subject[257] = {};   ///< name that the failure is about
  char location[320] = {};  ///< "file(routine):line" of the failure
  char arg1[257] = {};      ///< first word of the message
  char arg2[257] = {};      ///< second word of the message
  char host[64] = {};       ///< name of the machine

  /** A success: every number is 0 and every text empty. */
  Status() noexcept = default;
  Status(const Status&) noexcept = default;
  Status& operator=(const Status&) noexcept = default;
  ~Status() override;

  /** Puts the object into the state that it was made in. */
  void init() noexcept;

  /** Makes it a success and empties the texts; num1 and num2 stay. */
  void clear() noexcept;
};

}  // namespace qk

extern "C" {

/** Same as `status->clear()`. Null: nothing happens. */
void QK_CLEAR_STATUS(qk::Status* status);

/** Same as `status->init()`. Null: nothing happens. */
void QK_INIT_STATUS(qk::Status* status);

}  // extern "C"

#pragma GCC visibility pop

#endif  // QKMEM_STATUS_H_
