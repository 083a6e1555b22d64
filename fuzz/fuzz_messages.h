#pragma once

// qxerr captured for fuzz targets: sent to a file in the scratch directory,
// so that what an input made the library print can be checked afterwards.

#include <fcntl.h>
#include <unistd.h>

#include <string>

#include "fuzz_streams.h"
#include "fuzz_support.h"
#include <QXPlatform/streams/qxstdstream.h>

namespace qxfuzz {

// On the first call, points qxerr at a fresh file in the scratch directory;
// returns its descriptor. Aborts when the file cannot be made.
inline int QxerrFile() {
  static const int fd = [] {
    EnterScratch();
    int made = open("messages", O_RDWR | O_CREAT | O_TRUNC | O_APPEND, 0600);
    Check(made >= 0);
    Check(QXPlatform::qxerr.openfd(made, false));
    return made;
  }();
  return fd;
}

// The text written to qxerr since the last call; the file is emptied.
inline std::string TakeQxerr(int fd) {
  QXPlatform::qxerr.flush();
  std::string text;
  char piece[4096];
  long got;
  lseek(fd, 0, SEEK_SET);
  while ((got = read(fd, piece, sizeof piece)) > 0) {
    text.append(piece, static_cast<size_t>(got));
  }
  Check(ftruncate(fd, 0) == 0);
  return text;
}

}  // namespace qxfuzz
