#pragma once

#include <span>
#include <string>
#include <string_view>

#include "roster/base/bytes.h"
#include "roster/base/result.h"

namespace roster {

/// Reads a whole regular file into memory of its own. The error, "could not open PATH: REASON", is one for
/// which `isMissingFile` holds when there is no such file. Anything but a regular file (a folder, a pipe, a
/// device) is an error and is not waited for; so is a file beyond `limits::maximumFileSize`.
Result<Bytes> readFile(const std::string& path);

/// Puts the bytes at the path in one step: a reader finds the old file or the new one, never part of one, and
/// after success the new one survives a power cut. Missing folders on the way are made. The old file's mode
/// and owner are kept. A new file takes over those of the regular file at `modelPath`, as far as this process
/// may set them; without such a file it is private to its owner (0600).
///
/// On failure the error names what failed, with path and system text; the old file is whole and no temporary
/// file is left. One failure comes too late for that: when only the syncing of the folder fails, the new file
/// is in place, whole, but may not survive a power cut. Exactly two syncs are made: of the file, and of its
/// folder. A symbolic link at the path stays, and the file it stands for is replaced.
Result<> replaceFile(const std::string& path, std::span<const std::byte> bytes,
                     const std::string& modelPath = {});

enum class FileType {
  missing,  ///< Neither the file nor, perhaps, a folder for it.
  regular,
  folder,
  other,    ///< A pipe, a device and their like.
  unknown,  ///< It cannot be looked at, as in a folder that this process may not enter.
};

/// What is found at the path, symbolic links followed.
FileType fileType(const std::string& path);

/// Whether something is at the path, or may be: only a file that is known to be missing counts as none.
inline bool fileExists(const std::string& path) { return fileType(path) != FileType::missing; }

/// Removes the file, or the symbolic link; not a folder. Fails when there is none.
Result<> removeFile(const std::string& path);

/// Makes an empty file that everybody may read. Fails when anything stands at the path, a symbolic link that
/// leads nowhere too.
Result<> makeMarker(const std::string& path);

/// Makes `copy` hold the same file as `path`, sharing or copying its contents, without a moment at which
/// `path` is missing. Fails when `copy` exists.
Result<> keepFileAs(const std::string& path, const std::string& copy);

/// The path with one component appended, with one separator between them.
std::string joinPath(std::string_view folder, std::string_view component);

/// The path without its last component; "." when it has only one.
std::string folderOf(std::string_view path);

}  // namespace roster
