#include "tests/seeded/server.h"

#include <cstdio>

#include "tests/seeded/memory.h"

namespace seeded {
namespace {

constexpr std::size_t kKiB = 1024;

/** A name that differs from request to request, and not in its length. */
class Name {
 public:
  Name(const char* kind, int number) {
    std::snprintf(text_, sizeof text_, "%s-%06d", kind, number);
  }
  [[nodiscard]] const char* text() const { return text_; }

 private:
  char text_[40];
};

}  // namespace

Server::Server() {
  read_configuration();
  fill_tables();
}

void Server::read_configuration() {
  const Buffer file(configuration_, 64 * kKiB);
  const Buffer tokens(configuration_, 20 * kKiB);
  const Buffer includes(configuration_, 2 * kKiB);
  keep(configuration_, 6 * kKiB);
  for (int i = 0; i < 60; ++i) {
    const Buffer line(configuration_, 120);
    const Buffer unquoted(configuration_, 100);
    qk_mem_strdup(configuration_, Name("setting", i).text());
    qk_mem_strdup(configuration_, Name("value-of-a-setting", i).text());
  }
  keep(QK_MEM_DATA_HANDLE, 32 * kKiB);
  qk_mem_strdup(QK_MEM_DATA_HANDLE, "/var/log/server.log");
  keep(QK_MEM_DATA_HANDLE, 4 * kKiB);
}

void Server::fill_tables() {
  qk_mem_calloc(routes_, 512, 80);
  for (int i = 0; i < 128; ++i) {
    const Buffer pattern(routes_, 200);
    const Buffer states(routes_, 3 * kKiB);
    qk_mem_strdup(routes_, Name("/shop/articles/category", i).text());
    keep(routes_, 96);
  }
  qk_mem_calloc(words_, 1024, 8);
  for (int i = 0; i < 1000; ++i) qk_mem_strdup(words_, Name("word", i).text());
  qk_mem_calloc(cache_, kPages, 24);
  qk_mem_calloc(sessions_, 1024, 48);
  keep(metrics_, 16 * kKiB);
  for (int i = 0; i < 50; ++i) qk_mem_strdup(metrics_, Name("requests-per-second", i).text());
  void* growing = keep(QK_MEM_DATA_HANDLE, 1 * kKiB);
  growing = qk_mem_realloc(QK_MEM_DATA_HANDLE, growing, 8 * kKiB);
  qk_mem_realloc(QK_MEM_DATA_HANDLE, growing, 24 * kKiB);
}

void Server::serve(int request) {
  read_request(request);
  answer(request);
  cache_page(request);
  note_session(request);
}

void Server::read_request(int request) const {
  const Buffer line(requests_, 200);
  const Buffer headers(requests_, 2 * kKiB);
  const Buffer cookies(requests_, 300);
  const Buffer url(scratch_, 180);
  const Buffer query(scratch_, 90);
  if (request % 4 == 0) {
    const Buffer body(requests_, 8 * kKiB);
    const Buffer form(requests_, 1 * kKiB);
    const Buffer fields(scratch_, 500);
  }
  if (request % 50 == 0) {
    const Buffer upload(requests_, 200 * kKiB);
    const Buffer digest(scratch_, 64);
  }
}

void Server::answer(int request) const {
  const Buffer user(sessions_, 64);
  const Buffer rights(sessions_, 128);
  const Buffer rows(requests_, 6 * kKiB);
  const Buffer page(requests_, 16 * kKiB);
  const Buffer title(scratch_, 80);
  const Buffer head(requests_, 400);
  if (request % 3 == 0) {
    const Buffer compressed(requests_, 5 * kKiB);
    const Buffer window(requests_, 32 * kKiB);
  }
  const Buffer log_line(QK_MEM_DATA_HANDLE, 160);
}

void Server::cache_page(int request) {
  void*& page = pages_[request % kPages];
  qk_mem_free(cache_, page);
  page = keep(cache_, 2 * kKiB);
}

void Server::note_session(int request) {
  char*& user = users_[request % kSessions];
  qk_mem_free(sessions_, user);
  user = qk_mem_strdup(sessions_, Name("user", request).text());
}

}  // namespace seeded
