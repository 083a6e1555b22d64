#include <string>

#include <gtest/gtest.h>

#include <QXPlatform/streams/qxsstream.h>

namespace QXPlatform {
namespace {

TEST(qxisstreamTest, GetlineTreatsCrLfAsOneLineEnd) {
  qxisstream in("one\r\ntwo\n");
  std::string line;
  ASSERT_TRUE(in.getline(line));
  EXPECT_EQ(line, "one");
  ASSERT_TRUE(in.getline(line));
  EXPECT_EQ(line, "two");
  EXPECT_FALSE(in.getline(line));
}

TEST(qxosstreamTest, StrReturnsEverythingWrittenInOrder) {
  qxosstream out;
  std::string expected;
  for (int i = 0; i < 100000; ++i) {
    char c = static_cast<char>('a' + i % 26);
    out << c;
    expected.push_back(c);
  }
  EXPECT_EQ(out.str(), expected);
  EXPECT_EQ(out.tell(), 100000u);
}

}  // namespace
}  // namespace QXPlatform
