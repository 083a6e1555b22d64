// Path text from anywhere: splitting, the QXFile forms, separator correction,
// the two sanitisers and path resolution agree with a plain model of their
// rules, and nothing that IsSecure rejects survives the filtered part of a
// sanitised name or command.

#include <pwd.h>
#include <stdint.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>
#include <vector>

#include <fuzzer/FuzzedDataProvider.h>

#include "fuzz_support.h"
#include <QXPlatform/files/qxdirectory.h>
#include <QXPlatform/files/qxfile.h>
#include <QXPlatform/files/qxfilesystem.h>

namespace {

void Check(bool ok) {
  if (!ok) {
    abort();
  }
}

// The sixteen characters the sanitisers remove.
bool Rejected(int c) {
  static const std::string kRejected = "\t\n \"&'();<>[]{|}";
  return c > 0 && c < 128 &&
         kRejected.find(static_cast<char>(c)) != std::string::npos;
}

bool WhiteSpace(char c) {
  return c == ' ' || c == '\t' || c == '\n' || c == '\v' || c == '\f' ||
         c == '\r';
}

std::string Corrected(std::string s) {
  for (char& c : s) {
    if (c == '\\') {
      c = '/';
    }
  }
  if (!s.empty() && s.back() == '/') {
    s.pop_back();
  }
  return s;
}

// The splitting rules, written out step by step.
void Split(const std::string& path, std::string* dir, std::string* name) {
  std::string s = Corrected(path);
  size_t p = s.rfind('/');
  if (p != std::string::npos && p + 1 == s.size()) {
    p = p == 0 ? 0 : s.rfind('/', p - 1);
  }
  if (p != std::string::npos) {
    *dir = s.substr(0, p + 1);
    *name = s.substr(p + 1);
  } else {
    dir->clear();
    *name = s;
  }
  if (!dir->empty() && *dir != "/" && dir->back() == '/') {
    dir->pop_back();
  }
  if (!name->empty() && name->back() == '/') {
    name->pop_back();
  }
}

void SplitPair(const std::string& dir, const std::string& name,
               std::string* outDir, std::string* outName) {
  std::string d = Corrected(dir);
  std::string n = Corrected(name);
  Split(d.empty() ? n : d + "/" + n, outDir, outName);
}

void CheckFile(const QXPlatform::QXFile& file, const std::string& dir,
               const std::string& name) {
  Check(file.DirPath() == dir);
  Check(file.FileName() == name);
  std::string full = dir.empty() ? name : dir + "/" + name;
  Check(file.AbsPath() == full);
  // Relative paths resolve inside the scratch directory, which only this
  // process changes, so a stat made now sees what the object saw.
  struct stat st;
  bool exists = stat(full.c_str(), &st) == 0;
  Check(file.Exists() == exists);
  Check(file.IsDirectory() == (exists && (st.st_mode & 0x4000) != 0));
  Check(file.Size() == (exists ? static_cast<int64_t>(st.st_size) : 0));
  struct stat link;
  Check(file.IsLink() ==
        (lstat(full.c_str(), &link) == 0 && S_ISLNK(link.st_mode)));
  struct stat pipe;
  bool fifo = stat(name.c_str(), &pipe) == 0 && S_ISFIFO(pipe.st_mode);
  Check(file.IsNamedPipe() == fifo);
}

std::string ExpectedHome(const std::string& user) {
  if (user.empty()) {
    const char* home = getenv("HOME");
    return home != nullptr ? home : ".";
  }
  std::vector<char> buffer(16384);
  struct passwd entry;
  struct passwd* found = nullptr;
  if (getpwnam_r(user.c_str(), &entry, buffer.data(), buffer.size(), &found) ==
          0 &&
      found != nullptr && found->pw_dir != nullptr) {
    return found->pw_dir;
  }
  return "~" + user;
}

void CheckFileNameSanitiser(const std::string& text) {
  std::string out = QXPlatform::QXProcessFileName(text.c_str());
  const char* p = text.c_str();
  while (*p != '\0' && WhiteSpace(*p)) {
    ++p;
  }
  std::string prefix;
  if (*p == '~') {
    const char* end = p + 1;
    while (*end != '\0' && *end != '/' && !WhiteSpace(*end)) {
      ++end;
    }
    prefix = ExpectedHome(std::string(p + 1, end));
    p = end;
  }
  std::string tail;
  for (; *p != '\0' && !WhiteSpace(*p); ++p) {
    if (!Rejected(static_cast<unsigned char>(*p))) {
      tail += *p;
    }
  }
  Check(out == prefix + tail);
  for (size_t i = prefix.size(); i < out.size(); ++i) {
    Check(QXPlatform::IsSecure(static_cast<unsigned char>(out[i])));
    Check(!WhiteSpace(out[i]));
  }
}

void CheckCommandSanitiser(const std::string& text) {
  std::string out = QXPlatform::QXProcessSystemCommand(text.c_str());
  const char* p = text.c_str();
  while (*p != '\0' && WhiteSpace(*p)) {
    ++p;
  }
  std::string expected;
  for (; *p != '\0'; ++p) {
    if (!Rejected(static_cast<unsigned char>(*p))) {
      expected += *p;
    }
  }
  Check(out == expected);
  for (char c : out) {
    Check(QXPlatform::IsSecure(static_cast<unsigned char>(c)));
  }
}

void CheckAbsolutePath(const std::string& text) {
  std::string resolved = QXPlatform::QXGetAbsolutePath(text);
  if (!resolved.empty()) {
    // A canonical absolute path: rooted, no empty, "." or ".." component,
    // no trailing separator, and resolving it again changes nothing.
    Check(resolved[0] == '/');
    Check(resolved == "/" || resolved.back() != '/');
    Check(resolved.find("//") == std::string::npos);
    Check((resolved + "/").find("/./") == std::string::npos);
    Check((resolved + "/").find("/../") == std::string::npos);
    Check(QXPlatform::QXGetAbsolutePath(resolved) == resolved);
  }
  // A relative path names the same thing with "./" in front.
  if (!text.empty() && text[0] != '\0' && text[0] != '/' && text[0] != '~') {
    Check(QXPlatform::QXGetAbsolutePath("./" + text) == resolved);
  }
}

// The scratch directory holds a file, a directory with a file in it, a link
// to the directory, a link to itself and a named pipe; HOME points into it.
const std::string& Setup() {
  static const std::string dir = [] {
    const std::string& path = qxfuzz::EnterScratch();
    Check(mkdir("d", 0755) == 0);
    FILE* f = fopen("f", "w");
    Check(f != nullptr);
    fputs("contents", f);
    fclose(f);
    f = fopen("d/g", "w");
    Check(f != nullptr);
    fclose(f);
    Check(symlink("d", "l") == 0);
    Check(symlink("loop", "loop") == 0);
    Check(mkfifo("p", 0644) == 0);
    setenv("HOME", (path + "/d").c_str(), 1);
    for (int c = -300; c < 300; ++c) {
      Check(QXPlatform::IsSecure(c) == !Rejected(c));
    }
    return path;
  }();
  return dir;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Setup();
  FuzzedDataProvider provider(data, size);
  std::string path = provider.ConsumeRandomLengthString(512);
  std::string dir = provider.ConsumeRandomLengthString(256);
  std::string name = provider.ConsumeRandomLengthString(256);
  int c = provider.ConsumeIntegral<int>();
  std::string text = provider.ConsumeRemainingBytesAsString();

  Check(QXPlatform::IsSecure(c) == !Rejected(c));

  std::string corrected = path;
  QXPlatform::QXFileCorrectSeparators(corrected);
  Check(corrected == Corrected(path));

  std::string wantDir;
  std::string wantName;
  Split(path, &wantDir, &wantName);
  std::string gotDir = "junk";
  std::string gotName = "junk";
  QXPlatform::QXFileDeterminePathAndName(path, gotDir, gotName);
  Check(gotDir == wantDir && gotName == wantName);
  Check(QXPlatform::QXFileDeterminePath(path) == wantDir);
  Check(QXPlatform::QXFileDetermineName(path) == wantName);

  // Copies, assignment and Refresh all go through Set(dir, name) with the
  // source's parts, which may normalise them once more.
  QXPlatform::QXFile file(path);
  CheckFile(file, wantDir, wantName);
  std::string copyDir;
  std::string copyName;
  SplitPair(wantDir, wantName, &copyDir, &copyName);
  QXPlatform::QXFile copy(file);
  CheckFile(copy, copyDir, copyName);

  std::string pairDir;
  std::string pairName;
  SplitPair(dir, name, &pairDir, &pairName);
  QXPlatform::QXFile pair(dir, name);
  CheckFile(pair, pairDir, pairName);
  Check(file.Set(dir, name));
  CheckFile(file, pairDir, pairName);
  std::string againDir;
  std::string againName;
  SplitPair(pairDir, pairName, &againDir, &againName);
  Check(file.Refresh());
  CheckFile(file, againDir, againName);
  copy = pair;
  CheckFile(copy, againDir, againName);
  const QXPlatform::QXFile& same = copy;
  copy = same;
  CheckFile(copy, againDir, againName);
  Check(copy.Set(text));
  Split(text, &wantDir, &wantName);
  CheckFile(copy, wantDir, wantName);

  CheckFileNameSanitiser(text);
  CheckFileNameSanitiser(path);
  CheckCommandSanitiser(text);
  CheckAbsolutePath(path);
  CheckAbsolutePath(text);
  return 0;
}
