// Runs a fuzz target over files without libFuzzer: each argument is an input
// file or a directory of them. The ordinary and sanitizer builds use it to
// replay the committed corpora as regression tests.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

int main(int argc, char** argv) {
  std::vector<std::filesystem::path> inputs;
  for (int i = 1; i < argc; ++i) {
    std::filesystem::path argument(argv[i]);
    if (std::filesystem::is_directory(argument)) {
      for (const auto& entry : std::filesystem::directory_iterator(argument)) {
        if (entry.is_regular_file()) inputs.push_back(entry.path());
      }
    } else {
      inputs.push_back(argument);
    }
  }
  if (inputs.empty()) {
    std::fprintf(stderr, "no inputs\n");
    return 1;
  }
  std::sort(inputs.begin(), inputs.end());
  for (const auto& input : inputs) {
    std::ifstream in(input, std::ios::binary);
    if (!in) {
      std::fprintf(stderr, "cannot read %s\n", input.c_str());
      return 1;
    }
    std::vector<uint8_t> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    std::fprintf(stderr, "%s (%zu bytes)\n", input.c_str(), bytes.size());
    LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
  }
  std::printf("%zu inputs replayed\n", inputs.size());
  return 0;
}
