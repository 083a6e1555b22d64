#include "qxdirectory.h"

#include <dirent.h>
#include <errno.h>
#include <limits.h>
#include <pwd.h>
#include <stdlib.h>
#include <unistd.h>

#include <cstring>
#include <memory>
#include <vector>

namespace QXPlatform {

// The implementation object of QXDirectoryScan: the open directory, or null
// once it is closed or could not be opened.
class QXPrivateDirectoryScan {
 public:
  DIR* handle = nullptr;
};

namespace {

const size_t kInitialCwdBuffer = 10240;
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
  return entry->d_name;
}

int QXDirectoryScan::Close() {
  if (_private->handle == nullptr) {
    return 0;
  }
  int result = ::closedir(_private->handle);
  _private->handle = nullptr;
  return result;
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
