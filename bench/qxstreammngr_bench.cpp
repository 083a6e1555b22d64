// Opening a small file by name, detecting its content and closing it, beside
// fopen, fread and fclose of the same file.

#include <stdio.h>
#include <stdlib.h>

#include <string>

#include <benchmark/benchmark.h>

#include <QXPlatform/QXPlatform.h>

namespace {

using QXPlatform::QXCloseIStream;
using QXPlatform::QXCompress;
using QXPlatform::qxistream;
using QXPlatform::QXOpenIStream;

const size_t kSmall = 1024;

std::string SmallFile(const char* stem, bool packed) {
  const char* dir = getenv("TMPDIR");
  std::string path =
      std::string(dir != nullptr && *dir != '\0' ? dir : "/tmp") +
      "/qxstreammngr_bench_" + stem;
  std::string text;
  for (size_t i = 0; text.size() < kSmall; ++i) {
    text += "line " + std::to_string(i) + " of a small file\n";
  }
  text.resize(kSmall);
  if (packed) {
    std::string gz;
    QXCompress(gz, text, "gz");
    text = gz;
  }
  FILE* f = fopen(path.c_str(), "wb");
  fwrite(text.data(), 1, text.size(), f);
  fclose(f);
  return path;
}

void BM_QXOpenIStreamSmallFile(benchmark::State& state) {
  std::string path = SmallFile("plain", false);
  char buffer[kSmall];
  for (auto _ : state) {
    qxistream* in = QXOpenIStream(path.c_str());
    benchmark::DoNotOptimize(in->read(buffer, kSmall));
    QXCloseIStream(in);
  }
  state.SetItemsProcessed(state.iterations());
  remove(path.c_str());
}
BENCHMARK(BM_QXOpenIStreamSmallFile);

void BM_FopenFreadFcloseSmallFile(benchmark::State& state) {
  std::string path = SmallFile("plain", false);
  char buffer[kSmall];
  for (auto _ : state) {
    FILE* f = fopen(path.c_str(), "rb");
    benchmark::DoNotOptimize(fread(buffer, 1, kSmall, f));
    fclose(f);
  }
  state.SetItemsProcessed(state.iterations());
  remove(path.c_str());
}
BENCHMARK(BM_FopenFreadFcloseSmallFile);

void BM_QXOpenIStreamSmallGzipFile(benchmark::State& state) {
  std::string path = SmallFile("packed.gz", true);
  char buffer[kSmall];
  for (auto _ : state) {
    qxistream* in = QXOpenIStream(path.c_str());
    benchmark::DoNotOptimize(in->read(buffer, kSmall));
    QXCloseIStream(in);
  }
  state.SetItemsProcessed(state.iterations());
  remove(path.c_str());
}
BENCHMARK(BM_QXOpenIStreamSmallGzipFile);

}  // namespace

BENCHMARK_MAIN();
