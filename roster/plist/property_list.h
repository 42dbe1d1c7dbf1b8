#pragma once

#include <string>

#include "roster/base/bytes.h"
#include "roster/base/export.h"
#include "roster/base/result.h"
#include "roster/value/value.h"

namespace roster {

/// Whether a value that is not sound down to its last leaf is accepted.
enum class Soundness {
  /// Nothing in the value may have a fault: what is returned can be followed, compared and written without
  /// care.
  required,
  /// Faulty parts stay in the tree or are left out of it, and the caller asks `Value::fault` before it
  /// follows
  /// a container: it is also that of a container from which something was left out. For files whose good
  /// parts
  /// must survive.
  inspected,
};

/// Reads a property list, binary or XML, whichever the bytes are. The values may refer to the bytes, which
/// are kept as long as one of them is. Fails with `std::errc::bad_message`, or `file_too_large` beyond 4 GiB,
/// and a text that says what is wrong, without the file's name; `soundness` says whether a fault in an inner
/// value is a failure. May be called from any thread.
ROSTER_EXPORT Result<Value> parsePropertyList(Bytes bytes, Soundness soundness = Soundness::required);

/// The value in the binary format: equal strings and numbers stored once, shared containers stored once,
/// references and offsets as narrow as they can be. Fails, naming the cause and where it is, on nil; on a
/// tree with a container that contains itself, is nested deeper than the library reads, or has a fault; on
/// text that is not UTF-8; where what stands two levels below the top unfolds to more than the library reads;
/// and when the result would be larger than 4 GiB. (The whole may unfold to more, when records share large
/// parts; it is then read as `Soundness::inspected`, record by record.) The value must not be changed
/// meanwhile.
ROSTER_EXPORT Result<std::string> binaryPropertyList(const Value& value);

}  // namespace roster
