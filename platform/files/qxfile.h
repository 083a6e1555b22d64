#pragma once

// A file or directory named by a path; its status is read once and kept. Also
// the splitting of paths into a directory part and a name part.

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "../qxexport.h"

namespace QXPlatform {

class QXPrivateFile;

// Replaces every backslash in path by "/" and then drops one trailing "/"
// if there is one ("/" becomes empty, "a//" becomes "a/"). Safe from any
// thread on distinct strings.
QXPLATFORM_EXPORT void QXFileCorrectSeparators(std::string& path);

// The name part of path by the library's splitting rules (backslashes count
// as "/"); empty when path ends in its root or is empty. Any thread.
QXPLATFORM_EXPORT std::string QXFileDetermineName(const std::string& path);

// The directory part of path by the same rules: empty when path holds no
// separator, "/" for a name directly under the root. Any thread.
QXPLATFORM_EXPORT std::string QXFileDeterminePath(const std::string& path);

// Stores both parts of path in dir and name, overwriting them. Any thread;
// dir and name must not be shared with another thread while it runs.
QXPLATFORM_EXPORT void QXFileDeterminePathAndName(const std::string& path,
                                                  std::string& dir,
                                                  std::string& name);

// dir and name joined by exactly one "/": the separators at the end of dir
// and at the start of name are merged into one, and the root is kept
// ("/" and "usr" give "/usr", "a/" and "/b" give "a/b"). An empty dir gives
// name as it is, an empty name gives dir as it is. Separators elsewhere, and
// backslashes (an ordinary byte in a name here), are left alone. Any thread.
QXPLATFORM_EXPORT std::string QXPathJoin(const std::string& dir,
                                         const std::string& name);

// A file named by a directory part and a name part. Its status (existence,
// type, owner permission bits, size) is read by the first question that
// needs it and kept until Refresh or Set. Not synchronised: one thread at a
// time per object; distinct objects are independent.
class QXPLATFORM_EXPORT QXFile {
 public:
  // The separator written between the directory and the name.
  static constexpr char Separator = '/';

  // Splits path into its directory and name parts.
  QXFile(const std::string& path);
  // Joins dir and name and splits the result again.
  QXFile(const std::string& dir, const std::string& name);
  // Builds a new object from the other's parts; the cached status is not
  // copied.
  QXFile(const QXFile& other);
  // As the copy constructor; nothing happens on self-assignment.
  QXFile& operator=(const QXFile& other);
  ~QXFile();

  // Replaces the parts by those of path and forgets the cached status.
  // Always true.
  bool Set(const std::string& path);
  // Replaces the parts by those of dir joined with name and forgets the
  // cached status. Always true.
  bool Set(const std::string& dir, const std::string& name);
  // Forgets the cached status so that the next question reads it again.
  // Always true.
  bool Refresh();

  // The name alone when the directory part is empty, otherwise directory,
  // separator and name. Not made absolute.
  std::string AbsPath() const;
  // A copy of the directory part.
  std::string DirPath() const;
  // A copy of the name part.
  std::string FileName() const;

  // True when the path could be examined; false for a missing or unreachable
  // file. The answer is cached.
  bool Exists() const;
  // True when the file exists and the directory bit (0x4000) of its mode is
  // set; block devices pass too.
  bool IsDirectory() const;
  // True when the file exists and the regular-file bit (0x8000) of its mode
  // is set; sockets pass too.
  bool IsFile() const;
  // True when the file exists and its owner-read bit is set.
  bool IsReadable() const;
  // True when the file exists and its owner-write bit is set.
  bool IsWritable() const;
  // True when the file exists and its owner-execute bit is set.
  bool IsExecutable() const;
  // The size in bytes; 0 when the file does not exist.
  int64_t Size() const;
  // True when the full path itself is a symbolic link. Not cached.
  bool IsLink() const;
  // True when the name part alone, looked up in the current working
  // directory, is a FIFO. Not cached.
  bool IsNamedPipe() const;
  // The entry names (without "." and "..") of the full path when it is a
  // directory, else of the directory part; empty when that cannot be opened.
  std::vector<std::string> DirContents() const;

 private:
  std::unique_ptr<QXPrivateFile> _private;
};

}  // namespace QXPlatform
