/* Prints the fingerprints of texts. It forgets the context of each text that it refuses. */
/* usage: adapters_openssl [fixed] */
#include "qkmem/adapters/openssl.h"

#include <openssl/evp.h>
#include <stdio.h>
#include <string.h>

#include "qkmem/profile.h"

static int forgets_contexts = 1;

/* Returns 1 if there is a fingerprint, which has 32 bytes then. */
static int fingerprint(const char* text, unsigned char* result) {
  EVP_MD_CTX* const context = EVP_MD_CTX_new();
  const int is_ready = context != NULL && EVP_DigestInit_ex(context, EVP_sha256(), NULL) == 1;
  if (is_ready && text[0] == '\0' && forgets_contexts) return 0;
  const int is_done = is_ready && text[0] != '\0' &&
                      EVP_DigestUpdate(context, text, strlen(text)) == 1 &&
                      EVP_DigestFinal_ex(context, result, NULL) == 1;
  EVP_MD_CTX_free(context);
  return is_done;
}

int main(int argc, char** argv) {
  forgets_contexts = argc < 2 || strcmp(argv[1], "fixed") != 0;
  if (qk_mem_adapt_openssl(qk_mem_new_handle("MULTITHREADED", "SS")) != 1) return 1;
  const char* const texts[] = {"Ada", "", "Grace", "", "Barbara", ""};
  qk_mem_push_site("fingerprints");
  for (size_t i = 0; i < sizeof texts / sizeof *texts; ++i) {
    unsigned char result[EVP_MAX_MD_SIZE];
    if (fingerprint(texts[i], result)) printf("%s: %02x%02x...\n", texts[i], result[0], result[1]);
  }
  qk_mem_pop_site();
  return 0;
}
