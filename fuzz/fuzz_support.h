#pragma once

// Helpers for fuzz targets that touch the file system: one scratch directory
// per process, entered once and removed at exit, and a way to put it back to
// its starting contents after every input.

#include <dirent.h>
#include <errno.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <set>
#include <string>

namespace qxfuzz {

// Removes a file or a directory tree; errors are ignored.
inline void RemoveTree(const std::string& path) {
  struct stat st;
  if (lstat(path.c_str(), &st) != 0) {
    return;
  }
  if (S_ISDIR(st.st_mode)) {
    chmod(path.c_str(), 0700);
    if (DIR* dir = opendir(path.c_str())) {
      while (struct dirent* entry = readdir(dir)) {
        std::string name = entry->d_name;
        if (name != "." && name != "..") {
          RemoveTree(path + "/" + name);
        }
      }
      closedir(dir);
    }
    rmdir(path.c_str());
  } else {
    unlink(path.c_str());
  }
}

// The names in a directory, "." and ".." left out.
inline std::set<std::string> Entries(const std::string& path) {
  std::set<std::string> names;
  if (DIR* dir = opendir(path.c_str())) {
    while (struct dirent* entry = readdir(dir)) {
      std::string name = entry->d_name;
      if (name != "." && name != "..") {
        names.insert(name);
      }
    }
    closedir(dir);
  }
  return names;
}

namespace detail {

inline std::string& ScratchPath() {
  static std::string path;
  return path;
}

inline void RemoveScratch() {
  if (!ScratchPath().empty()) {
    // Leave the directory before removing it.
    if (chdir("/") != 0) {
      perror("chdir");
    }
    RemoveTree(ScratchPath());
  }
}

}  // namespace detail

// Removes the scratch directories of processes that no longer run: a crash
// (the point of fuzzing) ends a process without its exit handlers.
inline void SweepStale(const std::string& base) {
  for (const std::string& name : Entries(base)) {
    int pid = 0;
    if (sscanf(name.c_str(), "qxfuzz_%d_", &pid) == 1 && pid > 0 &&
        kill(pid, 0) != 0 && errno == ESRCH) {
      RemoveTree(base + "/" + name);
    }
  }
}

// Makes a fresh directory under $TMPDIR (or /tmp) on the first call, makes it
// the working directory and arranges for its removal at exit. Returns its
// absolute path. Aborts when the directory cannot be made.
inline const std::string& EnterScratch() {
  std::string& path = detail::ScratchPath();
  if (path.empty()) {
    const char* env = getenv("TMPDIR");
    std::string base = env != nullptr && *env != '\0' ? env : "/tmp";
    SweepStale(base);
    std::string templ =
        base + "/qxfuzz_" + std::to_string(getpid()) + "_XXXXXX";
    char* made = mkdtemp(&templ[0]);
    if (made == nullptr || chdir(made) != 0) {
      perror("scratch directory");
      abort();
    }
    char resolved[4096];
    if (realpath(made, resolved) == nullptr) {
      perror("realpath");
      abort();
    }
    path = resolved;
    atexit(detail::RemoveScratch);
  }
  return path;
}

// Removes everything in dir that is not named in keep (recursively), so the
// next input starts from the same contents. Directories named in keep are
// left alone entirely.
inline void Restore(const std::string& dir, const std::set<std::string>& keep) {
  for (const std::string& name : Entries(dir)) {
    if (keep.count(name) == 0) {
      RemoveTree(dir + "/" + name);
    }
  }
}

}  // namespace qxfuzz
