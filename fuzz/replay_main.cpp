// Runs a fuzz target over every file of the directories (or files) named on
// the command line, so a corpus is replayed as an ordinary test.

#include <dirent.h>
#include <stdint.h>
#include <stdio.h>
#include <sys/stat.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace {

void Collect(const std::string& path, std::vector<std::string>* files) {
  struct stat st;
  if (stat(path.c_str(), &st) != 0) {
    return;
  }
  if (!S_ISDIR(st.st_mode)) {
    files->push_back(path);
    return;
  }
  DIR* dir = opendir(path.c_str());
  if (dir == nullptr) {
    return;
  }
  while (struct dirent* entry = readdir(dir)) {
    std::string name = entry->d_name;
    if (name != "." && name != "..") {
      Collect(path + "/" + name, files);
    }
  }
  closedir(dir);
}

}  // namespace

int main(int argc, char** argv) {
  std::vector<std::string> files;
  for (int i = 1; i < argc; ++i) {
    Collect(argv[i], &files);
  }
  std::sort(files.begin(), files.end());
  if (files.empty()) {
    fprintf(stderr, "replay: no inputs found\n");
    return 1;
  }
  for (const std::string& file : files) {
    std::ifstream in(file, std::ios::binary);
    std::vector<char> bytes((std::istreambuf_iterator<char>(in)),
                            std::istreambuf_iterator<char>());
    LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(bytes.data()),
                           bytes.size());
  }
  printf("replayed %zu inputs\n", files.size());
  return 0;
}
