#pragma once

#include <cstdlib>
#include <iostream>

#include "roster/plist/property_list.h"
#include "roster/value/mutable_dictionary.h"
#include "roster/value/value_description.h"

namespace roster::fuzzing {

inline void require(bool holds, std::string_view what) {
  if (holds) return;
  std::cerr << "does not hold: " << what << '\n';
  std::abort();
}

/// Follows a value to its leaves, as far as the given work allows.
inline void walk(const Value& value, std::size_t& work) {
  if (work == 0) return;
  --work;
  describe(value.fault());
  if (const std::optional<Array> array = value.array()) {
    for (const Value& element : *array) {
      if (work == 0) return;
      walk(element, work);
    }
  } else if (const std::optional<Dictionary> dictionary = value.dictionary()) {
    for (const DictionaryEntry& entry : *dictionary) {
      if (work == 0) return;
      const bool isReadable = !entry.key.isNil() && !entry.value.isNil();
      require(!isReadable || dictionary->find(entry.key).kind() == entry.value.kind(),
              "what is walked is found");
      walk(entry.value, work);
    }
  }
}

/// Walks, compares and changes whatever was read; what is sound must also survive being written.
inline void use(std::string_view file) {
  const Result<Value> value = parsePropertyList(Bytes(file), Soundness::inspected);
  const Result<Value> again = parsePropertyList(Bytes(file));
  if (!value) {
    require(!again && !again.error().message.empty(), "what cannot be inspected is refused");
    return;
  }
  // `describe` follows a value of any depth, `walk` only a sound one.
  describe(*value);
  const bool isSound = value->fault() == Fault::none;
  require(bool(again) == isSound, "only what is sound is accepted");
  if (const std::optional<Dictionary> dictionary = value->dictionary()) {
    auto changed = MutableDictionary::copyOf(*dictionary);
    changed.set("another", *value);
    require(!changed.empty() && changed.find("another").isDictionary(), "a change is seen");
    static_cast<void>(binaryPropertyList(changed));
  }
  const Result<std::string> written = binaryPropertyList(*value);
  if (!isSound) return;

  std::size_t work = 100'000;
  walk(*value, work);
  require(*value == *again, "one file reads as one value");
  require(bool(written), "what is sound can be written");
  const Result<Value> back = parsePropertyList(Bytes(*written), Soundness::inspected);
  require(bool(back) && *back == *value, "what was written reads as it was");
  require(describe(*back) == describe(*value), "and has its types and order");
  const Result<std::string> twice = binaryPropertyList(*back);
  require(bool(twice) && *twice == *written, "written again, it is the same file");
}

}  // namespace roster::fuzzing
