#include "support/qxtest_support.h"

#include <dirent.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <random>
#include <sstream>
#include <stdexcept>

#include <gtest/gtest.h>

namespace QXPlatform {
namespace testing {

ScratchDir::ScratchDir() {
  const char* base = getenv("TMPDIR");
  std::string templ = std::string(base && *base ? base : "/tmp") + "/qxtest_XXXXXX";
  std::vector<char> name(templ.begin(), templ.end());
  name.push_back('\0');
  if (mkdtemp(name.data()) == nullptr) {
    throw std::runtime_error("mkdtemp failed for " + templ);
  }
  _path = name.data();
}

ScratchDir::~ScratchDir() { RemoveTree(_path); }

std::string ScratchDir::File(const std::string& name) const {
  return _path + "/" + name;
}

void RemoveTree(const std::string& path) {
  struct stat st;
  if (lstat(path.c_str(), &st) != 0) {
    return;
  }
  if (S_ISDIR(st.st_mode)) {
    chmod(path.c_str(), 0700);
    if (DIR* dir = opendir(path.c_str())) {
      while (struct dirent* e = readdir(dir)) {
        std::string n = e->d_name;
        if (n != "." && n != "..") {
          RemoveTree(path + "/" + n);
        }
      }
      closedir(dir);
    }
    rmdir(path.c_str());
  } else {
    unlink(path.c_str());
  }
}

void WriteFile(const std::string& path, const std::string& bytes) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

std::string ReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream all;
  all << in.rdbuf();
  return all.str();
}

int RunCommand(const std::string& command, std::string* out) {
  FILE* pipe = popen(command.c_str(), "r");
  if (pipe == nullptr) {
    return -1;
  }
  std::string text;
  char chunk[65536];
  size_t got;
  while ((got = fread(chunk, 1, sizeof chunk, pipe)) > 0) {
    text.append(chunk, got);
  }
  int status = pclose(pipe);
  if (out != nullptr) {
    *out = text;
  }
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

std::string Shell(const std::string& command) {
  std::string out;
  int status = RunCommand(command, &out);
  EXPECT_EQ(status, 0) << command;
  return out;
}

std::string RandomBytes(size_t n, unsigned seed) {
  std::mt19937_64 gen(seed);
  std::string bytes(n, '\0');
  for (size_t i = 0; i < n; ++i) {
    bytes[i] = static_cast<char>(gen() & 0xFF);
  }
  return bytes;
}

CaptureFd::CaptureFd(int fd) : _fd(fd), _saved(dup(fd)), _done(false) {
  const char* base = getenv("TMPDIR");
  std::string templ = std::string(base && *base ? base : "/tmp") + "/qxcapture_XXXXXX";
  std::vector<char> name(templ.begin(), templ.end());
  name.push_back('\0');
  int tmp = mkstemp(name.data());
  if (tmp < 0 || _saved < 0) {
    throw std::runtime_error("cannot capture descriptor");
  }
  _file = name.data();
  dup2(tmp, fd);
  close(tmp);
}

CaptureFd::~CaptureFd() {
  if (!_done) {
    Finish();
  }
}

std::string CaptureFd::Finish() {
  if (_done) {
    return std::string();
  }
  _done = true;
  fflush(nullptr);
  dup2(_saved, _fd);
  close(_saved);
  std::string text = ReadFile(_file);
  unlink(_file.c_str());
  return text;
}

SpanStream::SpanStream(std::string data, std::vector<size_t> spans)
    : _data(std::move(data)), _spans(std::move(spans)), _next(0), _pos(0),
      _fills(0) {
  if (_spans.empty()) {
    _spans.push_back(1);
  }
  _eof = false;
}

bool SpanStream::_qxfill() {
  ++_fills;
  if (_pos >= _data.size()) {
    _ptr = _end;
    _eof = true;
    return false;
  }
  size_t want = _spans[_next++ % _spans.size()];
  if (want == 0) {
    want = 1;
  }
  if (want > kBlockSize) {
    want = kBlockSize;
  }
  size_t n = std::min(want, _data.size() - _pos);
  _offset += static_cast<unsigned long long>(_ptr - _begin);
  std::memcpy(_buffer, _data.data() + _pos, n);
  _pos += n;
  _begin = _ptr = _buffer;
  _end = _buffer + n;
  return true;
}

}  // namespace testing
}  // namespace QXPlatform
