#include "roster/value/document_comparison.h"

#include <cstring>

#include "roster/base/limits.h"

namespace roster {

bool DocumentComparison::equal(const Dictionary& left, const Dictionary& right) {
  const Value& here = ValueAccess::contents(left);
  const Value& there = ValueAccess::contents(right);
  const bool areInDocuments = ValueAccess::isInDocument(here) && ValueAccess::isInDocument(there);
  if (areInDocuments && begin(ValueAccess::document(here), ValueAccess::document(there)) &&
      areAlike(ValueAccess::object(here), ValueAccess::object(there), 0))
    return true;
  return left == right;
}

/// Whether there is anything to win: for dictionaries of ever other files the notes are of no use.
bool DocumentComparison::begin(const Document& left, const Document& right) {
  constexpr unsigned maximumDocuments = 4;
  if (&left == left_ && &right == right_) return true;
  if (++documents_ > maximumDocuments) return false;
  left_ = &left;
  right_ = &right;
  alike_.assign(left.objectCount(), 0);
  work_ = 0;
  return true;
}

bool DocumentComparison::areAlike(std::uint32_t left, std::uint32_t right, std::size_t depth) {
  if (left >= left_->objectCount() || right >= right_->objectCount()) return false;
  if (alike_[left] == right + 1) return true;
  // Files that share their parts in different ways could make the notes be written anew again and again.
  constexpr std::uint64_t workPerObject = 16;
  if (++work_ > workPerObject * alike_.size() || depth > limits::maximumDepth) return false;
  if (!areContentsAlike(left_->header(left), right_->header(right), depth)) return false;
  alike_[left] = right + 1;
  return true;
}

bool DocumentComparison::areContentsAlike(const ObjectHeader& left, const ObjectHeader& right,
                                          std::size_t depth) {
  const bool areSameKind = left.type == right.type && left.count == right.count;
  if (!areSameKind || left.fault != Fault::none || right.fault != Fault::none) return false;
  const std::byte* here = left_->layout_.bytes() + left.contents;
  const std::byte* there = right_->layout_.bytes() + right.contents;
  switch (left.type) {
    case ObjectClass::unreadable:
      return false;
    case ObjectClass::boolean:
      return here[-1] == there[-1];
    case ObjectClass::array:
    case ObjectClass::dictionary:
      break;
    default:
      return std::memcmp(here, there, left_->layout_.end(left) - left.contents) == 0;
  }
  for (std::uint64_t index = 0; index < left.references(); ++index) {
    const std::uint64_t leftPart = left_->layout_.reference(left, index);
    const std::uint64_t rightPart = right_->layout_.reference(right, index);
    if (leftPart >= alike_.size() || rightPart >= right_->objectCount()) return false;
    if (!areAlike(static_cast<std::uint32_t>(leftPart), static_cast<std::uint32_t>(rightPart), depth + 1))
      return false;
  }
  return true;
}

}  // namespace roster
