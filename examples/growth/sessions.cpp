#include "examples/growth/sessions.h"

#include <cstring>

#include "qkmem/qkmem.h"

namespace sessions {
namespace {

struct Session {
  Session* next;
  int customer;
  char* name;
};

const int memory = qk_mem_new_handle("DATA", "SE");
const int texts = qk_mem_new_handle("DATA", "TX");

Session* newest = nullptr;
char* greeting = nullptr;

Session** find(int customer) {
  Session** link = &newest;
  while (*link != nullptr && (*link)->customer != customer) link = &(*link)->next;
  return link;
}

void remember(int customer) {
  if (*find(customer) != nullptr) return;
  auto* const session = static_cast<Session*>(qk_mem_malloc(memory, sizeof(Session)));
  *session = {newest, customer, qk_mem_strdup(memory, "a customer's name")};
  newest = session;
}

}  // namespace

void warm_up() {
  if (greeting == nullptr) greeting = qk_mem_strdup(texts, "Good morning, ");
}

void greet(int customer) {
  warm_up();
  remember(customer);
  char* const answer = qk_mem_strdup(texts, greeting);
  qk_mem_free(texts, answer);
}

/** Forgets that the name has memory of its own. */
void sign_out(int customer) {
  Session** const link = find(customer);
  Session* const session = *link;
  if (session == nullptr) return;
  *link = session->next;
  qk_mem_free(memory, session);
}

}  // namespace sessions
