// A library that tests load, call and unload. They know the numbers of these lines.

#include <algorithm>

using Callback = void (*)(void* data);

namespace called {

[[gnu::always_inline]] inline void inlined(Callback callback, void* data) {
#line 100
  callback(data);
  asm volatile("" : : : "memory");
}

namespace {

struct Widget {
  [[gnu::noinline]] void run(int times, Callback callback, void* data) {
    for (int i = 0; i < times; ++i) {
#line 200
      inlined(callback, data);
    }
  }
};

}  // namespace
}  // namespace called

extern "C" {

[[gnu::visibility("default")]] void call_back(Callback callback, void* data) {
#line 300
  called::Widget().run(1, callback, data);
  asm volatile("" : : : "memory");
}

// A second name, as those that C libraries have for their own use.
[[gnu::visibility("default"), gnu::alias("call_back")]] void __call_back(Callback callback,
                                                                         void* data);

[[gnu::visibility("default")]] void call_back_for_each(Callback callback, void* data) {
  void* const each[] = {data};
#line 400
  std::for_each(each, each + 1, callback);
}

}  // extern "C"
