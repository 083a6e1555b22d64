#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/qxtest_streams.h"
#include "support/qxtest_support.h"
#include <QXPlatform/QXPlatform.h>

namespace QXPlatform {
namespace {

using testing::Fields;
using testing::RandomBytes;
using testing::ReadFile;
using testing::ScratchDir;
using testing::WriteFile;

const unsigned long kBlock = 32768;
const unsigned long kEdgeSizes[] = {0, 1, 32767, 32768, 32769, 65536};

bool IsOpenDescriptor(int fd) { return fcntl(fd, F_GETFD) != -1; }

// ---------------------------------------------------------------------------
// Reading

TEST(qxifstreamTest, ReadsAFileAcrossBlocks) {
  ScratchDir dir;
  std::string data = RandomBytes(100000, 101);
  WriteFile(dir.File("f"), data);
  qxifstream in(dir.File("f").c_str());
  EXPECT_FALSE(in.eof());
  EXPECT_FALSE(in.buffered());
  EXPECT_GE(in.descriptor(), 3);
  char first[40000];
  EXPECT_EQ(in.read(first, sizeof first), sizeof first);
  EXPECT_EQ(std::string(first, sizeof first), data.substr(0, 40000));
  EXPECT_EQ(in.tell(), 40000u);
  EXPECT_EQ(Fields::offset(in), kBlock);
  std::string rest;
  EXPECT_EQ(in.read(rest), 60000u);
  EXPECT_EQ(rest, data.substr(40000));
  EXPECT_TRUE(in.eof());
}

TEST(qxifstreamTest, BlockEdgeSizesReadSkipAndCrossBoundaries) {
  ScratchDir dir;
  for (unsigned long size : kEdgeSizes) {
    std::string data = RandomBytes(size, 102 + static_cast<unsigned>(size));
    std::string name = dir.File("edge" + std::to_string(size));
    {
      qxofstream out(name.c_str());
      ASSERT_FALSE(out.eof());
      unsigned long piece = 1;
      for (unsigned long at = 0; at < size;
           at += piece, piece = piece * 9 + 1) {
        unsigned long n = std::min(piece, size - at);
        ASSERT_EQ(out.write(data.data() + at, n), n);
      }
    }
    ASSERT_EQ(ReadFile(name), data) << size;
    for (unsigned long piece : {1ul, 4096ul, 32767ul, 32768ul, 32769ul}) {
      qxifstream in(name.c_str());
      std::string back;
      std::vector<char> chunk(piece);
      unsigned long n;
      while ((n = in.read(chunk.data(), piece)) != 0) {
        back.append(chunk.data(), n);
      }
      ASSERT_EQ(back, data) << size << " " << piece;
    }
    if (size > 2) {
      qxifstream in(name.c_str());
      ASSERT_TRUE(in.skip(static_cast<long long>(size - 2)));
      char last[2];
      EXPECT_EQ(in.read(last, 2), 2u);
      EXPECT_EQ(std::string(last, 2), data.substr(size - 2));
      EXPECT_FALSE(in.skip(1));
    }
  }
}

TEST(qxifstreamTest, MissingFileReadsAsEmpty) {
  ScratchDir dir;
  qxifstream in(dir.File("missing").c_str());
  EXPECT_TRUE(in.eof());
  EXPECT_EQ(in.descriptor(), -1);
  char buffer[4];
  EXPECT_EQ(in.read(buffer, 4), 0u);
  std::string line = "x";
  EXPECT_FALSE(in.getline(line));
  int value = 5;
  in >> value;
  EXPECT_EQ(value, 0);
  EXPECT_EQ(in.size(), 0u);
  EXPECT_FALSE(in.seek(0));
  EXPECT_TRUE(in.close());
  EXPECT_FALSE(in.open(static_cast<const char*>(nullptr)));
}

TEST(qxifstreamTest, DirectoryOpenedAsAFileReadsAsEmpty) {
  ScratchDir dir;
  qxifstream in(dir.path().c_str());
  char buffer[4];
  EXPECT_EQ(in.read(buffer, 4), 0u);
  EXPECT_TRUE(in.eof());
  std::string line;
  EXPECT_FALSE(in.getline(line));
}

TEST(qxifstreamTest, ClosedDescriptorReadsAsEmpty) {
  int fds[2];
  ASSERT_EQ(pipe(fds), 0);
  close(fds[0]);
  close(fds[1]);
  qxifstream in;
  EXPECT_TRUE(in.openfd(fds[0], false));
  char buffer[4];
  EXPECT_EQ(in.read(buffer, 4), 0u);
  EXPECT_TRUE(in.eof());
  EXPECT_EQ(in.pread(buffer, 4, 0), -1);
  in.openfd(-1, false);
}

TEST(qxifstreamTest, AfterTheEndThePositionIsZeroAndSeekWorksAgain) {
  ScratchDir dir;
  WriteFile(dir.File("f"), "0123456789");
  qxifstream in(dir.File("f").c_str());
  std::string all;
  in.read(all);
  EXPECT_TRUE(in.eof());
  // Deliberate: after the end the position reads 0, not the length.
  EXPECT_EQ(in.tell(), 0u);
  EXPECT_TRUE(in.seek(4));
  EXPECT_FALSE(in.eof());
  EXPECT_EQ(in.tell(), 4u);
  char c;
  in >> c;
  EXPECT_EQ(c, '4');
  EXPECT_FALSE(in.seek(10));
  EXPECT_TRUE(in.eof());
  EXPECT_FALSE(in.seek(-1));
}

TEST(qxifstreamTest, SeekLandsAnywhereInALargeFile) {
  ScratchDir dir;
  std::string data = RandomBytes(100000, 103);
  WriteFile(dir.File("f"), data);
  qxifstream in(dir.File("f").c_str());
  for (long long pos : {99999LL, 0LL, 32768LL, 32767LL, 65536LL, 50000LL}) {
    ASSERT_TRUE(in.seek(pos));
    EXPECT_EQ(in.tell(), static_cast<unsigned long long>(pos));
    char c;
    in.read(&c, 1);
    EXPECT_EQ(c, data[static_cast<size_t>(pos)]) << pos;
  }
}

TEST(qxifstreamTest, SizeInTheMiddleOfReadingKeepsThePosition) {
  ScratchDir dir;
  std::string data = RandomBytes(100000, 104);
  WriteFile(dir.File("f"), data);
  qxifstream in(dir.File("f").c_str());
  char part[40000];
  in.read(part, sizeof part);
  EXPECT_EQ(in.size(), 100000u);
  EXPECT_EQ(in.tell(), 40000u);
  std::string rest;
  in.read(rest);
  EXPECT_EQ(rest, data.substr(40000));
  // The size stays cached.
  EXPECT_EQ(in.size(), 100000u);
}

TEST(qxifstreamTest, SizeBeforeReadingReadsTheFirstBlock) {
  ScratchDir dir;
  WriteFile(dir.File("f"), "abc");
  qxifstream in(dir.File("f").c_str());
  EXPECT_EQ(in.size(), 3u);
  EXPECT_TRUE(in.buffered());
  EXPECT_EQ(in.tell(), 0u);
  std::string s;
  in.read(s);
  EXPECT_EQ(s, "abc");
}

TEST(qxifstreamTest, SizeOfAnEmptyFileIsZeroAndEndsTheStream) {
  ScratchDir dir;
  WriteFile(dir.File("f"), "");
  qxifstream in(dir.File("f").c_str());
  EXPECT_EQ(in.size(), 0u);
  EXPECT_TRUE(in.eof());
}

TEST(qxifstreamTest, StandardInputIsNeverClosed) {
  qxifstream in(0);
  EXPECT_EQ(in.descriptor(), 0);
  EXPECT_FALSE(in.eof());
  EXPECT_FALSE(in.close());
  EXPECT_EQ(in.descriptor(), 0);
  EXPECT_TRUE(IsOpenDescriptor(0));
  EXPECT_FALSE(in.seek(0));
  EXPECT_EQ(in.size(), 0u);
  EXPECT_FALSE(in.openfd(5, true));
  EXPECT_EQ(in.descriptor(), 0);
  EXPECT_FALSE(in.open("anything"));
  EXPECT_EQ(in.descriptor(), 0);
  // Let go of it without closing, so the destructor leaves it alone too.
  EXPECT_FALSE(in.openfd(-1, false));
}

TEST(qxifstreamTest, OutputDescriptorsAreNotClosedButHigherOnesAre) {
  int copy = dup(1);
  ASSERT_GE(copy, 3);
  {
    qxifstream in(copy);
    EXPECT_TRUE(in.close());
  }
  EXPECT_FALSE(IsOpenDescriptor(copy));
  qxifstream one(1);
  EXPECT_TRUE(one.close());
  EXPECT_TRUE(IsOpenDescriptor(1));
  EXPECT_EQ(one.descriptor(), -1);
  qxifstream two(2);
  EXPECT_TRUE(two.close());
  EXPECT_TRUE(IsOpenDescriptor(2));
}

TEST(qxifstreamTest, OpenfdWithoutClosingLeavesTheOldDescriptor) {
  int fds[2];
  ASSERT_EQ(pipe(fds), 0);
  qxifstream in(fds[0]);
  EXPECT_TRUE(in.openfd(fds[1], false));
  EXPECT_TRUE(IsOpenDescriptor(fds[0]));
  EXPECT_TRUE(in.openfd(fds[0], true));
  EXPECT_FALSE(IsOpenDescriptor(fds[1]));
  EXPECT_FALSE(in.openfd(-1, true));
  EXPECT_FALSE(IsOpenDescriptor(fds[0]));
  EXPECT_TRUE(in.eof());
}

TEST(qxifstreamTest, PreadLeavesTheSpanAlone) {
  ScratchDir dir;
  WriteFile(dir.File("f"), "0123456789");
  qxifstream in(dir.File("f").c_str());
  char c;
  in >> c;
  char buffer[4];
  EXPECT_EQ(in.pread(buffer, 4, 6), 4);
  EXPECT_EQ(std::string(buffer, 4), "6789");
  EXPECT_EQ(in.pread(buffer, 4, 8), 2);
  EXPECT_EQ(in.tell(), 1u);
  in >> c;
  EXPECT_EQ(c, '1');
}

TEST(qxifstreamTest, ReadsAPipeAsItArrives) {
  int fds[2];
  ASSERT_EQ(pipe(fds), 0);
  ASSERT_EQ(write(fds[1], "one\ntwo", 7), 7);
  qxifstream in(fds[0]);
  std::string line;
  EXPECT_TRUE(in.getline(line));
  EXPECT_EQ(line, "one");
  ASSERT_EQ(write(fds[1], "\nthree\n", 7), 7);
  close(fds[1]);
  EXPECT_TRUE(in.getline(line));
  EXPECT_EQ(line, "two");
  EXPECT_TRUE(in.getline(line));
  EXPECT_EQ(line, "three");
  EXPECT_FALSE(in.getline(line));
}

// ---------------------------------------------------------------------------
// Writing

TEST(qxofstreamTest, CreatesTruncatesAndWrites) {
  ScratchDir dir;
  WriteFile(dir.File("f"), "old contents that are longer");
  {
    qxofstream out(dir.File("f").c_str());
    out << "new " << 42 << qxendl;
  }
  EXPECT_EQ(ReadFile(dir.File("f")), "new 42\n");
}

TEST(qxofstreamTest, NewFileGetsMode0644BeforeTheUmask) {
  ScratchDir dir;
  mode_t mask = umask(022);
  umask(mask);
  { qxofstream out(dir.File("f").c_str()); }
  struct stat st;
  ASSERT_EQ(stat(dir.File("f").c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0644u & ~mask);
}

TEST(qxofstreamTest, AppendAddsToTheEnd) {
  ScratchDir dir;
  WriteFile(dir.File("f"), "first\n");
  {
    qxofstream out;
    EXPECT_TRUE(out.append(dir.File("f")));
    EXPECT_FALSE(out.eof());
    out << "second\n";
  }
  EXPECT_EQ(ReadFile(dir.File("f")), "first\nsecond\n");
  {
    qxofstream out(dir.File("g").c_str());
    out << "unflushed ";
    // The pending bytes go to the old file before switching.
    EXPECT_TRUE(out.append(dir.File("f").c_str()));
    out << "third\n";
  }
  EXPECT_EQ(ReadFile(dir.File("f")), "first\nsecond\nthird\n");
  EXPECT_EQ(ReadFile(dir.File("g")), "unflushed ");
}

TEST(qxofstreamTest, AppendCreatesAMissingFile) {
  ScratchDir dir;
  mode_t mask = umask(022);
  umask(mask);
  qxofstream out;
  EXPECT_TRUE(out.append(dir.File("new").c_str()));
  out << "x";
  EXPECT_TRUE(out.close());
  EXPECT_EQ(ReadFile(dir.File("new")), "x");
  struct stat st;
  ASSERT_EQ(stat(dir.File("new").c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0644u & ~mask);
}

TEST(qxofstreamTest, AppendFailuresLeaveTheStreamClosed) {
  ScratchDir dir;
  qxofstream out;
  EXPECT_FALSE(out.append(static_cast<const char*>(nullptr)));
  EXPECT_TRUE(out.eof());
  EXPECT_EQ(out.descriptor(), -1);
  EXPECT_FALSE(out.append(dir.File("no/such/dir")));
  EXPECT_TRUE(out.eof());
  EXPECT_EQ(out.write("x", 1), 0u);
}

TEST(qxofstreamTest, DirectoryOrMissingFolderCannotBeOpened) {
  ScratchDir dir;
  qxofstream out(dir.path().c_str());
  EXPECT_TRUE(out.eof());
  EXPECT_EQ(out.descriptor(), -1);
  EXPECT_EQ(out.write("x", 1), 0u);
  out << "text" << 12 << qxendl;
  EXPECT_FALSE(out.flush());
  qxofstream missing(dir.File("a/b").c_str());
  EXPECT_TRUE(missing.eof());
  EXPECT_FALSE(missing.open(static_cast<const char*>(nullptr)));
}

TEST(qxofstreamTest, DefaultStreamIsClosed) {
  qxofstream out;
  EXPECT_TRUE(out.eof());
  EXPECT_EQ(out.descriptor(), -1);
  EXPECT_EQ(out.write("x", 1), 0u);
}

TEST(qxofstreamTest, FullDeviceSetsTheFailFlag) {
  qxofstream out("/dev/full");
  ASSERT_FALSE(out.eof());
  out << "some bytes";
  EXPECT_FALSE(out.flush());
  EXPECT_TRUE(out.eof());
  // The unwritten bytes are dropped, the position still moves.
  EXPECT_EQ(out.tell(), 10u);
  out << "more";
  EXPECT_FALSE(out.flush());
}

TEST(qxofstreamTest, ClosedDescriptorFailsTheFlush) {
  int fds[2];
  ASSERT_EQ(pipe(fds), 0);
  close(fds[0]);
  close(fds[1]);
  qxofstream out(fds[1]);
  EXPECT_FALSE(out.eof());
  out << "x";
  EXPECT_FALSE(out.flush());
  EXPECT_TRUE(out.eof());
  out.openfd(-1, false);
}

TEST(qxofstreamTest, SeekFailsAndSizeIsZero) {
  ScratchDir dir;
  qxofstream out(dir.File("f").c_str());
  out << "abc";
  EXPECT_FALSE(out.seek(0));
  EXPECT_FALSE(out.seek(2));
  EXPECT_EQ(Fields::sizeknown(out), false);
  EXPECT_EQ(out.size(), 0u);
}

TEST(qxofstreamTest, StandardDescriptorsAreNeverClosed) {
  for (int fd : {1, 2}) {
    qxofstream out(fd);
    EXPECT_EQ(out.descriptor(), fd);
    EXPECT_TRUE(out.close());
    EXPECT_TRUE(out.eof());
    EXPECT_EQ(out.descriptor(), -1);
    EXPECT_TRUE(IsOpenDescriptor(fd));
  }
  int fds[2];
  ASSERT_EQ(pipe(fds), 0);
  {
    qxofstream out(fds[1]);
    out << "through";
  }
  EXPECT_FALSE(IsOpenDescriptor(fds[1]));
  char buffer[16];
  EXPECT_EQ(read(fds[0], buffer, sizeof buffer), 7);
  close(fds[0]);
}

TEST(qxofstreamTest, OpenfdFlushesTheOldDescriptorFirst) {
  int a[2];
  int b[2];
  ASSERT_EQ(pipe(a), 0);
  ASSERT_EQ(pipe(b), 0);
  qxofstream out(a[1]);
  out << "to a";
  EXPECT_TRUE(out.openfd(b[1], false));
  EXPECT_TRUE(IsOpenDescriptor(a[1]));
  out << "to b";
  // Closing first drops what was still in the span.
  EXPECT_FALSE(out.openfd(-1, true));
  EXPECT_FALSE(IsOpenDescriptor(b[1]));
  char buffer[16];
  EXPECT_EQ(read(a[0], buffer, sizeof buffer), 4);
  EXPECT_EQ(std::string(buffer, 4), "to a");
  close(a[1]);
  EXPECT_EQ(read(b[0], buffer, sizeof buffer), 0);
  close(a[0]);
  close(b[0]);
}

TEST(qxofstreamTest, FlushResultTellsAboutTheSink) {
  ScratchDir dir;
  qxofstream out(dir.File("f").c_str());
  EXPECT_TRUE(out.flush());
  out << "abc";
  EXPECT_TRUE(out.flush());
  EXPECT_EQ(ReadFile(dir.File("f")), "abc");
  EXPECT_EQ(out.tell(), 3u);
  EXPECT_TRUE(out.close());
  EXPECT_FALSE(out.flush());
}

// ---------------------------------------------------------------------------
// Writing and reading back

TEST(qxiofstreamTest, PreadSeesOnlyWhatWasFlushed) {
  ScratchDir dir;
  WriteFile(dir.File("f"), "stale");
  qxiofstream io(dir.File("f").c_str());
  ASSERT_FALSE(io.eof());
  // Opening truncated the old contents.
  char buffer[16];
  EXPECT_EQ(io.pread(buffer, sizeof buffer, 0), 0);
  io << "hello";
  EXPECT_EQ(io.pread(buffer, sizeof buffer, 0), 0);
  EXPECT_TRUE(io.flush());
  EXPECT_EQ(io.pread(buffer, sizeof buffer, 0), 5);
  EXPECT_EQ(std::string(buffer, 5), "hello");
  io << " world";
  EXPECT_EQ(io.pread(buffer, sizeof buffer, 2), 3);
  EXPECT_EQ(std::string(buffer, 3), "llo");
  EXPECT_TRUE(io.flush());
  EXPECT_EQ(io.pread(buffer, 6, 5), 6);
  EXPECT_EQ(std::string(buffer, 6), " world");
}

TEST(qxiofstreamTest, PreadOfUnflushedRangeGivesOldContents) {
  ScratchDir dir;
  qxiofstream io(dir.File("f").c_str());
  io << "aaaaaaaaaa";
  io.flush();
  // Deliberately nothing reaches the file until the next flush.
  io << "bbbbbbbbbb";
  char buffer[20];
  EXPECT_EQ(io.pread(buffer, 20, 0), 10);
  EXPECT_EQ(std::string(buffer, 10), "aaaaaaaaaa");
}

TEST(qxiofstreamTest, DestructionWritesEverythingAndClosesTheFile) {
  ScratchDir dir;
  int fd;
  {
    qxiofstream io(dir.File("f").c_str());
    fd = io.descriptor();
    EXPECT_GE(fd, 3);
    io << std::string(70000, 'z');
  }
  EXPECT_FALSE(IsOpenDescriptor(fd));
  EXPECT_EQ(ReadFile(dir.File("f")), std::string(70000, 'z'));
}

TEST(qxiofstreamTest, MissingFolderFails) {
  ScratchDir dir;
  qxiofstream io(dir.File("a/b").c_str());
  EXPECT_TRUE(io.eof());
  EXPECT_EQ(io.descriptor(), -1);
  char c;
  EXPECT_EQ(io.pread(&c, 1, 0), -1);
  qxiofstream none;
  EXPECT_FALSE(none.open(static_cast<const char*>(nullptr)));
  int fds[2];
  ASSERT_EQ(pipe(fds), 0);
  qxiofstream onFd(fds[1]);
  onFd << "p";
  EXPECT_TRUE(onFd.flush());
  EXPECT_EQ(read(fds[0], &c, 1), 1);
  EXPECT_EQ(c, 'p');
  close(fds[0]);
}

}  // namespace
}  // namespace QXPlatform
