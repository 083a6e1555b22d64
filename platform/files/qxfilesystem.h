#pragma once

// Questions and operations on paths that answer with a plain result, and
// safely created temporary files and directories.

#include <cstdint>
#include <string>

#include "../qxexport.h"
#include "qxfile.h"

namespace QXPlatform {

// The path questions below each ask a temporary QXFile once, so they share
// its splitting rules and its bit tests. They print nothing, never throw on a
// file-system error and may be called from any thread.

// True when path can be examined (it exists and is reachable).
QXPLATFORM_EXPORT bool QXFileExists(const std::string& path);
// True when path exists and its mode has the directory bit (0x4000).
QXPLATFORM_EXPORT bool QXFileIsDirectory(const std::string& path);
// True when path exists and its mode has the regular-file bit (0x8000).
QXPLATFORM_EXPORT bool QXFileIsFile(const std::string& path);
// True when path itself is a symbolic link.
QXPLATFORM_EXPORT bool QXFileIsLink(const std::string& path);
// True when the name part of path, in the working directory, is a FIFO.
QXPLATFORM_EXPORT bool QXFileIsNamedPipe(const std::string& path);
// True when path exists and its owner-read bit is set.
QXPLATFORM_EXPORT bool QXFileIsReadable(const std::string& path);
// True when path exists and its owner-write bit is set.
QXPLATFORM_EXPORT bool QXFileIsWritable(const std::string& path);
// The size of path in bytes; 0 when it does not exist.
QXPLATFORM_EXPORT int64_t QXFileSize(const std::string& path);

// The operations below return true exactly when the system call succeeded;
// on failure errno is left as the call set it and nothing is printed. Any
// thread.

// Removes the file path (unlink).
QXPLATFORM_EXPORT bool QXUnlink(const char* path);
// Renames from to to (rename).
QXPLATFORM_EXPORT bool QXRenameFile(const char* from, const char* to);
// Makes the directory path with permissions 0755 before the umask (mkdir).
QXPLATFORM_EXPORT bool QXCreateDirectory(const char* path);
// Removes the empty directory path (rmdir).
QXPLATFORM_EXPORT bool QXUnlinkDirectory(const char* path);
// Removes a file or an empty directory (remove).
QXPLATFORM_EXPORT bool QXFileDelete(const std::string& path);
// Removes the file's full path; on success the file's cached status is
// forgotten before returning true, on failure the object is left as it was.
QXPLATFORM_EXPORT bool QXFileDelete(QXFile& file);

// Returns a QXFile for path, first creating it empty with the permission
// bits mode (low 16 bits, before the umask) when it does not exist. An
// existing file is left untouched, and so is anything that appears under
// the name meanwhile: the file is made exclusively and a symbolic link there
// is not followed. Failure shows as Exists() being false. Any thread.
QXPLATFORM_EXPORT QXFile QXFileCreate(const std::string& path, int mode);

// The temporary directory chosen by the first temporary-file call of the
// process: TMPDIR when that exists, else "/tmp" when it exists, else empty.
// Never changes afterwards. Any thread.
QXPLATFORM_EXPORT std::string QXFileTempPath();

// Creates a new file with owner-only read and write permissions, named by
// the temporary directory, "/" and "QX_" plus six generated characters, and
// returns its open read-write descriptor, closed on exec; name receives the
// path. On failure prints "mkstemp failed" through perror, returns -1 and
// name receives the attempted path. The caller owns the descriptor and the file. Any thread.
QXPLATFORM_EXPORT int QXFileTempDescriptor(std::string& name);

// Creates a new directory with owner-only permissions inside dir (or inside
// the temporary directory when dir is empty), named "QX_" plus six generated
// characters, and returns its path. On failure prints "mkdtemp failed"
// through perror and returns the empty string. The caller owns the
// directory. Any thread.
QXPLATFORM_EXPORT std::string QXFileTempDirectory(const std::string& dir);

// Deprecated: a bare name made of the current time in seconds followed by a
// number below 100 from rand(); not unique and not safe against races. The
// first call of the process warns on qxerr. Any thread, though the random
// part is not thread-safe.
QXPLATFORM_EXPORT std::string QXFileRandomName();

}  // namespace QXPlatform
