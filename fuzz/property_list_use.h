#pragma once

#include <stdexcept>
#include <string>

#include "roster/plist/property_list.h"
#include "roster/value/mutable_dictionary.h"
#include "roster/value/value_description.h"

namespace roster::fuzzing {

inline void require(bool holds, const std::string& what) {
  if (!holds) throw std::logic_error("does not hold: " + what);
}

/// Walks, compares, changes and writes whatever was read; what is sound must come back as it was.
inline void use(std::string_view file) {
  const Result<Value> value = parsePropertyList(Bytes(file), Soundness::inspected);
  const Result<Value> again = parsePropertyList(Bytes(file));
  const bool isSound = value && value->fault() == Fault::none;
  require(bool(again) == isSound, "only what is sound is accepted");
  require(again || !again.error().message.empty(), "what is refused is refused for a reason");
  if (!value) return;
  describe(*value);
  require(*value == *value, "a value equals itself");
  if (const std::optional<Dictionary> dictionary = value->dictionary()) {
    auto changed = MutableDictionary::copyOf(*dictionary);
    changed.set("another", *value);
    for (const DictionaryEntry& entry : changed) {
      require(!entry.key.isNil() && !entry.value.isNil(), "what cannot be read is left out");
      require(entry.value.fault() != Fault::none || changed.find(entry.key) == entry.value,
              "what is walked is found");
    }
    static_cast<void>(binaryPropertyList(changed));
  }
  const Result<std::string> written = binaryPropertyList(*value);
  if (!isSound) return;

  require(*value == *again, "one file reads as one value");
  require(bool(written), "what is sound can be written");
  const Result<Value> back = parsePropertyList(Bytes(*written));
  require(bool(back) && *back == *value, "what was written reads as it was");
  require(describe(*back) == describe(*value), "and has its types and order");
  const Result<std::string> twice = binaryPropertyList(*back);
  require(bool(twice) && *twice == *written, "written again, it is the same file");
}

}  // namespace roster::fuzzing
