// Runs a fuzz target over files without libFuzzer: each argument is an input
// file or a folder of them. The ordinary and sanitizer builds replay the
// committed corpora with it as regression tests.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

int main(int argc, char** argv) {
  std::vector<std::filesystem::path> inputs;
  for (int i = 1; i < argc; ++i) {
    if (!std::filesystem::is_directory(argv[i])) {
      inputs.emplace_back(argv[i]);
      continue;
    }
    for (const auto& entry : std::filesystem::directory_iterator(argv[i])) inputs.push_back(entry);
  }
  std::sort(inputs.begin(), inputs.end());
  for (const auto& input : inputs) {
    std::ifstream in(input, std::ios::binary);
    if (!in) return std::fprintf(stderr, "cannot read %s\n", input.c_str()), 1;
    std::vector<uint8_t> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    std::fprintf(stderr, "%s (%zu bytes)\n", input.c_str(), bytes.size());
    LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
  }
  std::printf("%zu inputs replayed\n", inputs.size());
  return inputs.empty() ? 1 : 0;
}
