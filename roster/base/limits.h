#pragma once

#include <cstddef>
#include <cstdint>

/// The largest input that the library accepts. A registry is a few levels deep and every value of it is
/// looked at a few times; a file or a client that asks for much more than that is hostile or broken, and is
/// refused with an error.
namespace roster::limits {

/// Containers inside containers, counted from the outermost one. Low enough that a recursive walk is safe on
/// the smallest thread stacks in use.
inline constexpr std::size_t maximumDepth = 512;

/// How many values a tree may unfold to, beyond a small multiple of the references it really stores. Shared
/// containers let sixty objects stand for 2^60 values; honest files share strings and little else.
inline constexpr std::uint64_t unfoldingAllowance = std::uint64_t{1} << 20;
inline constexpr std::uint64_t unfoldingFactor = 4;

/// Pairs of values that one comparison looks at before it gives up and calls the two different.
inline constexpr std::uint64_t comparisonWork = std::uint64_t{1} << 24;

/// Bytes of text or data that count as one more pair.
inline constexpr std::size_t bytesPerComparison = 64;

/// Characters of one value in a log line; the rest is left out and an ellipsis says so.
inline constexpr std::size_t descriptionLength = std::size_t{16} * 1024;

/// A property list larger than this is not read at all.
inline constexpr std::uint64_t maximumFileSize = std::uint64_t{1} << 32;

}  // namespace roster::limits
