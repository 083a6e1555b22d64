// Which insertion and extraction each argument type reaches. The long long
// forms are plain members added after the virtual ones; these tests pin the
// choice for every type that compiled before they existed, so adding them
// can be seen to change none.

#include <limits.h>
#include <wchar.h>

#include <string>
#include <type_traits>
#include <utility>

#include <gtest/gtest.h>

#include <QXPlatform/QXPlatform.h>

namespace QXPlatform {
namespace {

// Writes the name of the virtual slot each insertion reaches. The calls go
// through a qxostream&, so overload resolution sees the base class alone.
class SlotRecorder : public qxostream {
 public:
  std::string slots;

  using qxostream::operator<<;
  qxostream& operator<<(const char*) override { return Note("const char*"); }
  qxostream& operator<<(const unsigned char*) override {
    return Note("const unsigned char*");
  }
  qxostream& operator<<(const signed char*) override {
    return Note("const signed char*");
  }
  qxostream& operator<<(const std::string&) override { return Note("string"); }
  qxostream& operator<<(bool) override { return Note("bool"); }
  qxostream& operator<<(char) override { return Note("char"); }
  qxostream& operator<<(unsigned char) override { return Note("uchar"); }
  qxostream& operator<<(signed char) override { return Note("schar"); }
  qxostream& operator<<(short) override { return Note("short"); }
  qxostream& operator<<(unsigned short) override { return Note("ushort"); }
  qxostream& operator<<(int) override { return Note("int"); }
  qxostream& operator<<(unsigned int) override { return Note("uint"); }
  qxostream& operator<<(long) override { return Note("long"); }
  qxostream& operator<<(unsigned long) override { return Note("ulong"); }
  qxostream& operator<<(float) override { return Note("float"); }
  qxostream& operator<<(double) override { return Note("double"); }
  qxostream& operator<<(qxistream&) override { return Note("qxistream"); }

 private:
  qxostream& Note(const char* slot) {
    slots += slot;
    slots += ';';
    return *this;
  }
};

template <typename T>
std::string SlotFor(T&& value) {
  SlotRecorder recorder;
  qxostream& out = recorder;
  out << std::forward<T>(value);
  return recorder.slots;
}

enum Plain { kPlainValue = 7 };
enum Wide : long long { kWideValue = 1 };
enum class Scoped { kValue };

struct Bits {
  long long small : 5;
  unsigned long long usmall : 5;
};

// Convertible to double only, as a number wrapper would be.
struct ToDouble {
  operator double() const { return 2.5; }
};

template <typename T, typename = void>
struct Insertable : std::false_type {};
template <typename T>
struct Insertable<
    T, std::void_t<decltype(std::declval<qxostream&>() << std::declval<T>())>>
    : std::true_type {};

template <typename T, typename = void>
struct Extractable : std::false_type {};
template <typename T>
struct Extractable<
    T, std::void_t<decltype(std::declval<qxistream&>() >> std::declval<T&>())>>
    : std::true_type {};

TEST(qxostreamOverloadTest, EveryArgumentTypeReachesTheSlotItAlwaysReached) {
  char text[] = "t";
  unsigned char utext[] = "u";
  signed char stext[] = "s";
  std::string s = "x";
  EXPECT_EQ(SlotFor("literal"), "const char*;");
  EXPECT_EQ(SlotFor(static_cast<char*>(text)), "const char*;");
  EXPECT_EQ(SlotFor(static_cast<unsigned char*>(utext)),
            "const unsigned char*;");
  EXPECT_EQ(SlotFor(static_cast<signed char*>(stext)), "const signed char*;");
  EXPECT_EQ(SlotFor(s), "string;");
  EXPECT_EQ(SlotFor(std::string("y")), "string;");
  EXPECT_EQ(SlotFor(true), "bool;");
  EXPECT_EQ(SlotFor('c'), "char;");
  EXPECT_EQ(SlotFor(static_cast<unsigned char>(1)), "uchar;");
  EXPECT_EQ(SlotFor(static_cast<signed char>(1)), "schar;");
  EXPECT_EQ(SlotFor(static_cast<short>(1)), "short;");
  EXPECT_EQ(SlotFor(static_cast<unsigned short>(1)), "ushort;");
  EXPECT_EQ(SlotFor(1), "int;");
  EXPECT_EQ(SlotFor(1u), "uint;");
  EXPECT_EQ(SlotFor(1L), "long;");
  EXPECT_EQ(SlotFor(1UL), "ulong;");
  EXPECT_EQ(SlotFor(sizeof(int)), "ulong;");
  EXPECT_EQ(SlotFor(1.0f), "float;");
  EXPECT_EQ(SlotFor(1.0), "double;");
  // Promotions: these reached int before and must still.
  EXPECT_EQ(SlotFor(kPlainValue), "int;");
  EXPECT_EQ(SlotFor(u'a'), "int;");
  // wchar_t promotes to int where it is signed (x86) and to unsigned int
  // where it is not (arm64), as the language's promotion rule says.
  EXPECT_EQ(SlotFor(L'a'), WCHAR_MIN < 0 ? "int;" : "uint;");
  EXPECT_EQ(SlotFor(ToDouble()), "double;");
  qxistream in;
  EXPECT_EQ(SlotFor(in), "qxistream;");
}

TEST(qxostreamOverloadTest, LongLongBitFieldsKeepTheirDigits) {
  // A narrow long long bit-field used to be promoted to int; it is now an
  // exact match for long long. The text is the same either way.
  Bits bits{-5, 17};
  qxosstream out;
  out << bits.small << ' ' << bits.usmall;
  EXPECT_EQ(out.str(), "-5 17");
}

TEST(qxostreamOverloadTest, WidestIntegersWriteAsPlainDecimals) {
  SlotRecorder recorder;
  char area[64] = {};
  recorder.open(reinterpret_cast<unsigned char*>(area), sizeof area);
  qxostream& out = recorder;
  out << LLONG_MIN;
  out.write(" ", 1);
  out << ULLONG_MAX;
  out.write(" ", 1);
  out << kWideValue;
  // None of them went through a virtual slot.
  EXPECT_EQ(recorder.slots, "");
  EXPECT_EQ(std::string(area), "-9223372036854775808 18446744073709551615 1");
}

TEST(qxostreamOverloadTest, WhatNeverCompiledStillDoesNot) {
  // Both were ambiguous among the integer and floating slots, and stay so.
  EXPECT_FALSE(Insertable<long double>::value);
  EXPECT_FALSE(Insertable<Scoped>::value);
  EXPECT_FALSE(Insertable<std::nullptr_t>::value);
  EXPECT_TRUE(Insertable<long long>::value);
  EXPECT_TRUE(Insertable<unsigned long long>::value);
  EXPECT_TRUE(Insertable<const QXExact&>::value);
}

// Records the extraction slot each target type reaches.
class ExtractRecorder : public qxistream {
 public:
  std::string slots;

  using qxistream::operator>>;
  qxistream& operator>>(bool&) override { return Note("bool"); }
  qxistream& operator>>(char&) override { return Note("char"); }
  qxistream& operator>>(unsigned char&) override { return Note("uchar"); }
  qxistream& operator>>(signed char&) override { return Note("schar"); }
  qxistream& operator>>(std::string&) override { return Note("string"); }
  qxistream& operator>>(short&) override { return Note("short"); }
  qxistream& operator>>(int&) override { return Note("int"); }
  qxistream& operator>>(long&) override { return Note("long"); }
  qxistream& operator>>(unsigned short&) override { return Note("ushort"); }
  qxistream& operator>>(unsigned int&) override { return Note("uint"); }
  qxistream& operator>>(unsigned long&) override { return Note("ulong"); }
  qxistream& operator>>(float&) override { return Note("float"); }
  qxistream& operator>>(double&) override { return Note("double"); }
  qxistream& operator>>(qxostream&) override { return Note("qxostream"); }

 private:
  qxistream& Note(const char* slot) {
    slots += slot;
    slots += ';';
    return *this;
  }
};

template <typename T>
std::string ExtractSlotFor() {
  ExtractRecorder recorder;
  qxistream& in = recorder;
  T value{};
  in >> value;
  return recorder.slots;
}

TEST(qxistreamOverloadTest, EveryTargetTypeReachesTheSlotItAlwaysReached) {
  EXPECT_EQ(ExtractSlotFor<bool>(), "bool;");
  EXPECT_EQ(ExtractSlotFor<char>(), "char;");
  EXPECT_EQ(ExtractSlotFor<unsigned char>(), "uchar;");
  EXPECT_EQ(ExtractSlotFor<signed char>(), "schar;");
  EXPECT_EQ(ExtractSlotFor<std::string>(), "string;");
  EXPECT_EQ(ExtractSlotFor<short>(), "short;");
  EXPECT_EQ(ExtractSlotFor<int>(), "int;");
  EXPECT_EQ(ExtractSlotFor<long>(), "long;");
  EXPECT_EQ(ExtractSlotFor<unsigned short>(), "ushort;");
  EXPECT_EQ(ExtractSlotFor<unsigned int>(), "uint;");
  EXPECT_EQ(ExtractSlotFor<unsigned long>(), "ulong;");
  EXPECT_EQ(ExtractSlotFor<float>(), "float;");
  EXPECT_EQ(ExtractSlotFor<double>(), "double;");
  EXPECT_EQ(ExtractSlotFor<qxosstream>(), "qxostream;");
  // The new forms reach no virtual slot.
  EXPECT_EQ(ExtractSlotFor<long long>(), "");
  EXPECT_EQ(ExtractSlotFor<unsigned long long>(), "");
  EXPECT_FALSE(Extractable<long double>::value);
  EXPECT_FALSE(Extractable<Plain>::value);
}

// A back-end written before the long long forms existed that declares its
// own insertion for long hides every base form, so its own calls keep
// reaching it.
class LongOnlyBackend : public qxostream {
 public:
  int longs = 0;
  qxostream& operator<<(long value) override {
    ++longs;
    return qxostream::operator<<(value);
  }
};

TEST(qxostreamOverloadTest, BackendsThatDeclareTheirOwnInsertionKeepIt) {
  LongOnlyBackend backend;
  backend << 5LL;
  backend << 6;
  EXPECT_EQ(backend.longs, 2);
}

}  // namespace
}  // namespace QXPlatform
