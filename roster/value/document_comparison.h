#pragma once

#include <cstdint>
#include <vector>

#include "roster/value/document.h"

namespace roster {

/// Compares many dictionaries of one file with those of another, most of which are expected to be equal: two
/// states of one registry. Equal parts that both files store in the same way are compared as the bytes that
/// they are, and shared ones once. Everything else is left to `operator==`, which decides the same.
class DocumentComparison {
 public:
  bool equal(const Dictionary& left, const Dictionary& right);

 private:
  bool areAlike(std::uint32_t left, std::uint32_t right, std::size_t depth);
  bool areContentsAlike(const ObjectHeader& left, const ObjectHeader& right, std::size_t depth);
  bool begin(const Document& left, const Document& right);

  const Document* left_ = nullptr;
  const Document* right_ = nullptr;
  /// For each object of the left file the number, plus one, of one that it is like.
  std::vector<std::uint32_t> alike_;
  std::uint64_t work_ = 0;
  unsigned documents_ = 0;
};

}  // namespace roster
