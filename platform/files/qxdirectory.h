#pragma once

// Reading a directory entry by entry, the working directory, canonical
// absolute paths, and sanitising file names and commands typed by users.

#include <memory>
#include <string>

#include "../qxexport.h"

namespace QXPlatform {

class QXPrivateDirectoryScan;

// Reads the entries of one directory, "." and ".." included, in the order
// the system gives them. Open from construction until Close, the last entry
// or destruction; it cannot be reopened. One thread at a time per object.
class QXPLATFORM_EXPORT QXDirectoryScan {
 public:
  // Opens dir; a null dir means the working directory. A directory that
  // cannot be opened gives a scan that is closed from the start.
  QXDirectoryScan(const char* dir);
  // Closes the directory if it is still open.
  ~QXDirectoryScan();
  QXDirectoryScan(const QXDirectoryScan&) = delete;
  QXDirectoryScan& operator=(const QXDirectoryScan&) = delete;

  // True while the directory is open.
  operator bool() const;
  // The next entry's name, owned by the scan and valid until the next call
  // of Next or Close; null once the entries are exhausted (the scan then
  // closes itself) or when the scan is closed.
  const char* Next();
  // Closes the directory and returns what closing it returned; 0 when it was
  // already closed.
  int Close();

 private:
  std::unique_ptr<QXPrivateDirectoryScan> _private;
};

// The current working directory, however long; "." when it cannot be
// determined. Any thread.
QXPLATFORM_EXPORT std::string QXGetCurrentWorkingDirectory();

// The canonical absolute form of path, after replacing a leading "~" by the
// value of HOME when that is set; empty when the path cannot be resolved
// (missing, empty, too long). Any thread.
QXPLATFORM_EXPORT std::string QXGetAbsolutePath(const std::string& path);

// False for the sixteen characters that are not allowed into sanitised names
// and commands (tab, line feed, blank, '"', '&', '\'', '(', ')', ';', '<',
// '>', '[', ']', '{', '|', '}'); true for every other value.
QXPLATFORM_EXPORT bool IsSecure(int c);

// A file name made from user text: leading white space skipped, a leading
// "~" or "~user" expanded to a home directory, then the text up to the first
// white space with every character rejected by IsSecure left out. Empty for
// a null name. Any thread.
QXPLATFORM_EXPORT std::string QXProcessFileName(const char* name);

// A command made from user text: leading white space skipped, then every
// remaining character except those rejected by IsSecure (white space inside
// is dropped, not a stop). Empty for a null command. Any thread.
QXPLATFORM_EXPORT std::string QXProcessSystemCommand(const char* command);

}  // namespace QXPlatform
