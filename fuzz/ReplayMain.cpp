// Runs a fuzz target on every file of its corpus, without a fuzzer: any compiler, any test run.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

int main(int argc, char** argv) {
  std::vector<std::filesystem::path> files;
  try {
    for (int i = 1; i < argc; ++i) {
      if (!std::filesystem::is_directory(argv[i])) {
        files.push_back(argv[i]);
        continue;
      }
      for (const auto& entry : std::filesystem::directory_iterator(argv[i])) {
        if (entry.is_regular_file()) files.push_back(entry.path());
      }
    }
    std::sort(files.begin(), files.end());
    for (const auto& path : files) {
      std::ifstream file(path, std::ios::binary);
      if (!file) {
        std::fprintf(stderr, "%s: cannot be opened\n", path.string().c_str());
        return 1;
      }
      const std::string bytes{std::istreambuf_iterator<char>(file),
                              std::istreambuf_iterator<char>()};
      std::fprintf(stderr, "%s\n", path.string().c_str());  // names the file if the run ends in it
      LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
    }
  } catch (const std::exception& error) {
    std::fprintf(stderr, "%s\n", error.what());
    return 1;
  }
  std::printf("%zu files\n", files.size());
  if (files.empty()) std::fprintf(stderr, "no corpus\n");
  return files.empty() ? 1 : 0;
}
