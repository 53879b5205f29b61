#ifndef SUPPORT_NUMBER_TREE_H_
#define SUPPORT_NUMBER_TREE_H_

#include <cstdint>

namespace qk {

/**
 * Search trees of numbers from 1 on, which stand for things that are sorted by a key of their own.
 * All nodes are in one array, which the caller provides: number n has nodes[n]. The root of a tree
 * is a number too, 0 for an empty tree, so several trees can share an array.
 *
 * Each number has a fixed pseudo-random rank, and no node is below one with a lower rank. So the
 * trees stay flat, whatever the order in which numbers come and go.
 *
 * `before` says of a number in the tree whether its key is before the one that is meant. No two
 * numbers in a tree have equal keys.
 */
struct NumberTreeNode {
  std::uint32_t left;  // 0 for none
  std::uint32_t right;
};

/** Different for all numbers. */
[[nodiscard]] inline std::uint32_t rank_in_tree(std::uint32_t number) {
  number = (number ^ number >> 16) * 0x7FEB352DU;
  number = (number ^ number >> 15) * 0x846CA68BU;
  return number ^ number >> 16;
}

/** The first number whose key is not before; 0 if there is none. */
template <class Before>
[[nodiscard]] std::uint32_t first_not_before(const NumberTreeNode* nodes, std::uint32_t root,
                                             Before before) {
  std::uint32_t found = 0;
  while (root != 0) {
    if (before(root)) {
      root = nodes[root].right;
    } else {
      found = root;
      root = nodes[root].left;
    }
  }
  return found;
}

/** The last number whose key is before; 0 if there is none. */
template <class Before>
[[nodiscard]] std::uint32_t last_before(const NumberTreeNode* nodes, std::uint32_t root,
                                        Before before) {
  std::uint32_t found = 0;
  while (root != 0) {
    if (before(root)) {
      found = root;
      root = nodes[root].right;
    } else {
      root = nodes[root].left;
    }
  }
  return found;
}

/** Adds a number, which is in no tree of these nodes. `before` compares with its key. */
template <class Before>
void add_to_tree(NumberTreeNode* nodes, std::uint32_t& root, std::uint32_t number, Before before) {
  const std::uint32_t rank = rank_in_tree(number);
  std::uint32_t* link = &root;
  while (*link != 0 && rank_in_tree(*link) < rank) {
    link = before(*link) ? &nodes[*link].right : &nodes[*link].left;
  }
  // The number takes this place, and what was here is divided into what is before and behind it.
  std::uint32_t rest = *link;
  *link = number;
  std::uint32_t* left = &nodes[number].left;
  std::uint32_t* right = &nodes[number].right;
  while (rest != 0) {
    if (before(rest)) {
      *left = rest;
      left = &nodes[rest].right;
      rest = *left;
    } else {
      *right = rest;
      right = &nodes[rest].left;
      rest = *right;
    }
  }
  *left = 0;
  *right = 0;
}

/** Removes a number, which is in the tree. `before` compares with its key. */
template <class Before>
void remove_from_tree(NumberTreeNode* nodes, std::uint32_t& root, std::uint32_t number,
                      Before before) {
  std::uint32_t* link = &root;
  while (*link != number) link = before(*link) ? &nodes[*link].right : &nodes[*link].left;
  // Its two subtrees are joined in its place, always with the lower rank on top.
  std::uint32_t left = nodes[number].left;
  std::uint32_t right = nodes[number].right;
  while (left != 0 && right != 0) {
    if (rank_in_tree(left) < rank_in_tree(right)) {
      *link = left;
      link = &nodes[left].right;
      left = *link;
    } else {
      *link = right;
      link = &nodes[right].left;
      right = *link;
    }
  }
  *link = left != 0 ? left : right;
}

}  // namespace qk

#endif  // SUPPORT_NUMBER_TREE_H_
