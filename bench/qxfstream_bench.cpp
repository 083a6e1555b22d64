// File streams measured beside the system's own ways of doing the same:
// sequential reads against read(2), lines against std::getline and
// getline(3), formatted numbers against std::ofstream and fprintf. The
// 256 MiB inputs live in /tmp while the program runs.

#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include <fstream>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include <QXPlatform/QXPlatform.h>

namespace {

const size_t kTotal = 256ul << 20;
const size_t kPiece = 32768;

// A file made once per run and removed at exit.
class TempFile {
 public:
  explicit TempFile(const char* stem) {
    char name[64];
    snprintf(name, sizeof name, "/tmp/qxbench_%s_XXXXXX", stem);
    int fd = mkstemp(name);
    if (fd >= 0) {
      close(fd);
    }
    _path = name;
  }
  ~TempFile() { unlink(_path.c_str()); }
  const std::string& path() const { return _path; }

 private:
  std::string _path;
};

const std::string& BinaryFile() {
  static TempFile file("binary");
  static bool made = [] {
    std::mt19937_64 gen(3);
    std::vector<unsigned long long> chunk(kPiece / 8);
    FILE* out = fopen(file.path().c_str(), "wb");
    for (size_t at = 0; at < kTotal; at += kPiece) {
      for (unsigned long long& v : chunk) {
        v = gen();
      }
      fwrite(chunk.data(), 1, kPiece, out);
    }
    fclose(out);
    return true;
  }();
  (void)made;
  return file.path();
}

const std::string& TextFile() {
  static TempFile file("text");
  static bool made = [] {
    std::mt19937 gen(4);
    std::string line;
    FILE* out = fopen(file.path().c_str(), "wb");
    size_t written = 0;
    while (written < kTotal) {
      size_t length = 20 + gen() % 181;
      line.assign(length, ' ');
      for (size_t i = 0; i < length; ++i) {
        line[i] = static_cast<char>('!' + gen() % 94);
      }
      line.back() = '\n';
      fwrite(line.data(), 1, line.size(), out);
      written += line.size();
    }
    fclose(out);
    return true;
  }();
  (void)made;
  return file.path();
}

// Reads the whole file once so that every reader starts from the page cache.
void Warm(const std::string& path) {
  int fd = open(path.c_str(), O_RDONLY);
  std::vector<char> buffer(1 << 20);
  while (read(fd, buffer.data(), buffer.size()) > 0) {
  }
  close(fd);
}

void BM_ReadSyscall(benchmark::State& state) {
  const std::string& path = BinaryFile();
  Warm(path);
  std::vector<char> buffer(kPiece);
  size_t total = 0;
  for (auto _ : state) {
    int fd = open(path.c_str(), O_RDONLY);
    long n;
    while ((n = read(fd, buffer.data(), kPiece)) > 0) {
      total += static_cast<size_t>(n);
    }
    close(fd);
    benchmark::DoNotOptimize(buffer.data());
  }
  state.SetBytesProcessed(static_cast<int64_t>(total));
}
BENCHMARK(BM_ReadSyscall)->Unit(benchmark::kMillisecond);

void BM_FileRead(benchmark::State& state) {
  const std::string& path = BinaryFile();
  Warm(path);
  std::vector<char> buffer(kPiece);
  size_t total = 0;
  for (auto _ : state) {
    QXPlatform::qxifstream in(path.c_str());
    unsigned long n;
    while ((n = in.read(buffer.data(), kPiece)) > 0) {
      total += n;
    }
    benchmark::DoNotOptimize(buffer.data());
  }
  state.SetBytesProcessed(static_cast<int64_t>(total));
}
BENCHMARK(BM_FileRead)->Unit(benchmark::kMillisecond);

void BM_StdGetline(benchmark::State& state) {
  const std::string& path = TextFile();
  Warm(path);
  size_t total = 0;
  for (auto _ : state) {
    std::ifstream in(path);
    std::string line;
    while (std::getline(in, line)) {
      total += line.size() + 1;
    }
  }
  state.SetBytesProcessed(static_cast<int64_t>(total));
}
BENCHMARK(BM_StdGetline)->Unit(benchmark::kMillisecond);

void BM_PosixGetline(benchmark::State& state) {
  const std::string& path = TextFile();
  Warm(path);
  size_t total = 0;
  for (auto _ : state) {
    FILE* in = fopen(path.c_str(), "r");
    char* line = nullptr;
    size_t capacity = 0;
    ssize_t n;
    while ((n = getline(&line, &capacity, in)) > 0) {
      total += static_cast<size_t>(n);
    }
    free(line);
    fclose(in);
  }
  state.SetBytesProcessed(static_cast<int64_t>(total));
}
BENCHMARK(BM_PosixGetline)->Unit(benchmark::kMillisecond);

void BM_Getline(benchmark::State& state) {
  const std::string& path = TextFile();
  Warm(path);
  size_t total = 0;
  for (auto _ : state) {
    QXPlatform::qxifstream in(path.c_str());
    std::string line;
    while (in.getline(line)) {
      total += line.size() + 1;
    }
  }
  state.SetBytesProcessed(static_cast<int64_t>(total));
}
BENCHMARK(BM_Getline)->Unit(benchmark::kMillisecond);

const int kNumbers = 4 << 20;

std::vector<int>& Integers() {
  static std::vector<int> values = [] {
    std::mt19937 gen(5);
    std::vector<int> v(kNumbers);
    for (int& x : v) {
      x = static_cast<int>(gen()) >> (gen() % 31);
    }
    return v;
  }();
  return values;
}

std::vector<double>& Doubles() {
  static std::vector<double> values = [] {
    std::mt19937 gen(6);
    std::vector<double> v(kNumbers);
    for (double& x : v) {
      x = (static_cast<double>(gen()) - 2147483648.0) / (1 << (gen() % 20));
    }
    return v;
  }();
  return values;
}

const std::string& OutputFile() {
  static TempFile file("output");
  return file.path();
}

void BM_OfstreamInt(benchmark::State& state) {
  const std::vector<int>& values = Integers();
  for (auto _ : state) {
    std::ofstream out(OutputFile(), std::ios::trunc);
    for (int v : values) {
      out << v << '\n';
    }
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * kNumbers));
}
BENCHMARK(BM_OfstreamInt)->Unit(benchmark::kMillisecond);

void BM_FprintfInt(benchmark::State& state) {
  const std::vector<int>& values = Integers();
  for (auto _ : state) {
    FILE* out = fopen(OutputFile().c_str(), "w");
    for (int v : values) {
      fprintf(out, "%d\n", v);
    }
    fclose(out);
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * kNumbers));
}
BENCHMARK(BM_FprintfInt)->Unit(benchmark::kMillisecond);

void BM_InsertInt(benchmark::State& state) {
  const std::vector<int>& values = Integers();
  for (auto _ : state) {
    QXPlatform::qxofstream out(OutputFile().c_str());
    for (int v : values) {
      out << v << '\n';
    }
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * kNumbers));
}
BENCHMARK(BM_InsertInt)->Unit(benchmark::kMillisecond);

void BM_OfstreamDouble(benchmark::State& state) {
  const std::vector<double>& values = Doubles();
  for (auto _ : state) {
    std::ofstream out(OutputFile(), std::ios::trunc);
    out.setf(std::ios::fixed);
    out.precision(6);
    for (double v : values) {
      out << v << '\n';
    }
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * kNumbers));
}
BENCHMARK(BM_OfstreamDouble)->Unit(benchmark::kMillisecond);

void BM_FprintfDouble(benchmark::State& state) {
  const std::vector<double>& values = Doubles();
  for (auto _ : state) {
    FILE* out = fopen(OutputFile().c_str(), "w");
    for (double v : values) {
      fprintf(out, "%f\n", v);
    }
    fclose(out);
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * kNumbers));
}
BENCHMARK(BM_FprintfDouble)->Unit(benchmark::kMillisecond);

void BM_InsertDouble(benchmark::State& state) {
  const std::vector<double>& values = Doubles();
  for (auto _ : state) {
    QXPlatform::qxofstream out(OutputFile().c_str());
    for (double v : values) {
      out << v << '\n';
    }
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * kNumbers));
}
BENCHMARK(BM_InsertDouble)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
