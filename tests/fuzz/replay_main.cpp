// Replays fuzz inputs without libFuzzer: runs LLVMFuzzerTestOneInput on
// every file of the directories (or the files) named on the command line,
// so the normal and sanitizer builds check each committed corpus.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace {

std::vector<std::filesystem::path> inputs_under(const std::filesystem::path& path) {
  std::vector<std::filesystem::path> found;
  if (std::filesystem::is_directory(path)) {
    for (const auto& entry : std::filesystem::recursive_directory_iterator(path))
      if (entry.is_regular_file()) found.push_back(entry.path());
  } else if (std::filesystem::is_regular_file(path)) {
    found.push_back(path);
  }
  return found;
}

}  // namespace

int main(int argc, char** argv) {
  size_t replayed = 0;
  for (int i = 1; i < argc; ++i) {
    std::vector<std::filesystem::path> files = inputs_under(argv[i]);
    std::sort(files.begin(), files.end());  // a failure names the same file on every run
    for (const auto& file : files) {
      std::ifstream in(file, std::ios::binary);
      const std::vector<char> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
      std::fprintf(stderr, "replay: %s\n", file.c_str());
      LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
      ++replayed;
    }
  }
  std::printf("replayed %zu inputs\n", replayed);
  // An empty corpus checks nothing: a missing or misnamed directory fails.
  return replayed > 0 ? 0 : 1;
}
