// Runs a fuzz target's entry point over files, without libFuzzer: every argument is a file or a
// directory of files. Used by CTest to replay the corpus in the plain and sanitizer builds.
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace {

int replay(const std::filesystem::path& file) {
  std::ifstream stream(file, std::ios::binary);
  if (!stream) {
    std::fprintf(stderr, "cannot read %s\n", file.c_str());
    return 1;
  }
  std::vector<uint8_t> input((std::istreambuf_iterator<char>(stream)),
                             std::istreambuf_iterator<char>());
  LLVMFuzzerTestOneInput(input.data(), input.size());
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  int failures = 0, count = 0;
  for (int i = 1; i < argc; ++i) {
    std::filesystem::path path(argv[i]);
    if (std::filesystem::is_directory(path)) {
      for (const auto& entry : std::filesystem::directory_iterator(path)) {
        if (!entry.is_regular_file()) continue;
        failures += replay(entry.path());
        ++count;
      }
    } else {
      failures += replay(path);
      ++count;
    }
  }
  std::printf("replayed %d inputs\n", count);
  return failures == 0 && count > 0 ? 0 : 1;
}
