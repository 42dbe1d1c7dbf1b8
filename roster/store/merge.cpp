#include "roster/store/merge.h"

#include "roster/value/mutable_dictionary.h"

namespace roster {

Dictionary mergeProperties(const Dictionary& inMemory, const Dictionary& original, const Dictionary& onDisk) {
  if (original.empty() || onDisk.empty()) return inMemory;
  // Nothing to bring into the file's version: the usual case, and one that need not look at any property.
  if (inMemory.sharesContentsWith(original)) return onDisk;
  auto merged = MutableDictionary::copyOf(onDisk);

  for (const DictionaryEntry& entry : inMemory) {
    if (entry.value != original.find(entry.key)) merged.set(entry.key, entry.value);
  }
  for (const DictionaryEntry& entry : original) {
    if (!inMemory.contains(entry.key)) merged.remove(entry.key);
  }
  return merged;
}

}  // namespace roster
