// Binary records: an object that writes and reads its own big-endian body
// (scalars, a string, a bit-packed integer array and a quantised float
// array), framed on a stream by a 4-byte size; plus half floats.

#include <cmath>
#include <string>
#include <vector>

#include <QXPlatform/QXPlatform.h>

using namespace QXPlatform;

namespace {

int failures = 0;

void Check(bool ok, const char* what) {
  if (!ok) {
    qxerr << "binary_record: failed: " << what << qxendl;
    ++failures;
  }
}

// A measurement series. Body: version (2 bytes), name (4-byte length and
// bytes), value count N (4 bytes), the bit widths of the two arrays (1 byte
// each), the counts packed at their width, the readings quantised at theirs.
class Series : public QXBinaryIO {
 public:
  unsigned short version = 0x0102;
  std::string name;
  std::vector<unsigned int> counts;  // as many as readings
  std::vector<float> readings;
  float precision = 0.01f;

  void Write(qxostream& out) const override {
    unsigned int n = Count();
    unsigned char bits[2] = {CountBits(), ReadingBits()};
    QX_io_write_binary(out, Bytes(&version), 2, 1);
    QX_io_write_binary(out, name);
    QX_io_write_binary(out, Bytes(&n), 4, 1);
    QX_io_write_binary(out, bits, 1, 2);
    QX_io_write_binary_compressed(out, Counts(), bits[0], n);
    QX_io_write_binary_compressed(out, Readings(), bits[1], n);
  }

  unsigned long long Read(qxistream& in) override {
    unsigned long long start = in.tell();
    unsigned int n = 0;
    unsigned char bits[2] = {0, 0};
    QX_io_read_binary(in, reinterpret_cast<unsigned char*>(&version), 2, 1);
    QX_io_read_binary(in, name);
    QX_io_read_binary(in, reinterpret_cast<unsigned char*>(&n), 4, 1);
    QX_io_read_binary(in, bits, 1, 2);
    counts.assign(n, 0);
    readings.assign(n, 0.0f);
    QX_io_read_binary_compressed(in, counts.data(), bits[0], n);
    QX_io_read_binary_compressed(in, readings.data(), bits[1], n);
    // The stream readers return what their last read delivered, not a
    // total: the position tells how much the body took.
    return in.tell() - start;
  }

  unsigned long long GetSize() const override {
    unsigned int n = Count();
    unsigned long long header = n > 0 && ReadingBits() < 32 ? 8 : 0;
    return 2 + 4 + name.size() + 4 + 2 + Packed(CountBits(), n) + header +
           Packed(ReadingBits(), n);
  }

 private:
  static const unsigned char* Bytes(const void* p) {
    return static_cast<const unsigned char*>(p);
  }
  unsigned int Count() const {
    return static_cast<unsigned int>(counts.size());
  }
  // The packing functions take non-const arrays but only read them.
  unsigned int* Counts() const {
    return const_cast<unsigned int*>(counts.data());
  }
  float* Readings() const { return const_cast<float*>(readings.data()); }

  // The bit length of the largest count.
  unsigned char CountBits() const {
    return static_cast<unsigned char>(
        QX_io_util_calc_NumBits(Counts(), Count()));
  }
  // Enough bits for two stored levels to lie at most precision apart. A
  // float array packed at 0 bits reads back as NaN, so ask for at least 1.
  unsigned char ReadingBits() const {
    unsigned int bits = QX_io_util_calc_NumBits(Readings(), Count(), precision);
    return static_cast<unsigned char>(bits == 0 ? 1 : bits);
  }
  // P = (N * n) / 8 + 1 bytes below 32 bits (N * n in 32-bit arithmetic);
  // plain 4-byte words from 32 bits up; nothing for N == 0.
  static unsigned long long Packed(unsigned int bits, unsigned int n) {
    if (n == 0) {
      return 0;
    }
    if (bits < 32) {
      return static_cast<unsigned int>(n * bits) / 8 + 1;
    }
    return 4ULL * n;
  }
};

bool SameBytes(const std::string& image, size_t at,
               const std::vector<unsigned char>& expected) {
  for (size_t i = 0; i < expected.size(); ++i) {
    if (at + i >= image.size() ||
        static_cast<unsigned char>(image[at + i]) != expected[i]) {
      return false;
    }
  }
  return true;
}

}  // namespace

int main() {
  // Scalars: most significant byte first on every host.
  unsigned int value = 258;
  unsigned char word[4];
  Check(QX_io_write_binary(word, reinterpret_cast<unsigned char*>(&value), 4,
                           1) == 4 &&
            word[0] == 0 && word[1] == 0 && word[2] == 1 && word[3] == 2,
        "big-endian scalar");

  Series first;
  first.name = "probe-7";
  first.counts = {3, 0, 7, 5, 1};
  first.readings = {0.0f, 2.5f, 9.99f, 10.0f, 4.2f};
  Series second;
  second.name = "empty";

  qxosstream out;
  out << first << second;
  std::string image = out.str();

  // The record: its size, then the body. Counts 3 0 7 5 1 need 3 bits, so
  // 15 bits in 2 bytes, least significant bit first: C3 1B. The readings
  // span 10 at precision 0.01: 10 bits, a header of maximum 10.0f and
  // minimum 0.0f, then (5 * 10) / 8 + 1 = 7 bytes.
  Check(first.GetSize() == 36 && image.size() == 4 + 36 + 4 + 17,
        "record sizes");
  Check(SameBytes(image, 0, {0, 0, 0, 36, 0x01, 0x02, 0, 0, 0, 7}), "framing");
  Check(image.compare(10, 7, "probe-7") == 0, "string bytes");
  Check(SameBytes(image, 17, {0, 0, 0, 5, 3, 10, 0xC3, 0x1B}), "packed ints");
  Check(SameBytes(image, 25, {0x41, 0x20, 0, 0, 0, 0, 0, 0}), "float header");

  // Reading compares the framed size with what Read consumed (a mismatch
  // is reported on qxerr) and leaves the stream after the body.
  qxisstream in(image);
  Series back;
  Series emptyBack;
  in >> back >> emptyBack;
  Check(back.version == 0x0102 && back.name == "probe-7" &&
            back.counts == first.counts,
        "integers and string read back");
  Check(back.readings.size() == 5 && back.readings[0] == 0.0f, "minimum exact");
  // Quantisation error is at most range / (2 * (2^bits - 1)).
  float bound = 10.0f / (2 * 1023) + 1e-6f;
  for (size_t i = 0; i < back.readings.size() && i < 5; ++i) {
    Check(std::fabs(back.readings[i] - first.readings[i]) <= bound,
          "reading within the quantisation bound");
  }
  Check(emptyBack.name == "empty" && emptyBack.counts.empty(), "second record");

  Check(std::string(QXBinaryDump::ReturnCode::Name(
            QXBinaryDump::ReturnCode::SizeMismatch)) == "SizeMismatch",
        "return code names");

  // Half floats: IEEE binary16, rounding half up in magnitude.
  Check(
      QXHalfFloat(1.0f).bits() == 0x3C00 &&
          QXHalfFloat(65504.0f).bits() == 0x7BFF &&
          static_cast<float>(QXHalfFloat::fromBits(0x3555)) == 0.333251953125f,
      "half floats");
  // Deliberate: QXIsNaN of a float or double is true for infinities too.
  Check(QXIsNaN(HUGE_VALF) && !QXIsRealNaN(HUGE_VALF), "number tests");

  if (failures != 0) {
    return 1;
  }
  qxout << "binary_record: all checks passed" << qxendl;
  return 0;
}
