// Where libFuzzer does not drive a harness: runs it once for each file in the folders named, which
// makes its seeds and what was found earlier a test of every build.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size);

namespace {

std::string ContentsOf(const std::filesystem::path &path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

}  // namespace

int main(int count, char **arguments) {
  FILE *const log = stdout;  // the harness puts another stream in its place
  int inputs = 0;
  for (int i = 1; i < count; ++i) {
    for (const auto &entry : std::filesystem::directory_iterator(arguments[i])) {
      std::fprintf(log, "%s\n", entry.path().c_str());
      std::fflush(log);
      const std::string input = ContentsOf(entry.path());
      LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t *>(input.data()), input.size());
      ++inputs;
    }
  }
  return inputs == 0 ? 1 : 0;
}
