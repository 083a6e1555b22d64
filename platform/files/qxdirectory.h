#pragma once

// Reading a directory entry by entry, the working directory, canonical
// absolute paths, and sanitising file names and commands typed by users.

#include <functional>
#include <memory>
#include <string>

#include "../qxexport.h"

namespace QXPlatform {

class QXPrivateDirectoryScan;

// The type of a directory entry.
enum class QXEntryType {
  // Not known: the entry went away, or could not be examined.
  kUnknown,
  kFile,
  kDirectory,
  kSymlink,
  // A device, named pipe or socket.
  kOther
};

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
  // The type of the entry the last Next returned, read from the directory
  // entry itself where the file system records it, else from lstat of the
  // entry (asked once, on the first call, and kept). A symbolic link is
  // kSymlink, not what it points to. kUnknown when no entry is current or
  // the entry cannot be examined.
  QXEntryType Type();
  // Closes the directory and returns what closing it returned; 0 when it was
  // already closed.
  int Close();

 private:
  std::unique_ptr<QXPrivateDirectoryScan> _private;
};

// What QXWalkDirectory shows the visitor for each entry. Valid only during
// the call; copy what is kept.
struct QXWalkEntry {
  // The root joined with the names down to the entry (QXPathJoin).
  std::string path;
  // The entry's own name: the last part of path.
  const char* name;
  // The entry's own type (a symbolic link is kSymlink).
  QXEntryType type;
  // When following links: the type of what a link points to (kUnknown for a
  // dangling one). Otherwise, and for entries that are not links, as type.
  QXEntryType target;
  // 1 for entries directly in the root, 0 for a report about the root.
  int depth;
  // 0 for an entry. Non-zero marks a report, made after the entry of the
  // directory concerned was visited: the errno of opening or reading it
  // (EACCES for an unreadable one), or ELOOP for a link that leads back to a
  // directory above it when links are followed.
  int error;
};

// What the visitor asks the walk to do next.
enum class QXWalkAction {
  kContinue,
  // Do not go into this directory (the same as kContinue for other
  // entries and for reports).
  kSkip,
  // End the walk now.
  kStop
};

struct QXWalkOptions {
  // Go into directories reached through symbolic links, once each per path:
  // a link that leads to a directory above it is reported with ELOOP and
  // not entered. By default links are reported as links and not entered.
  bool followSymlinks = false;
};

// Visits every entry below root, depth first, each directory's entry before
// its contents, in the order the system lists them; "." and ".." are not
// visited, nor root itself. root is entered even when it is a link. The
// visitor runs on the calling thread and decides whether to go into each
// directory. A directory that cannot be opened or read is reported to the
// visitor (see QXWalkEntry::error) and the walk goes on. Types come from the
// directory entries where the file system records them, so a walk that does
// not follow links examines no entry with stat when they all do.
//
// True when the walk went through the whole tree with no report; false when
// anything was reported or the visitor stopped it (root that is not a
// directory or cannot be opened is reported with depth 0). Any thread; each
// call opens as many directories at once as the tree is deep.
QXPLATFORM_EXPORT bool QXWalkDirectory(
    const std::string& root,
    const std::function<QXWalkAction(const QXWalkEntry&)>& visitor,
    const QXWalkOptions& options);

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
