#include "qxfile.h"

#include <dirent.h>
#include <sys/stat.h>

#include <cstring>

namespace QXPlatform {

// The implementation object of QXFile: the two parts of the path and the
// status record read once on demand.
class QXPrivateFile {
 public:
  // The separator paths are normalised to, and the one replaced by it.
  static constexpr char RightSeparator = '/';
  static constexpr char WrongSeparator = '\\';

  QXPrivateFile() : queried(false), valid(false) {
    std::memset(&status, 0, sizeof status);
  }

  // The name alone when there is no directory part, else the joined path.
  std::string FullPath() const {
    if (directory.empty()) {
      return name;
    }
    return directory + QXFile::Separator + name;
  }

  // Reads the status on first use and answers from the cache afterwards.
  bool IsValid() {
    if (queried) {
      return valid;
    }
    valid = ::stat(FullPath().c_str(), &status) == 0;
    queried = true;
    return valid;
  }

  bool queried;
  bool valid;
  std::string directory;
  std::string name;
  struct stat status;
};

namespace {

// The single mode bits and fields the questions test. They are tested as
// bits on purpose, so they are spelled out rather than taken from S_ISDIR.
const unsigned kDirectoryBit = 0x4000;
const unsigned kRegularBit = 0x8000;
const unsigned kTypeMask = 0xF000;
const unsigned kLinkType = 0xA000;
const unsigned kFifoType = 0x1000;
const unsigned kOwnerRead = 0x100;
const unsigned kOwnerWrite = 0x80;
const unsigned kOwnerExecute = 0x40;

void ReplaceWrongSeparators(std::string& path) {
  for (char& c : path) {
    if (c == QXPrivateFile::WrongSeparator) {
      c = QXPrivateFile::RightSeparator;
    }
  }
}

void DropOneTrailingSeparator(std::string& path) {
  if (!path.empty() && path.back() == QXPrivateFile::RightSeparator) {
    path.pop_back();
  }
}

// The split before either part is cleaned up: the directory still ends with
// its separator and the name may end with one.
void SplitRaw(const std::string& path, std::string& dir, std::string& name) {
  std::string copy = path;
  ReplaceWrongSeparators(copy);
  DropOneTrailingSeparator(copy);
  size_t p = copy.rfind(QXPrivateFile::RightSeparator);
  if (p != std::string::npos && p + 1 == copy.size()) {
    // The input ended with two or more separators: look further left. A lone
    // separator at position 0 is found again.
    p = p == 0 ? copy.rfind(QXPrivateFile::RightSeparator)
               : copy.rfind(QXPrivateFile::RightSeparator, p - 1);
  }
  if (p != std::string::npos) {
    dir = copy.substr(0, p + 1);
    name = copy.substr(p + 1);
  } else {
    dir.clear();
    name = copy;
  }
}

// The root stays "/"; any other directory loses one trailing separator.
void CleanDirectory(std::string& dir) {
  if (!dir.empty() && dir.size() != 1 &&
      dir.back() == QXPrivateFile::RightSeparator) {
    dir.pop_back();
  }
}

bool ModeHas(const struct stat& status, unsigned bits) {
  return (static_cast<unsigned>(status.st_mode) & bits) != 0;
}

bool TypeIs(const struct stat& status, unsigned type) {
  return (static_cast<unsigned>(status.st_mode) & kTypeMask) == type;
}

}  // namespace

void QXFileCorrectSeparators(std::string& path) {
  ReplaceWrongSeparators(path);
  DropOneTrailingSeparator(path);
}

std::string QXFileDetermineName(const std::string& path) {
  std::string dir;
  std::string name;
  SplitRaw(path, dir, name);
  DropOneTrailingSeparator(name);
  return name;
}

std::string QXFileDeterminePath(const std::string& path) {
  std::string dir;
  std::string name;
  SplitRaw(path, dir, name);
  CleanDirectory(dir);
  return dir;
}

void QXFileDeterminePathAndName(const std::string& path, std::string& dir,
                                std::string& name) {
  SplitRaw(path, dir, name);
  CleanDirectory(dir);
  DropOneTrailingSeparator(name);
}

std::string QXPathJoin(const std::string& dir, const std::string& name) {
  if (dir.empty()) {
    return name;
  }
  if (name.empty()) {
    return dir;
  }
  size_t dirEnd = dir.find_last_not_of('/');
  // A dir of separators only is the root: keep one of them.
  size_t keep = dirEnd == std::string::npos ? 0 : dirEnd + 1;
  size_t nameStart = name.find_first_not_of('/');
  if (nameStart == std::string::npos) {
    nameStart = name.size();
  }
  std::string joined;
  joined.reserve(keep + 1 + name.size() - nameStart);
  joined.append(dir, 0, keep);
  joined += '/';
  joined.append(name, nameStart, std::string::npos);
  return joined;
}

QXFile::QXFile(const std::string& path) { Set(path); }

QXFile::QXFile(const std::string& dir, const std::string& name) {
  Set(dir, name);
}

QXFile::QXFile(const QXFile& other) {
  Set(other._private->directory, other._private->name);
}

QXFile& QXFile::operator=(const QXFile& other) {
  if (this != &other) {
    Set(other._private->directory, other._private->name);
  }
  return *this;
}

// Defined here, where QXPrivateFile is complete, so unique_ptr can delete it.
QXFile::~QXFile() = default;

bool QXFile::Set(const std::string& path) {
  std::unique_ptr<QXPrivateFile> fresh(new QXPrivateFile);
  QXFileDeterminePathAndName(path, fresh->directory, fresh->name);
  _private = std::move(fresh);
  return true;
}

bool QXFile::Set(const std::string& dir, const std::string& name) {
  // Copies first: Refresh hands in references to the parts being replaced.
  std::string cleanDir = dir;
  std::string cleanName = name;
  // Deliberate: the root directory corrects to the empty string, so an entry
  // directly under "/" comes out relative when set from its parts.
  QXFileCorrectSeparators(cleanDir);
  QXFileCorrectSeparators(cleanName);
  std::unique_ptr<QXPrivateFile> fresh(new QXPrivateFile);
  if (cleanDir.empty()) {
    QXFileDeterminePathAndName(cleanName, fresh->directory, fresh->name);
  } else {
    QXFileDeterminePathAndName(cleanDir + Separator + cleanName,
                               fresh->directory, fresh->name);
  }
  _private = std::move(fresh);
  return true;
}

bool QXFile::Refresh() { return Set(_private->directory, _private->name); }

std::string QXFile::AbsPath() const { return _private->FullPath(); }

std::string QXFile::DirPath() const { return _private->directory; }

std::string QXFile::FileName() const { return _private->name; }

bool QXFile::Exists() const { return _private->IsValid(); }

bool QXFile::IsDirectory() const {
  return _private->IsValid() && ModeHas(_private->status, kDirectoryBit);
}

bool QXFile::IsFile() const {
  return _private->IsValid() && ModeHas(_private->status, kRegularBit);
}

bool QXFile::IsReadable() const {
  return _private->IsValid() && ModeHas(_private->status, kOwnerRead);
}

bool QXFile::IsWritable() const {
  return _private->IsValid() && ModeHas(_private->status, kOwnerWrite);
}

bool QXFile::IsExecutable() const {
  return _private->IsValid() && ModeHas(_private->status, kOwnerExecute);
}

int64_t QXFile::Size() const {
  if (!_private->IsValid()) {
    return 0;
  }
  return static_cast<int64_t>(_private->status.st_size);
}

bool QXFile::IsLink() const {
  struct stat status;
  if (::lstat(_private->FullPath().c_str(), &status) != 0) {
    return false;
  }
  return TypeIs(status, kLinkType);
}

bool QXFile::IsNamedPipe() const {
  struct stat status;
  // Deliberate: only the name part is examined, relative to the working
  // directory, whatever the directory part says.
  if (::stat(_private->name.c_str(), &status) != 0) {
    return false;
  }
  return TypeIs(status, kFifoType);
}

std::vector<std::string> QXFile::DirContents() const {
  std::vector<std::string> names;
  std::string listed =
      IsDirectory() ? _private->FullPath() : _private->directory;
  DIR* dir = ::opendir(listed.c_str());
  if (dir == nullptr) {
    return names;
  }
  while (struct dirent* entry = ::readdir(dir)) {
    if (std::strcmp(entry->d_name, ".") != 0 &&
        std::strcmp(entry->d_name, "..") != 0) {
      names.emplace_back(entry->d_name);
    }
  }
  ::closedir(dir);
  return names;
}

}  // namespace QXPlatform
