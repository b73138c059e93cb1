// Runs a target over the files of a corpus, which must not be empty, and over past crashes, if any.
#include <filesystem>
#include <fstream>

#include "fuzz.h"

int main(int argc, char** argv) {
  std::size_t count = 0;
  for (int i = 1; i < argc; ++i) {
    if (i > 1 && !std::filesystem::exists(argv[i])) continue;
    for (auto const& file : std::filesystem::directory_iterator(argv[i])) {
      std::cout << file.path().string() << std::endl;  // flushed, so the last one shown is the one that fails
      std::ifstream in(file.path(), std::ios::binary);
      std::string const input{std::istreambuf_iterator<char>(in), {}};
      LLVMFuzzerTestOneInput(reinterpret_cast<std::uint8_t const*>(input.data()), input.size());
      ++count;
    }
    require(count > 0, "the corpus holds files");
  }
}
