// Lives the life that a file's bytes are, through the shared library, and writes what came back.
//   alg_life_runner CALLS ANSWERS
#include <cstdio>
#include <fstream>
#include <iterator>
#include <vector>

#include <alg_factory/api/AlgFactory.h>
#include <tests/support/HostLife.h>

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fprintf(stderr, "usage: alg_life_runner CALLS ANSWERS\n");
    return 2;
  }
  std::ifstream file(argv[1], std::ios::binary);
  const std::string calls{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  const auto answers = testing_support::bytesOf(testing_support::live(
      *algorithm::AlgFactory::CreateALG(0),
      testing_support::lifeFrom(reinterpret_cast<const std::uint8_t*>(calls.data()),
                                calls.size())));
  std::ofstream output(argv[2], std::ios::binary);
  output.write(reinterpret_cast<const char*>(answers.data()),
               static_cast<std::streamsize>(answers.size()));
  return file && output.flush() ? 0 : 1;
}
