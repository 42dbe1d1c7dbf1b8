#pragma once

#include <string>
#include <string_view>

#include "roster/base/bytes.h"
#include "roster/base/export.h"
#include "roster/base/result.h"
#include "roster/value/value.h"

namespace roster {

/// Whether a value that is not sound to its last leaf is accepted.
enum class Soundness {
  /// The top value must have no fault: what is returned can be followed, compared and written without care.
  required,
  /// Faulty parts stay in the tree; the caller asks `Value::fault` before it follows a container. For files
  /// of which
  /// the good parts must survive.
  inspected,
};

/// Reads a property list, binary or XML, whichever the bytes are; the bytes are kept in memory by the values
/// read. On failure the error says what is wrong, without the file's name.
ROSTER_EXPORT Result<Value> parsePropertyList(Bytes bytes, Soundness soundness = Soundness::required);

/// The value in the binary format: equal strings and numbers stored once, shared containers stored once,
/// references and offsets as narrow as they can be. Fails, naming the cause, on a tree with a container that
/// contains itself, is deeper than the library reads, or has a fault; on text that is not UTF-8; and where
/// what stands two levels below the top unfolds to more than the library reads. (The whole may unfold to
/// more, when records share large parts; it is then read as `Soundness::inspected`, record by record.)
ROSTER_EXPORT Result<std::string> binaryPropertyList(const Value& value);

}  // namespace roster
