// Counts the stat-family calls of the process: linked into a test program
// ahead of the C library, these definitions take the place of the C
// library's for every caller (the library under test, the C++ runtime) and
// forward to the real ones.

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <atomic>

namespace {

std::atomic<long> g_calls{0};

template <typename Function>
Function Real(const char* name) {
  return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

}  // namespace

extern "C" {

// The stat-family calls made since the program started.
__attribute__((visibility("default"))) long qxtest_stat_calls() {
  return g_calls.load();
}

#define QX_COUNTED(Name, Params, Args)                     \
  __attribute__((visibility("default"))) int Name Params { \
    ++g_calls;                                             \
    typedef int(*Function) Params;                         \
    static const Function real = Real<Function>(#Name);    \
    return real Args;                                      \
  }

QX_COUNTED(stat, (const char* path, struct stat* buf), (path, buf))
QX_COUNTED(lstat, (const char* path, struct stat* buf), (path, buf))
QX_COUNTED(fstat, (int fd, struct stat* buf), (fd, buf))
QX_COUNTED(fstatat, (int fd, const char* path, struct stat* buf, int flags),
           (fd, path, buf, flags))
QX_COUNTED(stat64, (const char* path, struct stat64* buf), (path, buf))
QX_COUNTED(lstat64, (const char* path, struct stat64* buf), (path, buf))
QX_COUNTED(fstat64, (int fd, struct stat64* buf), (fd, buf))
QX_COUNTED(fstatat64, (int fd, const char* path, struct stat64* buf, int flags),
           (fd, path, buf, flags))
QX_COUNTED(statx,
           (int fd, const char* path, int flags, unsigned int mask,
            struct statx* buf),
           (fd, path, flags, mask, buf))
// The entry points of older C libraries, which binaries built against them
// still call.
QX_COUNTED(__xstat, (int ver, const char* path, struct stat* buf),
           (ver, path, buf))
QX_COUNTED(__lxstat, (int ver, const char* path, struct stat* buf),
           (ver, path, buf))
QX_COUNTED(__fxstat, (int ver, int fd, struct stat* buf), (ver, fd, buf))
QX_COUNTED(__fxstatat,
           (int ver, int fd, const char* path, struct stat* buf, int flags),
           (ver, fd, path, buf, flags))

#undef QX_COUNTED

}  // extern "C"
