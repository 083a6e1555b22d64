#include "qxdirectory.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <pwd.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <memory>
#include <utility>
#include <vector>

namespace QXPlatform {

// The implementation object of QXDirectoryScan: the open directory, or null
// once it is closed or could not be opened.
class QXPrivateDirectoryScan {
 public:
  DIR* handle = nullptr;
  // The entry of the last Next, with the type its directory entry gave.
  const char* name = nullptr;
  unsigned char entryType = DT_UNKNOWN;
  bool typeKnown = false;
  QXEntryType type = QXEntryType::kUnknown;
};

namespace {

const size_t kInitialCwdBuffer = 10240;

QXEntryType TypeFromDirectoryEntry(unsigned char type) {
  switch (type) {
    case DT_REG:
      return QXEntryType::kFile;
    case DT_DIR:
      return QXEntryType::kDirectory;
    case DT_LNK:
      return QXEntryType::kSymlink;
    case DT_UNKNOWN:
      return QXEntryType::kUnknown;
    default:
      return QXEntryType::kOther;
  }
}

QXEntryType TypeFromMode(mode_t mode) {
  if (S_ISREG(mode)) {
    return QXEntryType::kFile;
  }
  if (S_ISDIR(mode)) {
    return QXEntryType::kDirectory;
  }
  if (S_ISLNK(mode)) {
    return QXEntryType::kSymlink;
  }
  return QXEntryType::kOther;
}

// The entry's own type: from the directory entry when it records one, else
// from lstat relative to the open directory.
QXEntryType EntryType(DIR* dir, const char* name, unsigned char entryType) {
  QXEntryType type = TypeFromDirectoryEntry(entryType);
  if (type != QXEntryType::kUnknown) {
    return type;
  }
  struct stat status;
  if (::fstatat(::dirfd(dir), name, &status, AT_SYMLINK_NOFOLLOW) != 0) {
    return QXEntryType::kUnknown;
  }
  return TypeFromMode(status.st_mode);
}

bool IsDotOrDotDot(const char* name) {
  return name[0] == '.' &&
         (name[1] == '\0' || (name[1] == '.' && name[2] == '\0'));
}

// Opens name relative to the directory at (or path when at is AT_FDCWD) as a
// directory stream; null with errno set when that fails.
DIR* OpenDirectoryAt(int at, const char* name, bool followLink) {
  int flags = O_RDONLY | O_DIRECTORY | O_CLOEXEC;
  if (!followLink) {
    flags |= O_NOFOLLOW;
  }
  int fd;
  do {
    fd = ::openat(at, name, flags);
  } while (fd < 0 && errno == EINTR);
  if (fd < 0) {
    return nullptr;
  }
  DIR* dir = ::fdopendir(fd);
  if (dir == nullptr) {
    int error = errno;
    ::close(fd);
    errno = error;
  }
  return dir;
}

// One recursive walk: the open directories from the root down, the path of
// the current entry, and the identities of the open directories when links
// are followed (to see loops).
class Walk {
 public:
  Walk(const std::function<QXWalkAction(const QXWalkEntry&)>& visitor,
       const QXWalkOptions& options)
      : _visitor(visitor), _follow(options.followSymlinks) {}

  ~Walk() {
    for (Frame& frame : _frames) {
      ::closedir(frame.dir);
    }
  }

  Walk(const Walk&) = delete;
  Walk& operator=(const Walk&) = delete;

  bool Run(const std::string& root);

 private:
  struct Frame {
    DIR* dir;
    size_t pathLength;
  };
  typedef std::pair<dev_t, ino_t> Identity;

  // Reports error about the entry in _entry; false when the visitor stops.
  bool Report(int error) {
    _clean = false;
    _entry.error = error;
    QXWalkAction action = _visitor(_entry);
    _entry.error = 0;
    return action != QXWalkAction::kStop;
  }

  // Makes dir the innermost open directory; false (dir closed) when it is
  // one of the open directories again.
  bool Push(DIR* dir) {
    if (_follow) {
      struct stat status;
      if (::fstat(::dirfd(dir), &status) == 0) {
        Identity id(status.st_dev, status.st_ino);
        for (const Identity& open : _open) {
          if (open == id) {
            ::closedir(dir);
            return false;
          }
        }
        _open.push_back(id);
      } else {
        _open.push_back(Identity(0, 0));
      }
    }
    _frames.push_back(Frame{dir, _entry.path.size()});
    return true;
  }

  void Pop() {
    ::closedir(_frames.back().dir);
    _frames.pop_back();
    if (_follow) {
      _open.pop_back();
    }
  }

  const std::function<QXWalkAction(const QXWalkEntry&)>& _visitor;
  bool _follow;
  bool _clean = true;
  QXWalkEntry _entry{};
  std::vector<Frame> _frames;
  std::vector<Identity> _open;
};

bool Walk::Run(const std::string& root) {
  // The root's trailing separators go, except the one that is the root.
  size_t end = root.find_last_not_of('/');
  _entry.path = root.substr(0, end == std::string::npos ? 1 : end + 1);
  size_t cut = _entry.path.find_last_of('/');
  _entry.name = _entry.path.c_str() +
                (cut == std::string::npos || _entry.path == "/" ? 0 : cut + 1);
  _entry.type = _entry.target = QXEntryType::kUnknown;
  _entry.depth = 0;
  DIR* top =
      root.empty() ? nullptr : OpenDirectoryAt(AT_FDCWD, root.c_str(), true);
  if (top == nullptr) {
    Report(root.empty() ? ENOENT : errno);
    return false;
  }
  Push(top);
  while (!_frames.empty()) {
    DIR* dir = _frames.back().dir;
    _entry.path.resize(_frames.back().pathLength);
    errno = 0;
    struct dirent* found = ::readdir(dir);
    if (found == nullptr) {
      int error = errno;
      if (error != 0) {
        // The report is about the directory being read.
        size_t slash = _entry.path.find_last_of('/');
        _entry.name =
            _entry.path.c_str() + (slash == std::string::npos ? 0 : slash + 1);
        _entry.type = _entry.target = QXEntryType::kDirectory;
        _entry.depth = static_cast<int>(_frames.size()) - 1;
        if (!Report(error)) {
          return false;
        }
      }
      Pop();
      continue;
    }
    const char* name = found->d_name;
    if (IsDotOrDotDot(name)) {
      continue;
    }
    if (_entry.path.back() != '/') {
      _entry.path += '/';
    }
    size_t nameAt = _entry.path.size();
    _entry.path += name;
    _entry.name = _entry.path.c_str() + nameAt;
    _entry.type = EntryType(dir, name, found->d_type);
    _entry.target = _entry.type;
    _entry.depth = static_cast<int>(_frames.size());
    if (_follow && _entry.type == QXEntryType::kSymlink) {
      struct stat status;
      _entry.target = ::fstatat(::dirfd(dir), name, &status, 0) == 0
                          ? TypeFromMode(status.st_mode)
                          : QXEntryType::kUnknown;
    }
    QXWalkAction action = _visitor(_entry);
    if (action == QXWalkAction::kStop) {
      return false;
    }
    if (action != QXWalkAction::kContinue ||
        _entry.target != QXEntryType::kDirectory) {
      continue;
    }
    DIR* child = OpenDirectoryAt(::dirfd(dir), name, _follow);
    if (child == nullptr) {
      if (!Report(errno)) {
        return false;
      }
      continue;
    }
    if (!Push(child) && !Report(ELOOP)) {
      return false;
    }
  }
  return _clean;
}
const size_t kInitialPasswdBuffer = 1024;

// White space as the "C" locale sees it, without consulting the locale.
bool IsWhiteSpace(char c) {
  return c == ' ' || c == '\t' || c == '\n' || c == '\v' || c == '\f' ||
         c == '\r';
}

const char* SkipWhiteSpace(const char* text) {
  while (*text != '\0' && IsWhiteSpace(*text)) {
    ++text;
  }
  return text;
}

// The character test behind IsSecure, kept inside the library so the
// sanitisers' loops need no call through the exported symbol.
bool Allowed(int c) {
  switch (c) {
    case '\t':
    case '\n':
    case ' ':
    case '"':
    case '&':
    case '\'':
    case '(':
    case ')':
    case ';':
    case '<':
    case '>':
    case '[':
    case ']':
    case '{':
    case '|':
    case '}':
      return false;
    default:
      return true;
  }
}

// Appends text to out without the rejected characters, a clean run at a
// time; stops at the end, or at the first white space when asked to.
void AppendAllowed(const char* p, bool stopAtWhiteSpace, std::string& out) {
  for (;;) {
    const char* run = p;
    while (*p != '\0' && Allowed(static_cast<unsigned char>(*p)) &&
           !(stopAtWhiteSpace && IsWhiteSpace(*p))) {
      ++p;
    }
    out.append(run, static_cast<size_t>(p - run));
    if (*p == '\0' || (stopAtWhiteSpace && IsWhiteSpace(*p))) {
      return;
    }
    ++p;
  }
}

// The home directory of user from the password database; false when the
// user is unknown or cannot be looked up.
bool LookUpHome(const std::string& user, std::string& home) {
  std::vector<char> buffer(kInitialPasswdBuffer);
  struct passwd entry;
  struct passwd* found = nullptr;
  int error;
  while ((error = ::getpwnam_r(user.c_str(), &entry, buffer.data(),
                               buffer.size(), &found)) == ERANGE) {
    buffer.resize(buffer.size() * 2);
  }
  bool known = error == 0 && found != nullptr && found->pw_dir != nullptr;
  if (known) {
    home = found->pw_dir;
  }
  ::endpwent();
  return known;
}

}  // namespace

QXDirectoryScan::QXDirectoryScan(const char* dir)
    : _private(new QXPrivateDirectoryScan) {
  _private->handle = ::opendir(dir == nullptr ? "." : dir);
}

QXDirectoryScan::~QXDirectoryScan() { Close(); }

QXDirectoryScan::operator bool() const { return _private->handle != nullptr; }

const char* QXDirectoryScan::Next() {
  if (_private->handle == nullptr) {
    return nullptr;
  }
  struct dirent* entry = ::readdir(_private->handle);
  if (entry == nullptr) {
    Close();
    return nullptr;
  }
  _private->name = entry->d_name;
  _private->entryType = entry->d_type;
  _private->typeKnown = false;
  return entry->d_name;
}

QXEntryType QXDirectoryScan::Type() {
  QXPrivateDirectoryScan& scan = *_private;
  if (scan.handle == nullptr || scan.name == nullptr) {
    return QXEntryType::kUnknown;
  }
  if (!scan.typeKnown) {
    scan.type = EntryType(scan.handle, scan.name, scan.entryType);
    scan.typeKnown = true;
  }
  return scan.type;
}

int QXDirectoryScan::Close() {
  if (_private->handle == nullptr) {
    return 0;
  }
  int result = ::closedir(_private->handle);
  _private->handle = nullptr;
  _private->name = nullptr;
  return result;
}

bool QXWalkDirectory(
    const std::string& root,
    const std::function<QXWalkAction(const QXWalkEntry&)>& visitor,
    const QXWalkOptions& options) {
  Walk walk(visitor, options);
  return walk.Run(root);
}

std::string QXGetCurrentWorkingDirectory() {
  size_t size = kInitialCwdBuffer;
  // Not value-initialised: getcwd writes what is read back.
  std::unique_ptr<char[]> buffer(new char[size]);
  while (::getcwd(buffer.get(), size) == nullptr) {
    if (errno != ERANGE) {
      return ".";
    }
    size *= 2;
    buffer.reset(new char[size]);
  }
  return std::string(buffer.get());
}

std::string QXGetAbsolutePath(const std::string& path) {
  std::string expanded = path;
  if (!expanded.empty() && expanded[0] == '~') {
    // Deliberate: only the "~" is replaced; "~name/x" becomes the home value
    // followed directly by "name/x", with no user lookup.
    if (const char* home = ::getenv("HOME")) {
      expanded.replace(0, 1, home);
    }
  }
  char resolved[PATH_MAX];
  if (::realpath(expanded.c_str(), resolved) == nullptr) {
    return std::string();
  }
  return std::string(resolved);
}

bool IsSecure(int c) { return Allowed(c); }

std::string QXProcessFileName(const char* name) {
  std::string out;
  if (name == nullptr) {
    return out;
  }
  const char* p = SkipWhiteSpace(name);
  out.reserve(std::strlen(p));
  if (*p == '~') {
    const char* userStart = p + 1;
    const char* userEnd = userStart;
    while (*userEnd != '\0' && *userEnd != '/' && !IsWhiteSpace(*userEnd)) {
      ++userEnd;
    }
    std::string user(userStart, userEnd);
    if (user.empty()) {
      const char* home = ::getenv("HOME");
      out = home != nullptr ? home : ".";
    } else if (!LookUpHome(user, out)) {
      out = "~" + user;
    }
    // The prefix goes out as it is; only what follows it is filtered.
    p = userEnd;
  }
  AppendAllowed(p, true, out);
  return out;
}

std::string QXProcessSystemCommand(const char* command) {
  std::string out;
  if (command == nullptr) {
    return out;
  }
  // Deliberate: inner white space is removed and copying goes on, where the
  // file-name form stops at it.
  const char* p = SkipWhiteSpace(command);
  out.reserve(std::strlen(p));
  AppendAllowed(p, false, out);
  return out;
}

}  // namespace QXPlatform
