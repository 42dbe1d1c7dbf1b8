#pragma once

#include <bit>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "roster/plist/property_list.h"

namespace roster::testing {

// Binary property lists put together by hand, so that they can be wrong in every way. An object is its bytes.

inline std::string bigEndian(std::uint64_t number, unsigned width) {
  std::string bytes;
  for (unsigned byte = width; byte-- > 0;) {
    bytes += byte < 8 ? static_cast<char>(number >> (8 * byte)) : '\0';
  }
  return bytes;
}

/// A marker with its length, as an integer object of `lengthWidth` bytes where it does not fit the marker or
/// a width is given.
inline std::string marker(unsigned kind, std::uint64_t length, unsigned lengthWidth = 0) {
  if (lengthWidth == 0 && length < 15) return {static_cast<char>(kind << 4U | length)};
  const unsigned width = lengthWidth == 0 ? 8 : lengthWidth;
  return std::string{static_cast<char>(kind << 4U | 0xFU),
                     static_cast<char>(0x10 | std::countr_zero(width))} +
         bigEndian(length, width);
}

inline std::string textObject(std::string_view ascii) { return marker(5, ascii.size()) + std::string(ascii); }

inline std::string references(const std::vector<std::uint64_t>& objects, unsigned width) {
  std::string bytes;
  for (const std::uint64_t object : objects) bytes += bigEndian(object, width);
  return bytes;
}

inline std::string arrayObject(const std::vector<std::uint64_t>& elements, unsigned width = 1) {
  return marker(0xA, elements.size()) + references(elements, width);
}

/// First all keys, then all values.
inline std::string dictionaryObject(const std::vector<std::uint64_t>& keysAndValues, unsigned width = 1) {
  return marker(0xD, keysAndValues.size() / 2) + references(keysAndValues, width);
}

struct Frame {
  unsigned referenceWidth = 1;
  unsigned offsetWidth = 4;
  std::uint64_t top = 0;
};

inline std::string assemble(const std::vector<std::string>& objects, Frame frame = {}) {
  std::string file = "bplist00";
  std::vector<std::uint64_t> offsets;
  for (const std::string& object : objects) {
    offsets.push_back(file.size());
    file += object;
  }
  const std::uint64_t table = file.size();
  file += references(offsets, frame.offsetWidth) + std::string(6, '\0');
  file += bigEndian(frame.offsetWidth, 1) + bigEndian(frame.referenceWidth, 1);
  return file + bigEndian(objects.size(), 8) + bigEndian(frame.top, 8) + bigEndian(table, 8);
}

inline Value bytesValue(std::string_view text) { return Value::data(std::as_bytes(std::span(text))); }

inline Result<Value> parse(std::string_view bytes, Soundness soundness = Soundness::required) {
  return parsePropertyList(Bytes(bytes), soundness);
}

}  // namespace roster::testing
