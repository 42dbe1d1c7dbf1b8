#pragma once

#include <algorithm>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

namespace roster {

/// A collection of account types that is only asked whether it contains one.
class TypeSet {
 public:
  TypeSet(std::initializer_list<std::string_view> types) : types_(types.begin(), types.end()) {}
  template <class Range>
  explicit TypeSet(const Range& types) : types_(std::begin(types), std::end(types)) {}

  bool contains(std::string_view type) const {
    return std::find(types_.begin(), types_.end(), type) != types_.end();
  }

 private:
  std::vector<std::string> types_;
};

}  // namespace roster
