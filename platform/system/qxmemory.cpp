#include "qxmemory.h"

#include <errno.h>
#include <stdio.h>
#include <unistd.h>

#include <iostream>

namespace QXPlatform {
namespace {

const unsigned long kMaxAllocaThreshold = 4096;

unsigned long& Threshold() {
  static unsigned long threshold = 1024;
  return threshold;
}

}  // namespace

unsigned long QXGetAllocaThreshold() { return Threshold(); }

void QXSetAllocaThreshold(unsigned long bytes) {
  if (bytes > kMaxAllocaThreshold) {
    std::cout << "QXSetAllocaThreshold() " << bytes
              << " invalid alloca threshold size" << std::endl;
    return;
  }
  Threshold() = bytes;
}

int QXGetProcessMemUsage(unsigned long& virtualBytes,
                         unsigned long& residentBytes) {
  FILE* statm = fopen("/proc/self/statm", "re");
  if (statm == nullptr) {
    return errno != 0 ? errno : ENOENT;
  }
  unsigned long sizePages = 0;
  unsigned long residentPages = 0;
  int fields = fscanf(statm, "%lu %lu", &sizePages, &residentPages);
  int error = errno;
  fclose(statm);
  if (fields != 2) {
    return error != 0 ? error : EIO;
  }
  unsigned long page = static_cast<unsigned long>(sysconf(_SC_PAGESIZE));
  virtualBytes = sizePages * page;
  residentBytes = residentPages * page;
  return 0;
}

}  // namespace QXPlatform
