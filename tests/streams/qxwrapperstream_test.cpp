#include <cstring>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/qxtest_support.h"
#include <QXPlatform/streams/qxfstream.h>
#include <QXPlatform/streams/qxsstream.h>
#include <QXPlatform/streams/qxstdstream.h>
#include <QXPlatform/streams/qxwrapperstream.h>

namespace QXPlatform {
namespace {

using testing::CaptureFd;
using testing::RandomBytes;
using testing::ReadFile;
using testing::ScratchDir;
using testing::WriteFile;

// A memory input stream that notes its destruction in a log.
class LoggedIStream : public qxisstream {
 public:
  LoggedIStream(const std::string& data, std::vector<std::string>* log,
                std::string name)
      : qxisstream(data), _log(log), _name(std::move(name)) {}
  ~LoggedIStream() override { _log->push_back("deleted " + _name); }

 private:
  std::vector<std::string>* _log;
  std::string _name;
};

// A memory output stream that notes flushes and its destruction.
class LoggedOStream : public qxosstream {
 public:
  LoggedOStream(std::vector<std::string>* log, std::string name)
      : _log(log), _name(std::move(name)) {}
  ~LoggedOStream() override { _log->push_back("deleted " + _name); }
  int flushes = 0;

 protected:
  bool _qxflush() override {
    ++flushes;
    return qxosstream::_qxflush();
  }

 private:
  std::vector<std::string>* _log;
  std::string _name;
};

// An output stream whose flush throws while armed; it takes 4 bytes before
// it needs one.
class ThrowingOStream : public qxostream {
 public:
  explicit ThrowingOStream(bool* deleted) : _deleted(deleted) {
    _end = _buffer + 4;
  }
  ~ThrowingOStream() override { *_deleted = true; }
  bool armed = true;

 protected:
  bool _qxflush() override {
    if (armed) {
      throw QXIOError("boom");
    }
    _ptr = _begin;
    return true;
  }

 private:
  bool* _deleted;
};

// Input and output wrappers that log their two hooks and can refuse inner
// streams.
class HookedIWrapper : public qxiwrapperstream {
 public:
  explicit HookedIWrapper(bool accept)
      : qxiwrapperstream(nullptr, false), _accept(accept) {}
  int clears = 0;
  int sets = 0;

 protected:
  void _qxclear() override { ++clears; }
  bool _qxset(qxistream*) override {
    ++sets;
    return _accept;
  }

 private:
  bool _accept;
};

class HookedOWrapper : public qxowrapperstream {
 public:
  explicit HookedOWrapper(bool accept)
      : qxowrapperstream(nullptr, false), _accept(accept) {}
  int clears = 0;
  int sets = 0;

 protected:
  void _qxclear() override { ++clears; }
  bool _qxset(qxostream*) override {
    ++sets;
    return _accept;
  }

 private:
  bool _accept;
};

std::string ReadAll(qxistream& in) {
  std::string all;
  in.read(all);
  return all;
}

// ---------------------------------------------------------------------------
// Input wrapper

TEST(qxiwrapperstreamTest, ReadsTheInnerStreamAtTheBlockEdges) {
  for (size_t n : {0ul, 1ul, 32767ul, 32768ul, 32769ul, 65536ul, 100001ul}) {
    std::string data = RandomBytes(n, static_cast<unsigned>(n));
    qxisstream inner(data);
    qxiwrapperstream wrapper(&inner, false);
    EXPECT_EQ(ReadAll(wrapper), data) << n;
    EXPECT_TRUE(wrapper.eof());
  }
}

TEST(qxiwrapperstreamTest, ReadsStraddlingTheBlock) {
  std::string data = RandomBytes(70000, 3);
  qxisstream inner(data);
  qxiwrapperstream wrapper(&inner, false);
  std::string first;
  ASSERT_EQ(wrapper.read(first, 32760), 32760u);
  std::string second;
  ASSERT_EQ(wrapper.read(second, 20), 20u);
  EXPECT_EQ(second, data.substr(32760, 20));
  EXPECT_EQ(wrapper.tell(), 32780u);
}

TEST(qxiwrapperstreamTest, SetWithTheCurrentInnerStreamChangesNothing) {
  std::vector<std::string> log;
  LoggedIStream* inner = new LoggedIStream("abcdefghij", &log, "inner");
  HookedIWrapper wrapper(true);
  ASSERT_TRUE(wrapper.set(inner, true));
  EXPECT_EQ(wrapper.clears, 1);
  char two[2];
  ASSERT_EQ(wrapper.read(two, 2), 2u);
  // Same stream, now claimed as not owned: nothing is cleared or deleted,
  // and ownership stays as it was.
  EXPECT_TRUE(wrapper.set(inner, false));
  EXPECT_EQ(wrapper.clears, 1);
  EXPECT_TRUE(log.empty());
  EXPECT_EQ(wrapper.tell(), 2u);
  char next;
  ASSERT_EQ(wrapper.read(&next, 1), 1u);
  EXPECT_EQ(next, 'c');
  wrapper.clear();
  EXPECT_EQ(log, std::vector<std::string>{"deleted inner"});
}

TEST(qxiwrapperstreamTest, SetOverAnExhaustedStreamFailsAndReadsNothing) {
  qxisstream inner("xy");
  std::string all;
  inner.read(all);
  ASSERT_FALSE(inner.buffered());
  HookedIWrapper wrapper(true);
  EXPECT_FALSE(wrapper.set(&inner, false));
  EXPECT_EQ(wrapper.sets, 0);
  EXPECT_TRUE(wrapper.eof());
  char c;
  EXPECT_EQ(wrapper.read(&c, 1), 0u);
}

TEST(qxiwrapperstreamTest, SetNullFailsAndTheWrapperReadsNothing) {
  qxiwrapperstream wrapper(nullptr, false);
  EXPECT_TRUE(wrapper.eof());
  EXPECT_FALSE(wrapper.set(nullptr, true));
  char c;
  EXPECT_EQ(wrapper.read(&c, 1), 0u);
  EXPECT_EQ(wrapper.size(), 0u);
  EXPECT_FALSE(wrapper.seek(0));
  EXPECT_EQ(wrapper.stream(), nullptr);
}

TEST(qxiwrapperstreamTest, RefusedInnerStreamLeavesTheWrapperAtItsEnd) {
  qxisstream inner("data");
  HookedIWrapper wrapper(false);
  EXPECT_FALSE(wrapper.set(&inner, false));
  EXPECT_EQ(wrapper.sets, 1);
  EXPECT_TRUE(wrapper.eof());
  EXPECT_EQ(wrapper.stream(), &inner);
}

TEST(qxiwrapperstreamTest, SetAnotherStreamDeletesTheOwnedOneAndRestarts) {
  std::vector<std::string> log;
  HookedIWrapper wrapper(true);
  wrapper.set(new LoggedIStream("first", &log, "first"), true);
  char c;
  ASSERT_EQ(wrapper.read(&c, 1), 1u);
  EXPECT_TRUE(wrapper.set(new LoggedIStream("second", &log, "second"), true));
  EXPECT_EQ(wrapper.clears, 2);
  EXPECT_EQ(log, std::vector<std::string>{"deleted first"});
  EXPECT_EQ(wrapper.tell(), 0u);
  EXPECT_EQ(ReadAll(wrapper), "second");
}

TEST(qxiwrapperstreamTest, UnownedInnerStreamIsNeverDeleted) {
  std::vector<std::string> log;
  LoggedIStream inner("keep", &log, "inner");
  {
    qxiwrapperstream wrapper(&inner, false);
    EXPECT_EQ(ReadAll(wrapper), "keep");
    wrapper.clear();
    wrapper.set(&inner, false);
    EXPECT_TRUE(wrapper.close());
  }
  EXPECT_TRUE(log.empty());
}

TEST(qxiwrapperstreamTest, ClearDeletesTheOwnedStreamAndEmpties) {
  std::vector<std::string> log;
  qxiwrapperstream wrapper(new LoggedIStream("abc", &log, "inner"), true);
  char c;
  wrapper.read(&c, 1);
  wrapper.clear();
  EXPECT_EQ(log, std::vector<std::string>{"deleted inner"});
  EXPECT_EQ(wrapper.stream(), nullptr);
  EXPECT_TRUE(wrapper.eof());
  EXPECT_EQ(wrapper.tell(), 0u);
  EXPECT_FALSE(wrapper.buffered());
}

TEST(qxiwrapperstreamTest, CloseDetachesDeletesOwnedAndSucceeds) {
  std::vector<std::string> log;
  HookedIWrapper wrapper(true);
  wrapper.set(new LoggedIStream("abc", &log, "inner"), true);
  EXPECT_TRUE(wrapper.close());
  EXPECT_EQ(wrapper.clears, 2);
  EXPECT_EQ(log, std::vector<std::string>{"deleted inner"});
  EXPECT_EQ(wrapper.stream(), nullptr);
  EXPECT_TRUE(wrapper.close());
}

TEST(qxiwrapperstreamTest, DestructorDeletesTheOwnedStream) {
  std::vector<std::string> log;
  { qxiwrapperstream wrapper(new LoggedIStream("abc", &log, "inner"), true); }
  EXPECT_EQ(log, std::vector<std::string>{"deleted inner"});
}

TEST(qxiwrapperstreamTest, SeekInsideTheInnerSpanMovesTheInnerCursor) {
  std::string data = RandomBytes(50000, 9);
  qxisstream inner(data);
  qxiwrapperstream wrapper(&inner, false);
  ASSERT_TRUE(wrapper.seek(40000));
  EXPECT_EQ(wrapper.tell(), 40000u);
  std::string piece;
  wrapper.read(piece, 100);
  EXPECT_EQ(piece, data.substr(40000, 100));
  ASSERT_TRUE(wrapper.seek(5));
  wrapper.read(piece, 10);
  EXPECT_EQ(piece, data.substr(5, 10));
}

TEST(qxiwrapperstreamTest, SeekOutsideTheInnerSpanGoesThroughTheInnerStream) {
  ScratchDir dir;
  std::string data = RandomBytes(200000, 4);
  WriteFile(dir.File("f"), data);
  qxifstream inner(dir.File("f").c_str());
  qxiwrapperstream wrapper(&inner, false);
  ASSERT_TRUE(wrapper.seek(150000));
  std::string piece;
  wrapper.read(piece, 1000);
  EXPECT_EQ(piece, data.substr(150000, 1000));
  ASSERT_TRUE(wrapper.seek(10));
  wrapper.read(piece, 1000);
  EXPECT_EQ(piece, data.substr(10, 1000));
  EXPECT_EQ(wrapper.tell(), 1010u);
}

TEST(qxiwrapperstreamTest, SeekFailsWhenTheInnerStreamCannotMove) {
  qxisstream inner("short");
  qxiwrapperstream wrapper(&inner, false);
  EXPECT_FALSE(wrapper.seek(100));
  EXPECT_FALSE(wrapper.seek(-1));
}

TEST(qxiwrapperstreamTest, SizeIsTheInnerStreamsSize) {
  qxisstream memory(std::string(1234, 'x'));
  qxiwrapperstream overMemory(&memory, false);
  EXPECT_EQ(overMemory.size(), 1234u);

  ScratchDir dir;
  WriteFile(dir.File("f"), std::string(77777, 'y'));
  qxifstream file(dir.File("f").c_str());
  qxiwrapperstream overFile(&file, false);
  EXPECT_EQ(overFile.size(), 77777u);
}

TEST(qxiwrapperstreamTest, OpenByNameLetsGoOfTheInnerStreamAndFails) {
  std::vector<std::string> log;
  qxiwrapperstream wrapper(new LoggedIStream("abc", &log, "inner"), true);
  EXPECT_FALSE(wrapper.open("anything"));
  EXPECT_EQ(log, std::vector<std::string>{"deleted inner"});
  EXPECT_TRUE(wrapper.eof());
}

// ---------------------------------------------------------------------------
// Output wrapper

TEST(qxowrapperstreamTest, WritesReachTheInnerStreamOnFlush) {
  qxosstream inner;
  qxowrapperstream wrapper(&inner, false);
  wrapper << "hello " << 42;
  EXPECT_EQ(inner.str(), "");
  EXPECT_TRUE(wrapper.flush());
  EXPECT_EQ(inner.str(), "hello 42");
  EXPECT_EQ(wrapper.tell(), 8u);
}

TEST(qxowrapperstreamTest, WritesAtTheBlockEdgesPassThrough) {
  for (size_t n : {0ul, 1ul, 32767ul, 32768ul, 32769ul, 65536ul, 100001ul}) {
    std::string data = RandomBytes(n, static_cast<unsigned>(n) + 1);
    qxosstream inner;
    qxowrapperstream wrapper(&inner, false);
    EXPECT_EQ(wrapper.write(data.data(), data.size()), n);
    EXPECT_TRUE(wrapper.close());
    EXPECT_EQ(inner.str(), data) << n;
  }
}

TEST(qxowrapperstreamTest, WithoutAnInnerStreamNothingCanBeWritten) {
  qxowrapperstream wrapper(nullptr, false);
  EXPECT_TRUE(wrapper.eof());
  EXPECT_EQ(wrapper.write("x", 1), 0u);
  EXPECT_FALSE(wrapper.flush());
  EXPECT_FALSE(wrapper.seek(0));
  EXPECT_EQ(wrapper.size(), 0u);
}

TEST(qxowrapperstreamTest, SetRefusesNullAndFailedStreams) {
  // Inner streams outlive the wrapper, whose destructor flushes them.
  qxofstream failed;
  qxowrapperstream wrapper(nullptr, false);
  EXPECT_FALSE(wrapper.set(nullptr, false));
  ASSERT_TRUE(failed.eof());
  EXPECT_FALSE(wrapper.set(&failed, false));
  EXPECT_EQ(wrapper.write("x", 1), 0u);
}

TEST(qxowrapperstreamTest, RefusedInnerStreamLeavesTheWrapperFailed) {
  qxosstream inner;
  HookedOWrapper wrapper(false);
  EXPECT_FALSE(wrapper.set(&inner, false));
  EXPECT_EQ(wrapper.sets, 1);
  EXPECT_TRUE(wrapper.eof());
}

TEST(qxowrapperstreamTest, SetWithTheCurrentInnerStreamChangesNothing) {
  std::vector<std::string> log;
  LoggedOStream* inner = new LoggedOStream(&log, "inner");
  HookedOWrapper wrapper(true);
  ASSERT_TRUE(wrapper.set(inner, true));
  EXPECT_EQ(wrapper.clears, 1);
  wrapper << "abc";
  int flushes = inner->flushes;
  EXPECT_TRUE(wrapper.set(inner, false));
  EXPECT_EQ(inner->flushes, flushes);
  EXPECT_EQ(wrapper.clears, 1);
  EXPECT_TRUE(log.empty());
  wrapper << "def";
  wrapper.flush();
  EXPECT_EQ(inner->str(), "abcdef");
  wrapper.clear();
  EXPECT_EQ(log, std::vector<std::string>{"deleted inner"});
}

TEST(qxowrapperstreamTest, SetAnotherStreamFlushesAndDeletesTheOwnedOne) {
  std::vector<std::string> log;
  qxosstream second;
  qxowrapperstream wrapper(new LoggedOStream(&log, "first"), true);
  wrapper << "abc";
  wrapper.flush();
  EXPECT_TRUE(wrapper.set(&second, false));
  EXPECT_EQ(log, std::vector<std::string>{"deleted first"});
  EXPECT_EQ(wrapper.tell(), 0u);
  wrapper << "xyz";
  wrapper.flush();
  EXPECT_EQ(second.str(), "xyz");
}

TEST(qxowrapperstreamTest, SetAnotherStreamFlushesTheOldOne) {
  std::vector<std::string> log;
  LoggedOStream first(&log, "first");
  qxosstream second;
  qxowrapperstream wrapper(&first, false);
  // Bytes in the inner stream's own block are handed on by its flush.
  first << "pending";
  int flushes = first.flushes;
  EXPECT_TRUE(wrapper.set(&second, false));
  EXPECT_EQ(first.flushes, flushes + 1);
  EXPECT_TRUE(log.empty());
}

TEST(qxowrapperstreamTest, ClearDropsTheWrappersOwnUnflushedBytes) {
  qxosstream inner;
  qxowrapperstream wrapper(&inner, false);
  wrapper << "lost";
  wrapper.clear();
  EXPECT_EQ(inner.str(), "");
  EXPECT_EQ(wrapper.stream(), nullptr);
  EXPECT_TRUE(wrapper.eof());
  EXPECT_EQ(wrapper.write("x", 1), 0u);
}

TEST(qxowrapperstreamTest, CloseWritesPendingBytesThenDetaches) {
  std::vector<std::string> log;
  LoggedOStream* inner = new LoggedOStream(&log, "inner");
  std::string seen;
  {
    qxowrapperstream wrapper(inner, false);
    wrapper << "kept";
    EXPECT_TRUE(wrapper.close());
    EXPECT_EQ(wrapper.stream(), nullptr);
    seen = inner->str();
  }
  EXPECT_EQ(seen, "kept");
  EXPECT_TRUE(log.empty());
  delete inner;
}

TEST(qxowrapperstreamTest, SeekReturnsFalseEvenWhenTheInnerStreamMoved) {
  std::stringstream text;
  qxostdstream inner(&text, false);
  qxowrapperstream wrapper(&inner, false);
  wrapper << "hello world";
  EXPECT_FALSE(wrapper.seek(0));
  EXPECT_EQ(text.str(), "hello world");
  wrapper << "J";
  wrapper.close();
  EXPECT_EQ(text.str(), "Jello world");
}

TEST(qxowrapperstreamTest,
     SeekInsideTheInnerSpanMovesItAndTheNextWriteLandsThere) {
  unsigned char memory[16];
  std::memset(memory, '.', sizeof memory);
  qxostream inner;
  ASSERT_TRUE(inner.open(memory, sizeof memory));
  qxowrapperstream wrapper(&inner, false);
  wrapper << "abcdefgh";
  EXPECT_FALSE(wrapper.seek(2));
  EXPECT_EQ(wrapper.tell(), 2u);
  wrapper << "XY";
  wrapper.flush();
  EXPECT_EQ(std::string(reinterpret_cast<char*>(memory), 8), "abXYefgh");
}

TEST(qxowrapperstreamTest, SizeIsTheInnerStreamsSize) {
  unsigned char memory[100];
  qxostream inner;
  inner.open(memory, sizeof memory);
  qxowrapperstream wrapper(&inner, false);
  EXPECT_EQ(wrapper.size(), 100u);
}

TEST(qxowrapperstreamTest, DestructorLosesUnflushedBytesAndDeletesOwned) {
  std::vector<std::string> log;
  qxosstream kept;
  {
    qxowrapperstream wrapper(&kept, false);
    wrapper << "lost";
  }
  EXPECT_EQ(kept.str(), "");
  {
    qxowrapperstream wrapper(new LoggedOStream(&log, "owned"), true);
    wrapper << "lost";
  }
  EXPECT_EQ(log, std::vector<std::string>{"deleted owned"});
}

TEST(qxowrapperstreamTest, DestructorReportsAThrowingFlushAndKeepsTheStream) {
  bool deleted = false;
  ThrowingOStream* inner = new ThrowingOStream(&deleted);
  inner->write("123", 3);
  CaptureFd err(2);
  { qxowrapperstream wrapper(inner, true); }
  std::string text = err.Finish();
  EXPECT_EQ(text,
            "Caught QXIOError during qxowrapperstream destruction: boom\n");
  EXPECT_FALSE(deleted);
  inner->armed = false;
  delete inner;
  EXPECT_TRUE(deleted);
}

// ---------------------------------------------------------------------------
// Fan-out

TEST(qxmultiostreamTest, CopiesEverythingToEveryStream) {
  qxosstream a;
  qxosstream b;
  qxmultiostream multi;
  multi.addstream(&a, false);
  multi.addstream(&b, false);
  std::string data = RandomBytes(100000, 8);
  EXPECT_EQ(multi.write(data.data(), data.size()), data.size());
  EXPECT_TRUE(multi.flush());
  EXPECT_EQ(a.str(), data);
  EXPECT_EQ(b.str(), data);
  EXPECT_EQ(multi.tell(), 100000u);
}

TEST(qxmultiostreamTest, TheSameStreamAddedTwiceGetsEverythingTwice) {
  qxosstream a;
  qxmultiostream multi;
  multi.addstream(&a, false);
  multi.addstream(&a, false);
  multi << "ab";
  multi.flush();
  EXPECT_EQ(a.str(), "abab");
}

TEST(qxmultiostreamTest, AFailingStreamDoesNotStopTheOthers) {
  qxosstream good;
  qxofstream failing;
  qxosstream after;
  qxmultiostream multi;
  multi.addstream(&good, false);
  multi.addstream(&failing, false);
  multi.addstream(&after, false);
  multi << "data";
  EXPECT_FALSE(multi.flush());
  EXPECT_EQ(good.str(), "data");
  EXPECT_EQ(after.str(), "data");
}

TEST(qxmultiostreamTest, WithoutStreamsFlushSucceedsAndCounts) {
  qxmultiostream multi;
  multi << "abc";
  EXPECT_TRUE(multi.flush());
  EXPECT_EQ(multi.tell(), 3u);
}

TEST(qxmultiostreamTest, ClearDeletesOwnedStreamsInOrderAndForgetsAll) {
  std::vector<std::string> log;
  LoggedOStream unowned(&log, "unowned");
  qxmultiostream multi;
  multi.addstream(new LoggedOStream(&log, "one"), true);
  multi.addstream(&unowned, false);
  multi.addstream(nullptr, true);
  multi.addstream(new LoggedOStream(&log, "two"), true);
  multi.clear();
  EXPECT_EQ(log, (std::vector<std::string>{"deleted one", "deleted two"}));
  multi << "x";
  EXPECT_TRUE(multi.flush());
  EXPECT_EQ(unowned.str(), "");
}

TEST(qxmultiostreamTest, DestructorDeletesOwnedStreamsWithoutFlushing) {
  std::vector<std::string> log;
  qxosstream unowned;
  {
    qxmultiostream multi;
    multi.addstream(new LoggedOStream(&log, "owned"), true);
    multi.addstream(&unowned, false);
    multi << "lost";
  }
  EXPECT_EQ(log, std::vector<std::string>{"deleted owned"});
  EXPECT_EQ(unowned.str(), "");
}

TEST(qxmultiostreamTest, OpenedOnMemoryTheFlushFails) {
  unsigned char memory[4];
  qxosstream a;
  qxmultiostream multi;
  multi.addstream(&a, false);
  ASSERT_TRUE(multi.open(memory, sizeof memory));
  EXPECT_FALSE(multi.flush());
  EXPECT_TRUE(multi.eof());
  EXPECT_EQ(a.str(), "");
}

TEST(qxmultiostreamTest, WritesToAFileAndMemoryAlike) {
  ScratchDir dir;
  qxosstream memory;
  qxmultiostream multi;
  multi.addstream(new qxofstream(dir.File("out").c_str()), true);
  multi.addstream(&memory, false);
  std::string data = RandomBytes(40000, 2);
  multi.write(data.data(), data.size());
  multi.flush();
  multi.clear();
  EXPECT_EQ(ReadFile(dir.File("out")), data);
  EXPECT_EQ(memory.str(), data);
}

}  // namespace
}  // namespace QXPlatform
