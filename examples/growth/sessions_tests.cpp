// Tests of which one fails, because it leaves memory behind. They need GoogleTest.
#include <gtest/gtest.h>

#include "examples/growth/sessions.h"
#include "qkmem/gtest.hpp"

namespace {

const bool is_watched = (sessions::warm_up(), qk::fail_tests_that_grow("TAG=SE"));

TEST(Sessions, CanSignOutAlthoughNobodySignedIn) { sessions::sign_out(1); }

TEST(Sessions, AreForgottenAtSignOut) {
  sessions::greet(1);
  sessions::sign_out(1);
}

}  // namespace
