#ifndef FUZZ_MEMORY_FILE_H_
#define FUZZ_MEMORY_FILE_H_

#include <cstddef>
#include <cstdint>
#include <string>

namespace fuzz {

/// A file in memory that is filled anew for every input.
class MemoryFile {
 public:
  MemoryFile();
  ~MemoryFile();
  MemoryFile(const MemoryFile&) = delete;
  MemoryFile& operator=(const MemoryFile&) = delete;

  void Fill(const std::uint8_t* data, std::size_t size);

  /// A path under which the file can be opened.
  const std::string& Path() const { return path_; }

 private:
  int descriptor_;
  std::string path_;
};

}  // namespace fuzz

#endif  // FUZZ_MEMORY_FILE_H_
