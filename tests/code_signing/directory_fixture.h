#ifndef TESTS_CODE_SIGNING_DIRECTORY_FIXTURE_H_
#define TESTS_CODE_SIGNING_DIRECTORY_FIXTURE_H_

#include <string>

namespace platform::code_signing {

/// A temporary directory, which is removed with the object. Paths are relative to it.
class TestDirectory {
 public:
  TestDirectory();
  ~TestDirectory();
  TestDirectory(const TestDirectory&) = delete;
  TestDirectory& operator=(const TestDirectory&) = delete;

  /// @return the absolute path.
  std::string Path(const std::string& relativePath = "") const;

  /// Writes a file and makes the directories above it.
  void Write(const std::string& relativePath, const std::string& contents) const;

  void MakeDirectory(const std::string& relativePath) const;
  void MakeLink(const std::string& relativePath, const std::string& target) const;
  void Remove(const std::string& relativePath) const;

 private:
  std::string root_;
};

}  // namespace platform::code_signing

#endif  // TESTS_CODE_SIGNING_DIRECTORY_FIXTURE_H_
