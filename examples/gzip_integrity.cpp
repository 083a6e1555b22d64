// Telling damaged input and lost writes from success: a .gz file is written
// and checked on closing, then read line by line, sound and cut short, with
// the damage reported by error() and errortext().

#include <errno.h>
#include <string.h>

#include <string>

#include <QXPlatform/QXPlatform.h>

using namespace QXPlatform;

namespace {

int failures = 0;

void Check(bool ok, const char* what) {
  if (!ok) {
    qxerr << "gzip_integrity: failed: " << what << qxendl;
    ++failures;
  }
}

// Counts the lines of a (possibly gzip) file. Returns 0 when every byte was
// read, else the errno value of the failure, with a message on qxerr:
// "NAME: unexpected end of file" for a file cut short, for instance.
int CountLines(const std::string& name, unsigned long* lines) {
  qxistream* in = QXOpenIStream(name.c_str());
  if (in == nullptr) {
    qxerr << name << ": " << strerror(errno) << qxendl;
    return ENOENT;
  }
  std::string line;
  *lines = 0;
  while (in->getline(line)) {
    ++*lines;
  }
  // The end of the data and damage look alike to getline; error() does not.
  // Its text names the damage, so take it before the stream is closed.
  std::string why = in->errortext();
  int error = QXCloseIStreamChecked(in);
  if (error != 0) {
    qxerr << name << ": " << why << qxendl;
  }
  return error;
}

// Writes lines to name (gzip packed, as the name contains ".gz"). Returns 0
// when every byte reached the file, else the errno value, such as ENOSPC.
int WriteLines(const std::string& name, unsigned long count) {
  qxostream* out = QXOpenOStream(name.c_str());
  if (out == nullptr) {
    return errno != 0 ? errno : EIO;
  }
  for (unsigned long i = 0; i < count; ++i) {
    *out << "line " << i << qxendl;
  }
  // The last block, the gzip trailer and closing the file can still fail,
  // and only the checked close tells.
  return QXCloseOStreamChecked(out);
}

}  // namespace

int main() {
  std::string dir = QXFileTempDirectory("");
  Check(!dir.empty(), "temporary directory");
  std::string sound = dir + "/lines.txt.gz";
  Check(WriteLines(sound, 100000) == 0, "writing reports no failure");

  unsigned long lines = 0;
  Check(CountLines(sound, &lines) == 0, "a sound file reads without failure");
  Check(lines == 100000, "every line read");

  // The same file cut short, as an interrupted copy leaves it.
  std::string cut = dir + "/cut.txt.gz";
  {
    qxifstream in(sound.c_str());
    std::string bytes;
    in.read(bytes);
    qxofstream out(cut.c_str());
    out.write(bytes.data(), bytes.size() / 2);
    out.close();
  }
  qxerr << "reading a file cut short (a message is expected):" << qxendl;
  Check(CountLines(cut, &lines) == EBADMSG, "a cut file is reported");
  Check(lines > 0 && lines < 100000, "the part before the cut is read");

  // Writing to a device that is full loses everything, and says so.
  Check(WriteLines("/dev/full", 10) == ENOSPC, "a full device is reported");

  Check(QXUnlink(cut.c_str()) && QXUnlink(sound.c_str()) &&
            QXUnlinkDirectory(dir.c_str()),
        "clean up");
  if (failures != 0) {
    return 1;
  }
  qxout << "gzip_integrity: all checks passed" << qxendl;
  return 0;
}
