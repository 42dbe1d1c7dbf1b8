#pragma once

#include <string>

namespace roster::bench {

/// What no implementation can do without: the bytes of the file in memory that nobody used before.
void readIntoFreshMemory(const std::string& path);
/// Gives the memory of the last call back; kept out of what is measured.
void releaseFreshMemory();

/// What no save that survives a power cut can do without: the bytes in a new file, synced, renamed over the
/// old one, and the folder synced.
void writeDurably(const std::string& path, const std::string& bytes);

/// The memory that this process has at most used so far, and uses now, in bytes.
std::size_t peakMemory();
/// Lets the peak begin anew with what is used now.
void forgetPeakMemory();
std::size_t currentMemory();

}  // namespace roster::bench
