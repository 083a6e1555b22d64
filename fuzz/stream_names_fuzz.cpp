// Stream names from anywhere through QXOpenOStream and QXOpenIStream, inside
// a scratch directory: registered prefixes reach their handlers with the
// whole name and are closed by them, other names are files, ".gz" anywhere in
// an output name compresses, input is unwrapped by its first two bytes, and a
// missing name is found under its ".gz" form. Every input starts from the
// same directory contents and the same counters.
//
// The handlers' streams come from the ordinary heap and are freed by their
// close functions (or by a gzip wrapper), so the library's next stream may
// get a freed handler stream's address; each close function checks that it
// is handed a stream of its own kind. The "chop" handler serves its bytes
// through a stream that cannot seek, cut into fuzzer-chosen spans down to
// one byte, as a pipe delivers them.

#include <fcntl.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>
#include <vector>

#include <fuzzer/FuzzedDataProvider.h>
#include <zlib.h>

#include <QXPlatform/streams/qxcompress.h>
#include <QXPlatform/streams/qxsstream.h>
#include <QXPlatform/streams/qxstreammngr.h>

#include "fuzz_streams.h"
#include "fuzz_support.h"

namespace {

using QXPlatform::qxistream;
using QXPlatform::qxisstream;
using QXPlatform::qxostream;
using QXPlatform::qxosstream;

void Check(bool ok) {
  if (!ok) {
    abort();
  }
}

// What the handlers saw during one input.
struct Calls {
  int inOpens = 0;
  int inCloses = 0;
  int outOpens = 0;
  int outCloses = 0;
  std::string lastName;
  std::string lastOutput;
};

Calls& Seen() {
  static Calls calls;
  return calls;
}

// The bytes the "mem" input handler serves.
std::string& Served() {
  static std::string bytes;
  return bytes;
}

// How the "chop" handler cuts what it serves.
std::vector<size_t>& Spans() {
  static std::vector<size_t> spans;
  return spans;
}

// The handlers' own stream types, so that a close function can tell its
// streams from the library's.
class MemIStream : public qxisstream {
 public:
  using qxisstream::qxisstream;
};

class MemOStream : public qxosstream {};

class ChopIStream : public qxfuzz::ChoppedStream {
 public:
  ChopIStream(const std::string& data, const std::vector<size_t>& spans)
      : ChoppedStream(data, spans, false) {}
};

qxistream* OpenMemInput(const char* name) {
  ++Seen().inOpens;
  Seen().lastName = name;
  return new MemIStream(Served());
}

void CloseMemInput(qxistream* s) {
  ++Seen().inCloses;
  Check(dynamic_cast<MemIStream*>(s) != nullptr);
  delete s;
}

qxistream* OpenChopInput(const char* name) {
  ++Seen().inOpens;
  Seen().lastName = name;
  return new ChopIStream(Served(), Spans());
}

void CloseChopInput(qxistream* s) {
  ++Seen().inCloses;
  Check(dynamic_cast<ChopIStream*>(s) != nullptr);
  delete s;
}

qxostream* OpenMemOutput(const char* name) {
  ++Seen().outOpens;
  Seen().lastName = name;
  return new MemOStream();
}

void CloseMemOutput(qxostream* s) {
  ++Seen().outCloses;
  MemOStream* mine = dynamic_cast<MemOStream*>(s);
  Check(mine != nullptr);
  Seen().lastOutput = mine->str();
  delete s;
}

qxistream* OpenNoInput(const char* name) {
  ++Seen().inOpens;
  Seen().lastName = name;
  return nullptr;
}

qxostream* OpenNoOutput(const char* name) {
  ++Seen().outOpens;
  Seen().lastName = name;
  return nullptr;
}

// Replaced at once: a handler registered first must never be called.
qxistream* Superseded(const char*) {
  abort();
}
void SupersededClose(qxistream*) { abort(); }

void Setup() {
  static const bool done = [] {
    qxfuzz::EnterScratch();
    Check(mkdir("d", 0755) == 0);
    Check(QXPlatform::QXRegisterIStream("mem", Superseded, SupersededClose));
    Check(QXPlatform::QXRegisterIStream("mem", OpenMemInput, CloseMemInput));
    Check(QXPlatform::QXRegisterOStream("mem", OpenMemOutput, CloseMemOutput));
    Check(QXPlatform::QXRegisterIStream("chop", OpenChopInput, CloseChopInput));
    Check(QXPlatform::QXRegisterOStream("chop", OpenMemOutput, CloseMemOutput));
    Check(QXPlatform::QXRegisterIStream("nul", OpenNoInput, CloseMemInput));
    Check(QXPlatform::QXRegisterOStream("nul", OpenNoOutput, CloseMemOutput));
    return true;
  }();
  (void)done;
}

std::string ReadFileBytes(const std::string& name) {
  std::string bytes;
  int fd = open(name.c_str(), O_RDONLY);
  if (fd < 0) {
    return bytes;
  }
  char piece[65536];
  long got;
  while ((got = read(fd, piece, sizeof piece)) > 0) {
    bytes.append(piece, static_cast<size_t>(got));
  }
  close(fd);
  return bytes;
}

// zlib's reading of a whole gzip file; false when it is not one.
bool Gunzip(const std::string& gz, std::string* out) {
  out->clear();
  z_stream z;
  memset(&z, 0, sizeof z);
  if (inflateInit2(&z, 16 + MAX_WBITS) != Z_OK) {
    return false;
  }
  z.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(gz.data()));
  z.avail_in = static_cast<uInt>(gz.size());
  char piece[16384];
  int status;
  do {
    z.next_out = reinterpret_cast<Bytef*>(piece);
    z.avail_out = sizeof piece;
    status = inflate(&z, Z_FINISH);
    out->append(piece, sizeof piece - z.avail_out);
  } while (status == Z_OK || (status == Z_BUF_ERROR && z.avail_out == 0));
  inflateEnd(&z);
  return status == Z_STREAM_END && z.avail_in == 0;
}

// What reading bytes through QXOpenIStream gives: gzip data (by its first
// two bytes) is unpacked, anything else comes out as it is.
std::string AsRead(const std::string& bytes) {
  if (bytes.size() >= 2 && static_cast<unsigned char>(bytes[0]) == 0x1F &&
      static_cast<unsigned char>(bytes[1]) == 0x8B) {
    std::string unpacked;
    Check(QXPlatform::QXUncompress(unpacked, bytes, "gz"));
    return unpacked;
  }
  return bytes;
}

bool StartsWithGzipMagic(const std::string& bytes) {
  return bytes.size() >= 2 && static_cast<unsigned char>(bytes[0]) == 0x1F &&
         static_cast<unsigned char>(bytes[1]) == 0x8B;
}

std::string ReadAll(qxistream* in) {
  std::string all;
  in->read(all);
  return all;
}

enum class Kind { kMem, kChop, kNul, kFile };

Kind KindOf(const std::string& name) {
  std::string prefix = name.substr(0, name.find(':'));
  if (prefix == "mem") {
    return Kind::kMem;
  }
  if (prefix == "chop") {
    return Kind::kChop;
  }
  if (prefix == "nul") {
    return Kind::kNul;
  }
  return Kind::kFile;
}

bool IsDirectoryName(const std::string& name) {
  return name == "." || name == ".." || name == "d";
}

// Writes content under name and reads it back by name.
void WriteAndRead(const std::string& name, const std::string& content,
                  size_t cut) {
  Calls& seen = Seen();
  seen = Calls();
  Served() = content;
  Kind kind = KindOf(name);
  bool gz = name.find(".gz") != std::string::npos;
  bool fileOk = kind == Kind::kFile && !IsDirectoryName(name) &&
                name.size() <= 255;

  qxostream* out = QXPlatform::QXOpenOStream(name.c_str());
  switch (kind) {
    case Kind::kMem:
    case Kind::kChop:
      Check(out != nullptr && seen.outOpens == 1 && seen.lastName == name);
      break;
    case Kind::kNul:
      Check(out == nullptr && seen.outOpens == 1 && seen.lastName == name);
      break;
    case Kind::kFile:
      Check((out != nullptr) == fileOk && seen.outOpens == 0);
      break;
  }
  if (out != nullptr) {
    cut %= content.size() + 1;
    Check(out->write(content.data(), cut) == cut || cut == 0);
    out->write(content.data() + cut, content.size() - cut);
    QXPlatform::QXCloseOStream(out);
  }
  if (kind == Kind::kMem || kind == Kind::kChop) {
    // A gzip wrapper made by the manager deletes the handler's stream
    // itself; the handler's close function is not called.
    Check(seen.outCloses == (gz ? 0 : 1));
    if (!gz) {
      Check(seen.lastOutput == content);
    }
  }
  if (fileOk) {
    std::string bytes = ReadFileBytes(name);
    if (gz) {
      std::string unpacked;
      Check(Gunzip(bytes, &unpacked) && unpacked == content);
    } else {
      Check(bytes == content);
    }
  }

  seen = Calls();
  qxistream* in = QXPlatform::QXOpenIStream(name.c_str());
  switch (kind) {
    case Kind::kMem:
      Check(seen.inOpens == 1 && seen.lastName == name);
      // An empty memory stream looks like a failed open.
      Check((in != nullptr) == !content.empty());
      if (in != nullptr) {
        Check(ReadAll(in) == AsRead(content));
      }
      QXPlatform::QXCloseIStream(in);
      Check(seen.inCloses ==
            (in != nullptr && !StartsWithGzipMagic(content) ? 1 : 0));
      break;
    case Kind::kChop:
      // Nothing buffered but able to fill: an empty stream, not a failed
      // open. Every byte arrives, however the spans cut the magic.
      Check(seen.inOpens == 1 && seen.lastName == name && in != nullptr);
      Check(ReadAll(in) == AsRead(content));
      QXPlatform::QXCloseIStream(in);
      Check(seen.inCloses == (StartsWithGzipMagic(content) ? 0 : 1));
      break;
    case Kind::kNul:
      Check(in == nullptr && seen.inOpens == 1);
      break;
    case Kind::kFile:
      if (fileOk) {
        Check(in != nullptr);
        Check(ReadAll(in) == (gz ? content : AsRead(content)));
      } else if (IsDirectoryName(name)) {
        // A directory opens, and reads as empty.
        Check(in != nullptr && ReadAll(in).empty());
      } else {
        Check(in == nullptr);
      }
      QXPlatform::QXCloseIStream(in);
      break;
  }

  // A missing file is looked for under its ".gz" form.
  if (fileOk && name.size() + 3 <= 255) {
    Check(unlink(name.c_str()) == 0);
    Check(QXPlatform::QXOpenIStream(name.c_str()) == nullptr);
    std::string packedName = name + ".gz";
    qxostream* packed = QXPlatform::QXOpenOStream(packedName.c_str());
    Check(packed != nullptr);
    packed->write(content.data(), content.size());
    QXPlatform::QXCloseOStream(packed);
    qxistream* found = QXPlatform::QXOpenIStream(name.c_str());
    Check(found != nullptr && ReadAll(found) == content);
    QXPlatform::QXCloseIStream(found);
  }
}

}  // namespace

// AddressSanitizer holds freed memory back for a while, which would keep the
// library's streams off the addresses of freed handler streams: without that
// hold, addresses are reused as they are in an ordinary build.
extern "C" const char* __asan_default_options() {
  return "quarantine_size_mb=0";
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Setup();
  FuzzedDataProvider provider(data, size);
  size_t cut = provider.ConsumeIntegral<uint32_t>();
  // Mostly one-byte spans: the hardest cut for looking at the first bytes.
  uint32_t spanBits = provider.ConsumeIntegral<uint32_t>();
  Spans().clear();
  for (int i = 0; i < 4; ++i) {
    size_t span = (spanBits >> (8 * i)) & 0xFF;
    Spans().push_back(span < 128 ? 1 : span * 97);
  }
  std::string name = provider.ConsumeRandomLengthString(300);
  std::string content = provider.ConsumeRemainingBytesAsString();
  // A name is a C string, and it must stay inside the scratch directory: no
  // separators, so no absolute path and no way up.
  name = name.substr(0, name.find('\0'));
  for (char& c : name) {
    if (c == '/') {
      c = '_';
    }
  }
  // The empty name means the standard streams, which are not fuzzed here.
  if (name.empty()) {
    name = "e";
  }
  WriteAndRead(name, content, cut);
  QXPlatform::QXCloseIStream(nullptr);
  QXPlatform::QXCloseOStream(nullptr);
  qxfuzz::Restore(qxfuzz::EnterScratch(), {"d"});
  return 0;
}
