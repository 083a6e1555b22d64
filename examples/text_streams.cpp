// The stream core: memory streams, text insertion and extraction with the
// library's own rules, the discarding sink qxnul and the adapters over
// standard-library streams.

#include <errno.h>

#include <sstream>
#include <string>

#include <QXPlatform/QXPlatform.h>

using namespace QXPlatform;

namespace {

int failures = 0;

void Check(bool ok, const char* what) {
  if (!ok) {
    qxerr << "text_streams: failed: " << what << qxendl;
    ++failures;
  }
}

}  // namespace

int main() {
  // Every value has exactly one textual form: "%d", "%f", "1"/"0".
  qxosstream out;
  out << "n=" << -3 << " x=" << 1.5 << " ok=" << true << '\n';
  Check(out.str() == "n=-3 x=1.500000 ok=1\n", "number formats");

  // A token ends at the first whitespace byte, and leading whitespace is not
  // skipped: the second space of "12  34" is an empty token, read as 0.
  qxisstream numbers("12  34");
  int a = -1, b = -1, c = -1;
  numbers >> a >> b >> c;
  Check(a == 12 && b == 0 && c == 34, "tokens do not skip whitespace");

  // Extraction never fails the stream; at the end it stores 0, false, 0xFF.
  int missing = -1;
  bool flag = true;
  char byte = 0;
  numbers >> missing >> flag >> byte;
  Check(missing == 0 && !flag && static_cast<unsigned char>(byte) == 0xFF,
        "fallback values at the end of data");

  // errno is not cleared before a number is converted: an ERANGE left by an
  // earlier call turns the next number into 0.
  errno = ERANGE;
  qxisstream five("5 5");
  int first = -1, second = -1;
  five >> first;
  errno = 0;
  five >> second;
  Check(first == 0 && second == 5, "a stale ERANGE yields 0");

  // Lines end at LF, CR or CR LF (and runs of CR); control bytes other than
  // tab are dropped.
  qxisstream lines(
      "a\tb\x01"
      "c\r\r\nnext");
  std::string line;
  Check(lines.getline(line) && line == "a\tbc", "line with CR CR LF");
  Check(lines.getline(line) && line == "next", "last line without LF");
  Check(!lines.getline(line), "no line after the end");

  // qxnul counts and drops.
  unsigned long long before = qxnul.tell();
  qxnul << std::string(100000, 'x');
  Check(qxnul.tell() - before == 100000, "qxnul counts what it drops");

  // A standard-library stream as a sink: bytes reach it on flush(); bytes
  // still in the span when the adapter is destroyed are lost.
  std::ostringstream kept, lost;
  {
    qxostdstream adapter(&kept, false);
    adapter << "kept";
    adapter.flush();
  }
  {
    qxostdstream adapter(&lost, false);
    adapter << "lost";
  }
  Check(kept.str() == "kept" && lost.str().empty(), "adapter flush rules");

  // A standard-library stream as a source.
  std::istringstream source("from std");
  qxistdstream reader(&source, false);
  std::string all;
  reader.read(all);
  Check(all == "from std", "adapter over std::istream");

  if (failures != 0) {
    return 1;
  }
  qxout << "text_streams: all checks passed" << qxendl;
  return 0;
}
