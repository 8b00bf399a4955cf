// Runs a fuzz target on each file of a folder, intact and damaged, in place of libFuzzer's driver
// (https://llvm.org/docs/LibFuzzer.html): NAME_replay FOLDER. A folder without files is an error.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

using Bytes = std::vector<std::uint8_t>;

/// Runs the target on an exact-size buffer, so that the sanitizers detect reads past the end.
void Run(const Bytes& bytes) { LLVMFuzzerTestOneInput(bytes.data(), bytes.size()); }

/// Runs the target on the input, truncated or with one byte changed, at many places. They are
/// denser at the beginning, where headers are.
void RunDamaged(const Bytes& bytes) {
  for (std::size_t place = 0; place < bytes.size(); place += 1 + place / 128) {
    Run(Bytes(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(place)));
    for (const int value : {0x00, 0xFF, bytes[place] ^ 0x01}) {
      Bytes changed = bytes;
      changed[place] = static_cast<std::uint8_t>(value);
      Run(changed);
    }
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: %s FOLDER\n", argv[0]);
    return 2;
  }
  std::vector<std::filesystem::path> paths;
  for (const auto& entry : std::filesystem::directory_iterator(argv[1])) {
    paths.push_back(entry.path());
  }
  std::sort(paths.begin(), paths.end());
  for (const std::filesystem::path& path : paths) {
    std::printf("%s\n", path.filename().c_str());
    std::fflush(stdout);
    std::ifstream file(path, std::ios::binary);
    const Bytes bytes{std::istreambuf_iterator<char>(file), {}};
    Run(bytes);
    RunDamaged(bytes);
  }
  return paths.empty() ? 1 : 0;
}
