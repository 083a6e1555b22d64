#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <string>
#include <thread>
#include <typeinfo>
#include <vector>

#include <gtest/gtest.h>

#include "support/qxtest_gzip.h"
#include "support/qxtest_support.h"
#include <QXPlatform/streams/qxfstream.h>
#include <QXPlatform/streams/qxgzstream.h>
#include <QXPlatform/streams/qxsstream.h>
#include <QXPlatform/streams/qxstreammngr.h>
#include <QXPlatform/streams/qxwrapperstream.h>

namespace QXPlatform {
namespace {

using testing::MakeMember;
using testing::RandomBytes;
using testing::ReadFile;
using testing::SampleText;
using testing::ScratchDir;
using testing::SpanStream;
using testing::FreedAddressesAreReused;
using testing::WriteFile;
using testing::ZlibGunzip;

std::string ReadAllAndClose(qxistream* in) {
  std::string all;
  in->read(all);
  QXCloseIStream(in);
  return all;
}

// What the handlers below saw. The registry lives as long as the process,
// so each test registers prefixes of its own.
std::vector<std::string>& Calls() {
  static std::vector<std::string> calls;
  return calls;
}

qxistream* OpenHello(const char* name) {
  Calls().push_back(std::string("open ") + name);
  return new qxisstream(std::string("hello from ") + name);
}

qxistream* OpenOther(const char* name) {
  Calls().push_back(std::string("other ") + name);
  return new qxisstream("other");
}

qxistream* OpenNothing(const char* name) {
  Calls().push_back(std::string("null ") + name);
  return nullptr;
}

qxistream* OpenEmpty(const char* name) {
  Calls().push_back(std::string("empty ") + name);
  return new qxisstream();
}

qxistream* OpenPacked(const char* name) {
  Calls().push_back(std::string("packed ") + name);
  return new qxisstream(MakeMember("unpacked by content"));
}

void CloseIn(qxistream* s) {
  Calls().push_back("close");
  delete s;
}

void CloseOther(qxistream* s) {
  Calls().push_back("close other");
  delete s;
}

// Output handler: a memory stream whose text the closer records.
qxostream* OpenMemory(const char* name) {
  Calls().push_back(std::string("open ") + name);
  return new qxosstream();
}

void CloseMemory(qxostream* s) {
  qxosstream* memory = dynamic_cast<qxosstream*>(s);
  Calls().push_back("close " + (memory != nullptr ? memory->str() : "?"));
  delete s;
}

qxostream* OpenFailed(const char* name) {
  Calls().push_back(std::string("failed ") + name);
  return new qxofstream();
}

class QXStreamMngrTest : public ::testing::Test {
 protected:
  void SetUp() override { Calls().clear(); }
  ScratchDir dir;
};

// ---------------------------------------------------------------------------
// Input by name

TEST_F(QXStreamMngrTest, PlainFileOpensAsAFileStream) {
  std::string data = RandomBytes(100000, 1);
  data[0] = 'p';
  WriteFile(dir.File("plain"), data);
  qxistream* in = QXOpenIStream(dir.File("plain").c_str());
  ASSERT_NE(in, nullptr);
  EXPECT_NE(dynamic_cast<qxifstream*>(in), nullptr);
  EXPECT_EQ(ReadAllAndClose(in), data);
}

TEST_F(QXStreamMngrTest, GzipContentIsUnpackedWhateverTheName) {
  std::string data = SampleText(200000, 2);
  WriteFile(dir.File("table.txt"), MakeMember(data));
  qxistream* in = QXOpenIStream(dir.File("table.txt").c_str());
  ASSERT_NE(in, nullptr);
  EXPECT_NE(dynamic_cast<qxigzstream*>(in), nullptr);
  EXPECT_EQ(ReadAllAndClose(in), data);
}

TEST_F(QXStreamMngrTest, ConcatenatedMembersAndTrailingTextReadAsOne) {
  WriteFile(dir.File("cat.gz"),
            MakeMember("first ") + MakeMember("second") + "\nplain tail\n");
  EXPECT_EQ(ReadAllAndClose(QXOpenIStream(dir.File("cat.gz").c_str())),
            "first second\nplain tail\n");
}

TEST_F(QXStreamMngrTest, AMissingNameIsTriedWithGzAppended) {
  std::string data = SampleText(5000, 3);
  WriteFile(dir.File("log.gz"), MakeMember(data));
  qxistream* in = QXOpenIStream(dir.File("log").c_str());
  ASSERT_NE(in, nullptr);
  EXPECT_EQ(ReadAllAndClose(in), data);
  // A plain file under the longer name is read as it is.
  WriteFile(dir.File("notes.gz"), "not packed");
  EXPECT_EQ(ReadAllAndClose(QXOpenIStream(dir.File("notes").c_str())),
            "not packed");
}

TEST_F(QXStreamMngrTest, ANameMissingInBothFormsGivesNull) {
  EXPECT_EQ(QXOpenIStream(dir.File("absent").c_str()), nullptr);
  EXPECT_EQ(QXOpenIStream(dir.File("no/such/dir/file").c_str()), nullptr);
}

TEST_F(QXStreamMngrTest, AnEmptyFileOpensAsAnEmptyStream) {
  WriteFile(dir.File("empty"), "");
  qxistream* in = QXOpenIStream(dir.File("empty").c_str());
  ASSERT_NE(in, nullptr);
  char c;
  EXPECT_EQ(in->read(&c, 1), 0u);
  EXPECT_TRUE(in->eof());
  QXCloseIStream(in);
}

TEST_F(QXStreamMngrTest, AFirstByte1FWithAnotherSecondByteIsReturnedUndecoded) {
  std::string data = std::string("\x1f") + "Z rest of the data";
  WriteFile(dir.File("odd"), data);
  qxistream* in = QXOpenIStream(dir.File("odd").c_str());
  ASSERT_NE(in, nullptr);
  EXPECT_EQ(dynamic_cast<qxigzstream*>(in), nullptr);
  EXPECT_EQ(ReadAllAndClose(in), data);
}

TEST_F(QXStreamMngrTest, TheOldCompressMagicIsReturnedUndecoded) {
  std::string data = std::string("\x1f\x9d\x90", 3) + RandomBytes(40000, 4);
  WriteFile(dir.File("old.Z"), data);
  qxistream* in = QXOpenIStream(dir.File("old.Z").c_str());
  ASSERT_NE(in, nullptr);
  EXPECT_EQ(dynamic_cast<qxigzstream*>(in), nullptr);
  EXPECT_EQ(ReadAllAndClose(in), data);
}

TEST_F(QXStreamMngrTest, ALoneByte1FIsReturnedAsItIs) {
  WriteFile(dir.File("one"), "\x1f");
  EXPECT_EQ(ReadAllAndClose(QXOpenIStream(dir.File("one").c_str())), "\x1f");
}

TEST_F(QXStreamMngrTest, APathWithAnUnregisteredPrefixOpensAsAFile) {
  WriteFile(dir.File("C:data"), "colon in the name");
  EXPECT_EQ(ReadAllAndClose(QXOpenIStream(dir.File("C:data").c_str())),
            "colon in the name");
}

TEST_F(QXStreamMngrTest, ALeadingColonAlwaysNamesAFile) {
  ASSERT_TRUE(QXRegisterIStream("lead", OpenHello, CloseIn));
  char old[4096];
  ASSERT_NE(getcwd(old, sizeof old), nullptr);
  ASSERT_EQ(chdir(dir.path().c_str()), 0);
  WriteFile(dir.File(":lead:abc"), "a file");
  qxistream* in = QXOpenIStream(":lead:abc");
  ASSERT_EQ(chdir(old), 0);
  ASSERT_NE(in, nullptr);
  EXPECT_EQ(ReadAllAndClose(in), "a file");
  for (const std::string& call : Calls()) {
    EXPECT_NE(call.substr(0, 5), "open ");
  }
}

TEST_F(QXStreamMngrTest, SeekAndSizeWorkOnAnOpenedGzipFile) {
  std::string data = SampleText(300000, 5);
  WriteFile(dir.File("s.gz"), MakeMember(data));
  qxistream* in = QXOpenIStream(dir.File("s.gz").c_str());
  ASSERT_NE(in, nullptr);
  std::string piece;
  in->read(piece, 100000);
  EXPECT_EQ(in->size(), 300000u);
  ASSERT_TRUE(in->seek(5));
  in->read(piece, 10);
  EXPECT_EQ(piece, data.substr(5, 10));
  QXCloseIStream(in);
}

// ---------------------------------------------------------------------------
// Handlers

TEST_F(QXStreamMngrTest, HandlerGetsTheWholeNameAndItsCloserDisposes) {
  ASSERT_TRUE(QXRegisterIStream("hello", OpenHello, CloseIn));
  qxistream* in = QXOpenIStream("hello:abc");
  ASSERT_NE(in, nullptr);
  EXPECT_EQ(ReadAllAndClose(in), "hello from hello:abc");
  EXPECT_EQ(Calls(), (std::vector<std::string>{"open hello:abc", "close"}));
}

TEST_F(QXStreamMngrTest, TheBarePrefixGoesToTheHandlerToo) {
  ASSERT_TRUE(QXRegisterIStream("bare", OpenHello, CloseIn));
  EXPECT_EQ(ReadAllAndClose(QXOpenIStream("bare")), "hello from bare");
  EXPECT_EQ(Calls(), (std::vector<std::string>{"open bare", "close"}));
}

TEST_F(QXStreamMngrTest, OnlyThePartBeforeTheFirstColonIsThePrefix) {
  ASSERT_TRUE(QXRegisterIStream("multi", OpenHello, CloseIn));
  EXPECT_EQ(ReadAllAndClose(QXOpenIStream("multi:a:b:c")),
            "hello from multi:a:b:c");
  // "multi:a" as a whole is not a prefix.
  EXPECT_EQ(QXOpenIStream(dir.File("multi:a").c_str()), nullptr);
}

TEST_F(QXStreamMngrTest, RegisteringAPrefixAgainKeepsTheSecondPair) {
  ASSERT_TRUE(QXRegisterIStream("twice", OpenHello, CloseIn));
  ASSERT_TRUE(QXRegisterIStream("twice", OpenOther, CloseOther));
  EXPECT_EQ(ReadAllAndClose(QXOpenIStream("twice:x")), "other");
  EXPECT_EQ(Calls(),
            (std::vector<std::string>{"other twice:x", "close other"}));
}

TEST_F(QXStreamMngrTest, AHandlerReturningNullGivesNull) {
  ASSERT_TRUE(QXRegisterIStream("none", OpenNothing, CloseIn));
  EXPECT_EQ(QXOpenIStream("none:x"), nullptr);
  EXPECT_EQ(Calls(), std::vector<std::string>{"null none:x"});
}

TEST_F(QXStreamMngrTest, AnEmptyHandlerStreamIsRetriedThenDeleted) {
  ASSERT_TRUE(QXRegisterIStream("void", OpenEmpty, CloseIn));
  EXPECT_EQ(QXOpenIStream("void:x"), nullptr);
  EXPECT_EQ(Calls(), std::vector<std::string>{"empty void:x"});
}

TEST_F(QXStreamMngrTest, PackedHandlerDataAreUnwrappedAndTheWrapperDisposes) {
  ASSERT_TRUE(QXRegisterIStream("packed", OpenPacked, CloseIn));
  qxistream* in = QXOpenIStream("packed:x");
  ASSERT_NE(in, nullptr);
  EXPECT_NE(dynamic_cast<qxigzstream*>(in), nullptr);
  EXPECT_EQ(ReadAllAndClose(in), "unpacked by content");
  // The gzip stream deleted the handler's stream itself.
  EXPECT_EQ(Calls(), std::vector<std::string>{"packed packed:x"});
}

TEST_F(QXStreamMngrTest, OpenInputResolvesNamesWithoutLookingAtContent) {
  ASSERT_TRUE(QXRegisterIStream("raw", OpenPacked, CloseIn));
  qxistream* in = QXStreamMngr().openInput("raw:1");
  ASSERT_NE(in, nullptr);
  EXPECT_EQ(dynamic_cast<qxigzstream*>(in), nullptr);
  std::string all;
  in->read(all);
  EXPECT_EQ(all, MakeMember("unpacked by content"));
  QXCloseIStream(in);
  EXPECT_EQ(Calls(), (std::vector<std::string>{"packed raw:1", "close"}));

  qxistream* missing = QXStreamMngr().openInput(dir.File("absent").c_str());
  ASSERT_NE(missing, nullptr);
  EXPECT_TRUE(missing->eof());
  delete missing;

  qxistream* standard = QXStreamMngr().openInput(nullptr);
  ASSERT_NE(standard, nullptr);
  EXPECT_NE(dynamic_cast<qxiwrapperstream*>(standard), nullptr);
  delete standard;
}

// A stream that outlives every close, so that its closer entry can be
// watched.
qxisstream& Shared() {
  static qxisstream shared("shared");
  return shared;
}

qxistream* OpenSharedA(const char*) { return &Shared(); }
qxistream* OpenSharedB(const char*) { return &Shared(); }
void KeepA(qxistream*) { Calls().push_back("closer A"); }
void KeepB(qxistream*) { Calls().push_back("closer B"); }

TEST_F(QXStreamMngrTest, EachOpenOfAnAddressIsClosedByTheHandlerThatMadeIt) {
  ASSERT_TRUE(QXRegisterIStream("sharedA", OpenSharedA, KeepA));
  ASSERT_TRUE(QXRegisterIStream("sharedB", OpenSharedB, KeepB));
  qxistream* in = QXOpenIStream("sharedA:1");
  ASSERT_EQ(in, &Shared());
  QXCloseIStream(in);
  EXPECT_EQ(Calls(), (std::vector<std::string>{"closer A"}));
  Shared().set("shared");
  in = QXOpenIStream("sharedB:1");
  ASSERT_EQ(in, &Shared());
  QXCloseIStream(in);
  EXPECT_EQ(Calls(), (std::vector<std::string>{"closer A", "closer B"}));
}

TEST_F(QXStreamMngrTest, CloseIgnoresNull) {
  QXCloseIStream(nullptr);
  QXCloseOStream(nullptr);
  EXPECT_TRUE(Calls().empty());
}

// ---------------------------------------------------------------------------
// Output by name

TEST_F(QXStreamMngrTest, OutputNameEndingInGzIsPacked) {
  std::string data = SampleText(100000, 6);
  qxostream* out = QXOpenOStream(dir.File("out.gz").c_str());
  ASSERT_NE(out, nullptr);
  EXPECT_NE(dynamic_cast<qxogzstream*>(out), nullptr);
  out->write(data.data(), data.size());
  QXCloseOStream(out);
  bool ok = false;
  EXPECT_EQ(ZlibGunzip(ReadFile(dir.File("out.gz")), &ok), data);
  EXPECT_TRUE(ok);
  EXPECT_EQ(ReadAllAndClose(QXOpenIStream(dir.File("out.gz").c_str())), data);
}

TEST_F(QXStreamMngrTest, GzAnywhereInTheOutputNameAsksForGzip) {
  qxostream* out = QXOpenOStream(dir.File("run.gz.log").c_str());
  ASSERT_NE(out, nullptr);
  *out << "packed anyway";
  QXCloseOStream(out);
  EXPECT_EQ(ZlibGunzip(ReadFile(dir.File("run.gz.log"))), "packed anyway");

  out = QXOpenOStream(dir.File("archive.gzip").c_str());
  ASSERT_NE(out, nullptr);
  *out << "also";
  QXCloseOStream(out);
  EXPECT_EQ(ZlibGunzip(ReadFile(dir.File("archive.gzip"))), "also");
}

TEST_F(QXStreamMngrTest, OutputNameWithoutGzIsPlain) {
  qxostream* out = QXOpenOStream(dir.File("plain.txt").c_str());
  ASSERT_NE(out, nullptr);
  EXPECT_NE(dynamic_cast<qxofstream*>(out), nullptr);
  *out << "plain " << 7;
  QXCloseOStream(out);
  EXPECT_EQ(ReadFile(dir.File("plain.txt")), "plain 7");
  // A ".Gz" in another case is not ".gz".
  out = QXOpenOStream(dir.File("upper.Gz").c_str());
  *out << "x";
  QXCloseOStream(out);
  EXPECT_EQ(ReadFile(dir.File("upper.Gz")), "x");
}

TEST_F(QXStreamMngrTest, OutputInAMissingDirectoryGivesNull) {
  EXPECT_EQ(QXOpenOStream(dir.File("missing/out.txt").c_str()), nullptr);
  EXPECT_EQ(QXOpenOStream(dir.File("missing/out.gz").c_str()), nullptr);
}

TEST_F(QXStreamMngrTest, OutputHandlerGetsTheWholeNameAndItsCloser) {
  ASSERT_TRUE(QXRegisterOStream("mem", OpenMemory, CloseMemory));
  qxostream* out = QXOpenOStream("mem:buffer");
  ASSERT_NE(out, nullptr);
  *out << "written";
  QXCloseOStream(out);
  EXPECT_EQ(Calls(),
            (std::vector<std::string>{"open mem:buffer", "close written"}));
}

TEST_F(QXStreamMngrTest, OutputHandlerWithGzInTheNameIsWrapped) {
  ASSERT_TRUE(QXRegisterOStream("memgz", OpenMemory, CloseMemory));
  qxostream* out = QXOpenOStream("memgz:x.gz");
  ASSERT_NE(out, nullptr);
  EXPECT_NE(dynamic_cast<qxogzstream*>(out), nullptr);
  *out << "packed";
  QXCloseOStream(out);
  // The gzip stream deleted the handler's stream; its closer was not used.
  EXPECT_EQ(Calls(), std::vector<std::string>{"open memgz:x.gz"});
}

TEST_F(QXStreamMngrTest, AFailedHandlerOutputStreamIsDeletedAndNullReturned) {
  ASSERT_TRUE(QXRegisterOStream("broken", OpenFailed, CloseMemory));
  EXPECT_EQ(QXOpenOStream("broken:x"), nullptr);
  EXPECT_EQ(Calls(), std::vector<std::string>{"failed broken:x"});
}

TEST_F(QXStreamMngrTest, OutputPrefixesAreSeparateFromInputPrefixes) {
  ASSERT_TRUE(QXRegisterIStream("sideonly", OpenHello, CloseIn));
  qxostream* out = QXOpenOStream(dir.File("sideonly:file").c_str());
  ASSERT_NE(out, nullptr);
  *out << "file";
  QXCloseOStream(out);
  EXPECT_EQ(ReadFile(dir.File("sideonly:file")), "file");
  for (const std::string& call : Calls()) {
    EXPECT_NE(call.substr(0, 5), "open ");
  }
}

TEST_F(QXStreamMngrTest, OpenOutputOfNoNameIsAWrapperAroundStandardOutput) {
  qxostream* out = QXStreamMngr().openOutput("");
  ASSERT_NE(out, nullptr);
  qxowrapperstream* wrapper = dynamic_cast<qxowrapperstream*>(out);
  ASSERT_NE(wrapper, nullptr);
  EXPECT_NE(wrapper->stream(), nullptr);
  delete out;
}

// ---------------------------------------------------------------------------
// Input that cannot go back: the bytes looked at to recognise gzip must not
// be lost.

// What the next "spans" handler stream holds and how it is cut.
std::string& SpanData() {
  static std::string data;
  return data;
}
std::vector<size_t>& SpanCuts() {
  static std::vector<size_t> cuts;
  return cuts;
}

qxistream* OpenSpans(const char*) {
  return new SpanStream(SpanData(), SpanCuts());
}

void CloseSpans(qxistream* s) {
  Calls().push_back("close spans");
  delete s;
}

std::string ReadThroughSpans(const std::string& data,
                             std::vector<size_t> cuts) {
  SpanData() = data;
  SpanCuts() = std::move(cuts);
  qxistream* in = QXOpenIStream("spans:x");
  if (in == nullptr) {
    return "<null>";
  }
  return ReadAllAndClose(in);
}

TEST_F(QXStreamMngrTest, OneByteSpansThatCannotSeekLoseNoPlainByte) {
  ASSERT_TRUE(QXRegisterIStream("spans", OpenSpans, CloseSpans));
  EXPECT_EQ(ReadThroughSpans("\x1Fplain", {1}), "\x1Fplain");
  EXPECT_EQ(ReadThroughSpans("\x1F\x9D", {1}), "\x1F\x9D");
  EXPECT_EQ(ReadThroughSpans("\x1F", {1}), "\x1F");
  // The first byte alone, then a whole block behind it.
  std::string big = "\x1F" + RandomBytes(3 * qxstream::kBlockSize, 7);
  EXPECT_EQ(ReadThroughSpans(big, {1, qxstream::kBlockSize}), big);
  EXPECT_EQ(Calls(), std::vector<std::string>(4, "close spans"));
}

TEST_F(QXStreamMngrTest, OneByteSpansThatCannotSeekStillUnpackGzip) {
  ASSERT_TRUE(QXRegisterIStream("spans", OpenSpans, CloseSpans));
  std::string text = SampleText(100000, 3);
  std::string member = MakeMember(text);
  EXPECT_EQ(ReadThroughSpans(member, {1}), text);
  EXPECT_EQ(ReadThroughSpans(member, {1, qxstream::kBlockSize}), text);
  std::string noisy = RandomBytes(200000, 5);
  EXPECT_EQ(ReadThroughSpans(MakeMember(noisy, testing::GzipHeader(), 0),
                             {1, qxstream::kBlockSize}),
            noisy);
}

// A stream that cannot go back and hands out spans of its own memory, not of
// its block.
class OwnSpans : public qxistream {
 public:
  OwnSpans(std::string data, std::vector<size_t> cuts)
      : _data(std::move(data)), _cuts(std::move(cuts)), _next(0), _pos(0) {
    _eof = false;
  }

 protected:
  bool _qxfill() override {
    if (_pos >= _data.size()) {
      _ptr = _end;
      _eof = true;
      return false;
    }
    size_t want = _cuts.empty() ? _data.size() : _cuts[_next++ % _cuts.size()];
    size_t n = std::min(std::max<size_t>(want, 1), _data.size() - _pos);
    _offset += static_cast<unsigned long long>(_ptr - _begin);
    _begin = _ptr = &_data[_pos];
    _end = _begin + n;
    _pos += n;
    return true;
  }

 private:
  std::string _data;
  std::vector<size_t> _cuts;
  size_t _next;
  size_t _pos;
};

qxistream* OpenOwnSpans(const char*) {
  return new OwnSpans(SpanData(), SpanCuts());
}

void CloseOwnSpans(qxistream* s) {
  Calls().push_back(dynamic_cast<OwnSpans*>(s) != nullptr ? "close own"
                                                          : "misrouted");
  delete s;
}

std::string ReadThroughOwnSpans(const std::string& data,
                                std::vector<size_t> cuts,
                                const char* name = "ownspans:x") {
  SpanData() = data;
  SpanCuts() = std::move(cuts);
  qxistream* in = QXOpenIStream(name);
  if (in == nullptr) {
    return "<null>";
  }
  return ReadAllAndClose(in);
}

TEST_F(QXStreamMngrTest, SpansOutsideTheStreamsBlockLoseNoPlainByte) {
  ASSERT_TRUE(QXRegisterIStream("ownspans", OpenOwnSpans, CloseOwnSpans));
  EXPECT_EQ(ReadThroughOwnSpans("\x1Fplain", {1}), "\x1Fplain");
  EXPECT_EQ(ReadThroughOwnSpans("\x1F", {1}), "\x1F");
  // A span longer than a block behind the first byte: what does not fit in
  // front is read from the stream afterwards.
  std::string big = "\x1F" + RandomBytes(3 * qxstream::kBlockSize + 5, 8);
  EXPECT_EQ(ReadThroughOwnSpans(big, {1, 2 * qxstream::kBlockSize}), big);
  EXPECT_EQ(ReadThroughOwnSpans(big, {1, 7}), big);
  // The stream read through a wrapper goes with it; its closer is not asked
  // for it, and for nothing else either.
  for (const std::string& call : Calls()) {
    EXPECT_NE(call, "misrouted");
  }
}

TEST_F(QXStreamMngrTest, SpansOutsideTheStreamsBlockStillUnpackGzip) {
  ASSERT_TRUE(QXRegisterIStream("owngz", OpenOwnSpans, CloseOwnSpans));
  std::string text = SampleText(100000, 5);
  std::string member = MakeMember(text);
  EXPECT_EQ(ReadThroughOwnSpans(member, {1}, "owngz:x"), text);
  EXPECT_EQ(
      ReadThroughOwnSpans(member, {1, 3 * qxstream::kBlockSize}, "owngz:x"),
      text);
  EXPECT_EQ(ReadThroughOwnSpans(member, {1, 1, 1000}, "owngz:x"), text);
}

// A memory stream of the first byte alone keeps its own copy of it: the
// look at a second byte that is not there changes nothing.
qxistream* OpenOneByteCopy(const char*) {
  return new qxisstream(std::string("\x1F"));
}

TEST_F(QXStreamMngrTest, AMemoryStreamOfTheFirstByteAloneKeepsIt) {
  ASSERT_TRUE(QXRegisterIStream("onebyte", OpenOneByteCopy, CloseIn));
  qxistream* in = QXOpenIStream("onebyte:x");
  ASSERT_NE(in, nullptr);
  EXPECT_NE(dynamic_cast<qxisstream*>(in), nullptr);
  EXPECT_EQ(ReadAllAndClose(in), "\x1F");
  EXPECT_EQ(Calls(), std::vector<std::string>{"close"});
}

// Writes first, waits until the reader has surely taken it, then the rest:
// the reader's first read of the pipe sees the first byte alone.
void WriteInTwoSteps(const std::string& path, std::string first,
                     std::string rest) {
  int fd = ::open(path.c_str(), O_WRONLY);
  if (fd < 0) {
    return;
  }
  if (::write(fd, first.data(), first.size()) < 0) {
    ::close(fd);
    return;
  }
  std::this_thread::sleep_for(std::chrono::milliseconds(200));
  size_t done = 0;
  while (done < rest.size()) {
    ssize_t put = ::write(fd, rest.data() + done, rest.size() - done);
    if (put <= 0) {
      break;
    }
    done += static_cast<size_t>(put);
  }
  ::close(fd);
}

std::string ReadThroughFifo(const std::string& path, const std::string& data) {
  ::unlink(path.c_str());
  if (::mkfifo(path.c_str(), 0600) != 0) {
    return "<no fifo>";
  }
  std::thread writer(WriteInTwoSteps, path, data.substr(0, 1), data.substr(1));
  qxistream* in = QXOpenIStream(path.c_str());
  std::string all = in != nullptr ? ReadAllAndClose(in) : "<null>";
  writer.join();
  return all;
}

TEST_F(QXStreamMngrTest, AFifoWhoseFirstByteArrivesAloneLosesNoPlainByte) {
  std::string path = dir.File("fifo");
  EXPECT_EQ(ReadThroughFifo(path, "\x1Fplain after a pause"),
            "\x1Fplain after a pause");
  std::string big = "\x1F" + RandomBytes(40000, 9);
  EXPECT_EQ(ReadThroughFifo(path, big), big);
}

TEST_F(QXStreamMngrTest, AFifoWhoseFirstByteArrivesAloneStillUnpacksGzip) {
  std::string path = dir.File("fifo.gz");
  std::string text = SampleText(50000, 4);
  EXPECT_EQ(ReadThroughFifo(path, MakeMember(text)), text);
  std::string noisy = RandomBytes(60000, 6);
  EXPECT_EQ(ReadThroughFifo(path, MakeMember(noisy, testing::GzipHeader(), 0)),
            noisy);
}

// ---------------------------------------------------------------------------
// A handler is asked to close only streams it made.

// A handler's stream of the same size as a plain file stream, so that the
// allocator hands a freed one's address to the next plain stream.
class HandlerFile : public qxifstream {
 public:
  using qxifstream::qxifstream;
};

std::string& HandlerPath() {
  static std::string path;
  return path;
}

qxistream* OpenHandlerFile(const char*) {
  return new HandlerFile(HandlerPath().c_str());
}

void CloseHandlerFile(qxistream* s) {
  Calls().push_back(typeid(*s) == typeid(HandlerFile) ? "handler file"
                                                      : "misrouted");
  delete s;
}

void AlternateHandlerAndPlainOpens(const std::string& handlerName,
                                   const std::string& plainName, int rounds,
                                   int* reused) {
  for (int i = 0; i < rounds; ++i) {
    qxistream* mine = QXOpenIStream(handlerName.c_str());
    ASSERT_NE(mine, nullptr);
    void* inner = mine;
    if (qxigzstream* gz = dynamic_cast<qxigzstream*>(mine)) {
      inner = gz->stream();
    }
    ReadAllAndClose(mine);
    qxistream* plain = QXOpenIStream(plainName.c_str());
    ASSERT_NE(plain, nullptr);
    if (static_cast<void*>(plain) == inner) {
      ++*reused;
    }
    ReadAllAndClose(plain);
  }
}

TEST_F(QXStreamMngrTest, APlainStreamAtAFreedHandlerStreamsAddressIsNotRouted) {
  if (!FreedAddressesAreReused()) {
    GTEST_SKIP() << "this allocator keeps freed addresses unused for a while";
  }
  ASSERT_TRUE(QXRegisterIStream("hfile", OpenHandlerFile, CloseHandlerFile));
  HandlerPath() = dir.File("handler.txt");
  WriteFile(HandlerPath(), "handler");
  WriteFile(dir.File("plain.txt"), "plain");
  int reused = 0;
  AlternateHandlerAndPlainOpens("hfile:x", dir.File("plain.txt"), 5, &reused);
  EXPECT_EQ(Calls(), std::vector<std::string>(5, "handler file"));
  // Only meaningful when the allocator reused the address, as glibc does.
  EXPECT_GT(reused, 0);
}

TEST_F(QXStreamMngrTest, APlainStreamWhereAGzipWrapperFreedAHandlerStream) {
  if (!FreedAddressesAreReused()) {
    GTEST_SKIP() << "this allocator keeps freed addresses unused for a while";
  }
  ASSERT_TRUE(QXRegisterIStream("hfile", OpenHandlerFile, CloseHandlerFile));
  HandlerPath() = dir.File("handler.gz");
  WriteFile(HandlerPath(), MakeMember("packed"));
  WriteFile(dir.File("plain.txt"), "plain");
  int reused = 0;
  AlternateHandlerAndPlainOpens("hfile:x", dir.File("plain.txt"), 5, &reused);
  // The gzip wrapper deleted the handler's streams; no plain stream reached
  // the handler's close function.
  EXPECT_TRUE(Calls().empty());
  EXPECT_GT(reused, 0);
}

}  // namespace
}  // namespace QXPlatform
