#pragma once

#include <cstdint>
#include <memory>

#include "roster/base/byte_sink.h"
#include "roster/base/result.h"
#include "roster/plist/numbered_objects.h"
#include "roster/value/value.h"

namespace roster {

/// A value that is known to be writable in the binary format, with the size that it takes there. The bytes
/// are made as they are written, and never all in memory.
class BinaryPropertyList {
 public:
  /// Fails as `binaryPropertyList` does. Later changes of live dictionaries do not reach what is written.
  /// Memory for the expected number of objects is taken at once.
  static Result<BinaryPropertyList> of(const Value& value, std::size_t expectedObjects);
  /// The same for a value that will not change as long as the property list lives.
  static Result<BinaryPropertyList> ofUnchanging(Value value, std::size_t expectedObjects = 0);

  std::uint64_t size() const { return size_; }
  /// Gives the bytes to the sink. Fails only where the sink fails.
  Result<> write(const ByteSink& sink) const;
  /// What writes it, as long as it lives.
  ByteSource source() const {
    return [this](const ByteSink& sink) { return write(sink); };
  }

 private:
  BinaryPropertyList(std::unique_ptr<const Value> value, NumberedObjects objects);

  /// What the objects refer to, the value itself included.
  std::unique_ptr<const Value> value_;
  NumberedObjects objects_;
  unsigned referenceWidth_;
  std::uint64_t tableOffset_;
  unsigned offsetWidth_;
  std::uint64_t size_;
};

}  // namespace roster
