#ifndef EXAMPLES_GROWTH_SESSIONS_H_
#define EXAMPLES_GROWTH_SESSIONS_H_

/** What a server knows of its customers. */
namespace sessions {

/** Reads what is needed at the first request. Later calls do nothing. */
void warm_up();

/** Answers a customer, and remembers him until he signs out. */
void greet(int customer);

void sign_out(int customer);

}  // namespace sessions

#endif  // EXAMPLES_GROWTH_SESSIONS_H_
