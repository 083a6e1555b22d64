// Gzip through the stream manager and directly, fan-out to several streams,
// and whole-buffer compression with QXCompress and QXUncompress.

#include <string>

#include <QXPlatform/QXPlatform.h>

using namespace QXPlatform;

namespace {

int failures = 0;

void Check(bool ok, const char* what) {
  if (!ok) {
    qxerr << "gzip_streams: failed: " << what << qxendl;
    ++failures;
  }
}

std::string ReadFile(const std::string& path) {
  qxifstream in(path.c_str());
  std::string bytes;
  in.read(bytes);
  return bytes;
}

unsigned long LittleEndian32(const std::string& bytes, size_t at) {
  unsigned long value = 0;
  for (int i = 3; i >= 0; --i) {
    value = (value << 8) | static_cast<unsigned char>(bytes[at + i]);
  }
  return value;
}

}  // namespace

int main() {
  std::string dir = QXFileTempDirectory("");
  Check(!dir.empty(), "temporary directory");
  std::string name = dir + "/log.txt.gz";
  std::string text = "first line\nsecond line\n";

  // ".gz" anywhere in an output name packs the data as gzip.
  qxostream* out = QXOpenOStream(name.c_str());
  Check(out != nullptr, "QXOpenOStream");
  *out << text;
  // Deliberate: flush() of a gzip stream writes nothing until a whole
  // 32768-byte block is full or the stream is closed.
  out->flush();
  Check(QXFileSize(name) == 0, "flush writes nothing yet");
  // Closing writes the last data and the trailer.
  QXCloseOStream(out);

  // One gzip member: fixed 10-byte header, raw deflate data, then the CRC-32
  // and the length, both little-endian.
  std::string packed = ReadFile(name);
  Check(packed.size() > 18 &&
            packed.compare(0, 10, "\x1f\x8b\x08\0\0\0\0\0\0\x03", 10) == 0,
        "gzip header");
  Check(LittleEndian32(packed, packed.size() - 4) == text.size(),
        "trailer length");

  // Input is unpacked by its content, whatever the name; a missing name is
  // tried again with ".gz" appended.
  qxistream* in = QXOpenIStream((dir + "/log.txt").c_str());
  Check(in != nullptr, "QXOpenIStream finds the .gz file");
  std::string line;
  Check(in != nullptr && in->getline(line) && line == "first line" &&
            in->getline(line) && line == "second line" && !in->getline(line),
        "lines read back");
  QXCloseIStream(in);
  Check(QXOpenIStream((dir + "/missing").c_str()) == nullptr, "null result");

  // The gzip streams themselves, here over a memory stream, with a fan-out
  // stream that copies everything to two places.
  qxosstream packedInMemory;
  qxosstream plainCopy;
  {
    qxogzstream gz(&packedInMemory, false);
    qxmultiostream both;
    both.addstream(&gz, false);
    both.addstream(&plainCopy, false);
    both << text;
    // qxmultiostream's destructor does not flush: flush first.
    both.flush();
    gz.close();
  }
  std::string unpacked;
  Check(QXUncompress(unpacked, packedInMemory.str(), "gz") &&
            unpacked == text && plainCopy.str() == text,
        "gzip stream and fan-out");

  // Whole-buffer compression. QXCompress replaces its output; QXUncompress
  // appends to it.
  std::string data(100000, 'q');
  for (const char* method : {"gz", "zstd"}) {
    std::string small;
    std::string back = "kept:";
    Check(QXCompress(small, data, method) && small.size() < data.size(),
          "QXCompress");
    Check(QXUncompress(back, small, method) && back == "kept:" + data,
          "QXUncompress appends");
  }
  std::string none = "old";
  Check(!QXCompress(none, data, "lz4") && none.empty(), "unknown method");
  // Deliberate: only names beginning with "gz" count as available.
  Check(QXCompressionAvailable("gz") && !QXCompressionAvailable("zstd"),
        "QXCompressionAvailable");

  Check(QXUnlink(name.c_str()) && QXUnlinkDirectory(dir.c_str()), "clean up");
  if (failures != 0) {
    return 1;
  }
  qxout << "gzip_streams: all checks passed" << qxendl;
  return 0;
}
