#pragma once

// Portable big-endian images of arrays, strings, bit-packed unsigned arrays
// and quantised float arrays, on caller buffers and on streams.

#include <string>

#include "../qxexport.h"

namespace QXPlatform {

class qxistream;
class qxostream;

// Arrays of count elements of blocksize bytes. The image holds the elements
// in order, each 2-, 4- or 8-byte element most significant byte first, with
// nothing between them. Width 1 is copied as it is. Any other non-zero width
// is reported on qxerr ("Error: undefined block size - " and the width) after
// the data has moved: a write copies count * blocksize bytes unchanged, a
// read copies only count bytes. A null data pointer (the source of a write,
// the destination of a read), a null buffer or a blocksize of 0 return 0 and
// touch nothing. The buffer forms never check the room they are given: the
// caller provides count * blocksize bytes. They throw nothing of their own;
// any thread may call them on memory and streams it alone uses.

// Writes the image of src into dst; returns count * blocksize.
QXPLATFORM_EXPORT unsigned long QX_io_write_binary(unsigned char* dst,
                                                   const unsigned char* src,
                                                   unsigned long blocksize,
                                                   unsigned int count);
// Converts the image at src back to host order into dst; returns
// count * blocksize (also for an undefined width, which copies count bytes).
// dst may equal src.
QXPLATFORM_EXPORT unsigned long QX_io_read_binary(const unsigned char* src,
                                                  unsigned char* dst,
                                                  unsigned long blocksize,
                                                  unsigned int count);
// Writes the image to out, one stream write per 2-, 4- or 8-byte element;
// returns count * blocksize whatever the stream did.
QXPLATFORM_EXPORT unsigned long QX_io_write_binary(qxostream& out,
                                                   const unsigned char* src,
                                                   unsigned long blocksize,
                                                   unsigned int count);
// Reads an image from in into dst, one stream read per 2-, 4- or 8-byte
// element, each reversed in place whether or not it arrived whole. Returns
// the bytes delivered by the last read only (2, 4 or 8 for a complete
// array, 0 for count 0), not a total; width 1 and undefined widths read
// count bytes in one read and return what arrived.
QXPLATFORM_EXPORT unsigned long QX_io_read_binary(qxistream& in,
                                                  unsigned char* dst,
                                                  unsigned long blocksize,
                                                  unsigned int count);

// Strings: a 4-byte big-endian length N, then the N bytes, no terminator.
// Bytes are carried as they are, zero bytes included.

// Writes the image of s into dst (N + 4 bytes); returns N + 4. A string
// longer than 4294967295 bytes writes nothing, prints "Attempting to write a
// string larger than 4GB" on the process's standard error and returns 0.
QXPLATFORM_EXPORT unsigned long QX_io_write_binary(unsigned char* dst,
                                                   const std::string& s);
// Replaces s with the string whose image starts at src; returns N + 4.
QXPLATFORM_EXPORT unsigned long QX_io_read_binary(const unsigned char* src,
                                                  std::string& s);
// Writes the image of s to out as two stream writes; N + 4, or 0 (and the
// message above) when s is too long.
QXPLATFORM_EXPORT unsigned long QX_io_write_binary(qxostream& out,
                                                   const std::string& s);
// Reads one string image from in into s; returns the bytes the two stream
// reads delivered. When the stream ends early s still gets the announced
// length N, its unread tail zero bytes; the short result is the only sign.
// Throws std::bad_alloc when N + 1 bytes cannot be had.
QXPLATFORM_EXPORT unsigned long QX_io_read_binary(qxistream& in,
                                                  std::string& s);

// Compressed arrays of N values at n bits each. For n below 32 the values
// form one bit stream, least significant bit first, value after value with
// no gaps, in (N * n) / 8 + 1 bytes; bits after the last value are zero. The
// size returned is P = (N * n, in 32-bit arithmetic) / 8 + 1, which wraps
// once N * n reaches 2^32; the image does not: every value is written and
// read at its own bit position, so past 2^32 bits the image is larger than P
// (a buffer needs (N * n, without the wrap) / 8 + 1 bytes, and the stream
// forms move that many). Values must be below 2^n: larger ones spill into
// the following values' bits (bits past the image are dropped). For n of
// 32 or more every value is a plain big-endian 4-byte word. A float array
// with n below 32 starts with its maximum and minimum as big-endian floats,
// then its values quantised onto n bits between them. No count or width is
// stored: readers take the same n and N as the writer. A null array or
// buffer pointer or N == 0 return 0 and touch nothing; buffer forms do not
// check their room. Nothing is printed or thrown (beyond std::bad_alloc for
// the temporary arrays); any thread may call them on memory and streams it
// alone uses.

// Packs values into dst; returns P for n < 32, else N * 4.
QXPLATFORM_EXPORT unsigned long QX_io_write_binary_compressed(
    unsigned char* dst, unsigned int* values, unsigned int n, unsigned int N);
// As above, handing the image to out in one write (n < 32) or one write
// per value; returns P or N * 4 whatever the stream did.
QXPLATFORM_EXPORT unsigned long QX_io_write_binary_compressed(
    qxostream& out, unsigned int* values, unsigned int n, unsigned int N);
// Quantises values (rounding half up between the minimum and the maximum)
// and packs them after the 8-byte header; returns 8 + P for n < 32, else
// N * 4 (the float bit patterns, no header).
QXPLATFORM_EXPORT unsigned long QX_io_write_binary_compressed(
    unsigned char* dst, float* values, unsigned int n, unsigned int N);
// As above on a stream: two 4-byte header writes, then the image in one
// write; returns 8 + P or N * 4 whatever the stream did.
QXPLATFORM_EXPORT unsigned long QX_io_write_binary_compressed(qxostream& out,
                                                              float* values,
                                                              unsigned int n,
                                                              unsigned int N);

// Unpacks N values into dst; returns P for n < 32, else N * 4.
QXPLATFORM_EXPORT unsigned long QX_io_read_binary_compressed(
    const unsigned char* src, unsigned int* dst, unsigned int n,
    unsigned int N);
// Reads the image from in and unpacks it (a short read leaves zero bits and
// still returns P); for n >= 32 reads word by word and returns what the last
// read delivered.
QXPLATFORM_EXPORT unsigned long QX_io_read_binary_compressed(qxistream& in,
                                                             unsigned int* dst,
                                                             unsigned int n,
                                                             unsigned int N);
// Reads a quantised float image into dst; returns 8 + P for n < 32, else
// N * 4. With n == 0 every value reads back as NaN.
QXPLATFORM_EXPORT unsigned long QX_io_read_binary_compressed(
    const unsigned char* src, float* dst, unsigned int n, unsigned int N);
// As above from a stream; returns the bytes the two header reads delivered
// plus P, or for n >= 32 what the last 4-byte read delivered.
QXPLATFORM_EXPORT unsigned long QX_io_read_binary_compressed(qxistream& in,
                                                             float* dst,
                                                             unsigned int n,
                                                             unsigned int N);

// The bits needed to store every value: the bit length of the largest (0 to
// 32). 0 for a null array or N == 0.
QXPLATFORM_EXPORT unsigned int QX_io_util_calc_NumBits(unsigned int* values,
                                                       unsigned int N);
// The bits needed to quantise values so that two stored levels lie at most
// precision apart: the bit length of (maximum - minimum) / precision + 0.5,
// truncated (0 to 32). 0 for a null array or N == 0.
QXPLATFORM_EXPORT unsigned int QX_io_util_calc_NumBits(float* values,
                                                       unsigned int N,
                                                       float precision);

}  // namespace QXPlatform
