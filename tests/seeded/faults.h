#ifndef TESTS_SEEDED_FAULTS_H_
#define TESTS_SEEDED_FAULTS_H_

#include <string_view>

#include "tests/seeded/server.h"

namespace seeded {

/** Something wrong that happens with each request. */
using Fault = void (*)(const Server& server, int request);

/** The fault of that name, or null. "none" does nothing. */
[[nodiscard]] Fault fault_named(std::string_view name);

}  // namespace seeded

#endif  // TESTS_SEEDED_FAULTS_H_
