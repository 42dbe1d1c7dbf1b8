#pragma once

#include <string>

namespace roster::bench {

/// The baseline of a load: reads the file into memory that the process has not used before.
void readIntoFreshMemory(const std::string& path);
/// Returns the memory of the last call to the system; not part of what is measured.
void releaseFreshMemory();

/// The baseline of a save that survives a power cut: writes the bytes to a new file, syncs it, renames it
/// over the old one and syncs the folder.
void writeDurably(const std::string& path, const std::string& bytes);

/// The most memory that this process has used since the peak was forgotten, in bytes.
std::size_t peakMemory();
/// Resets the peak to what is used now.
void forgetPeakMemory();
/// The memory that this process uses now, in bytes.
std::size_t currentMemory();

}  // namespace roster::bench
