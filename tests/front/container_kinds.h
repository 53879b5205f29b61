#ifndef TESTS_FRONT_CONTAINER_KINDS_H_
#define TESTS_FRONT_CONTAINER_KINDS_H_

#include <gtest/gtest.h>

#include <cstddef>
#include <deque>
#include <forward_list>
#include <functional>
#include <iterator>
#include <list>
#include <map>
#include <set>
#include <string>
#include <tuple>
#include <type_traits>
#include <typeinfo>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

/** One of each kind of standard container, and a function that exercises one. */
namespace containers {

/** The standard's containers over an allocator. */
template <template <class> class Allocator>
using Kinds =
    std::tuple<std::vector<int, Allocator<int>>, std::vector<bool, Allocator<bool>>,
               std::vector<char, Allocator<char>>, std::deque<int, Allocator<int>>,
               std::list<int, Allocator<int>>, std::forward_list<int, Allocator<int>>,
               std::set<int, std::less<>, Allocator<int>>,
               std::multiset<int, std::less<>, Allocator<int>>,
               std::map<int, long, std::less<>, Allocator<std::pair<const int, long>>>,
               std::multimap<int, long, std::less<>, Allocator<std::pair<const int, long>>>,
               std::unordered_set<int, std::hash<int>, std::equal_to<>, Allocator<int>>,
               std::unordered_multiset<int, std::hash<int>, std::equal_to<>, Allocator<int>>,
               std::unordered_map<int, long, std::hash<int>, std::equal_to<>,
                                  Allocator<std::pair<const int, long>>>,
               std::unordered_multimap<int, long, std::hash<int>, std::equal_to<>,
                                       Allocator<std::pair<const int, long>>>,
               std::basic_string<char, std::char_traits<char>, Allocator<char>>,
               std::basic_string<wchar_t, std::char_traits<wchar_t>, Allocator<wchar_t>>>;

template <class Container>
[[nodiscard]] std::size_t size_of(const Container& container) {
  return static_cast<std::size_t>(std::distance(container.begin(), container.end()));
}

template <class Value>
[[nodiscard]] Value value(int number) {
  if constexpr (std::is_arithmetic_v<Value>) {
    return static_cast<Value>(number);
  } else {
    return Value(number, number);
  }
}

template <class Container, class = void>
inline constexpr bool kHasBack = false;
template <class Container>
inline constexpr bool kHasBack<Container, std::void_t<decltype(std::declval<Container&>().push_back(
                                              std::declval<typename Container::value_type>()))>> =
    true;

template <class Container, class = void>
inline constexpr bool kHasOnlyAFront = false;
template <class Container>
inline constexpr bool
    kHasOnlyAFront<Container, std::void_t<decltype(std::declval<Container&>().before_begin())>> =
        true;

/** Adds the values 0 to `count` - 1. */
template <class Container>
void fill(Container& container, int count) {
  for (int i = 0; i < count; ++i) {
    auto next = value<typename Container::value_type>(i);
    if constexpr (kHasBack<Container>) {
      container.push_back(next);
    } else if constexpr (kHasOnlyAFront<Container>) {
      container.push_front(next);
    } else {
      container.insert(next);
    }
  }
}

/** Makes containers allocate and free memory in many ways. Calls `when_full` on the way. */
template <class Container, class Source, class Call>
void exercise(const Source& source, const Call& when_full) {
  Container first(source);
  fill(first, 300);
  ASSERT_EQ(size_of(first), 300U);
  Container copy(first, source);
  EXPECT_TRUE(copy == first);
  when_full();
  Container moved(std::move(copy));
  fill(copy, 5);  // NOLINT(bugprone-use-after-move): it can be used again
  moved = first;
  copy = std::move(moved);
  EXPECT_TRUE(copy == first);
  Container other(source);
  fill(other, 40);
  swap(other, first);
  EXPECT_EQ(size_of(first), 40U);
  EXPECT_EQ(size_of(other), 300U);
  first.clear();
  fill(first, 100);
  EXPECT_EQ(size_of(first), 100U);
}

/** Calls `test.template operator()<Container>()` for each kind. */
template <template <class> class Allocator, class Test>
void for_each_kind(const Test& test) {
  const auto of_one = [&]<class Container>(std::type_identity<Container>) {
    SCOPED_TRACE(typeid(Container).name());
    test.template operator()<Container>();
  };
  [&]<class... Containers>(std::type_identity<std::tuple<Containers...>>) {
    (of_one(std::type_identity<Containers>{}), ...);
  }(std::type_identity<Kinds<Allocator>>{});
}

}  // namespace containers

#endif  // TESTS_FRONT_CONTAINER_KINDS_H_
