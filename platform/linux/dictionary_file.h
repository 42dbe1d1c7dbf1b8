#pragma once

#include <string>

#include "platform/value.h"

namespace roster {

/// A property-list file as the dictionary it should hold.
struct DictionaryFile {
  /// Empty when the file is missing or cannot be used.
  Dictionary contents;
  /// Why a file that exists cannot be used, with its path; else empty.
  std::string complaint;
};

DictionaryFile readDictionaryFile(const std::string& path);

/// What the file holds now. It is read again only after it changed; otherwise a call costs one stat. A file
/// that cannot be used counts as empty and is one line in the system log each time it changes. May be called
/// from any thread.
Dictionary currentDictionary(const std::string& path);

}  // namespace roster
