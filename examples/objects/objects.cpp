// The C++ interface, part by part: objects, scopes, containers, an arena, and what is forgotten.
#include <cstdio>
#include <map>
#include <memory_resource>
#include <string>
#include <vector>

#include "qkmem/qkmem.hpp"

namespace {

/** Prints a line when it is destroyed. */
class Star {
 public:
  explicit Star(const char* name = "unnamed") : name_(name) {}
  Star(const Star&) = delete;
  Star& operator=(const Star&) = delete;
  ~Star() { std::printf("  %s sets\n", name_); }

 private:
  const char* name_;
};

void say(const char* what, const qk::Handle& handle) {
  std::printf("%s: %zu bytes\n", what, handle.size());
}

void objects() {
  const qk::Handle sky("DATA", "SK");
  Star* vega = qk::make<Star>(sky, "Vega");
  double* distances = qk::make_array<double>(sky, 3);
  say("an object and an array", sky);
  qk::destroy(sky, vega);
  qk::destroy<double[]>(sky, distances);
  say("destroyed", sky);
}

void scopes() {
  const qk::Handle sky("DATA", "SK");
  {
    const auto vega = qk::make_unique<Star>(sky, "Vega");
    const auto distances = qk::make_unique<double[]>(sky, 3);
    say("in a scope", sky);
  }
  say("behind it", sky);
}

void end_of_a_handle() {
  const qk::Handle sky("DATA", "SK");
  [[maybe_unused]] const Star* deneb = qk::make<Star>(sky, "Deneb");
  [[maybe_unused]] const Star* three = qk::make_array<Star>(sky, 3);
  std::printf("the handle ends with its objects:\n");
}

void containers() {
  const qk::Handle notes("DATA", "NO");
  qk::memory_resource resource(notes);
  std::pmr::map<std::pmr::string, int> pages(&resource);
  pages["Stars of the summer triangle"] = 12;
  say("a std::pmr::map", notes);
  std::vector<int, qk::allocator<int>> years(notes);
  years.assign(100, 1970);
  say("a std::vector beside it", notes);
}

void one_night(std::pmr::memory_resource& resource) {
  std::pmr::vector<std::pmr::string> seen(&resource);
  seen.emplace_back("Vega, Deneb, Altair and Arcturus");
}

void arena() {
  qk::Handle blocks("BLOCKMGMT BLOCKSIZE=4096", "AR");
  qk::memory_resource resource(blocks);
  for (int night = 0; night < 1000; ++night) {
    one_night(resource);
    blocks.clear();
  }
  say("an arena after a thousand nights", blocks);
}

void misuse() {
  const qk::Handle sky("DATA", "SK");
  qk::destroy(sky, new Star("a star of another sky"));
}

/** Releases the handle, so that nothing deletes it and its contents. */
void forgotten() {
  const int sky = qk::Handle("DATA", "SK").release();
  [[maybe_unused]] const Star* altair = qk::make<Star>(sky, "Altair");
  [[maybe_unused]] const double* distances = qk::make_array<double>(sky, 5);
  auto* distant = qk::make<std::vector<int, qk::allocator<int>>>(sky, qk::allocator<int>(sky));
  distant->push_back(42);
}

}  // namespace

int main() {
  objects();
  scopes();
  end_of_a_handle();
  containers();
  arena();
  misuse();
  forgotten();
  return 0;
}
