// The input is the CodeResources file of a small bundle, which is created once.

#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "platform/linux/code_signing/resource_seal.h"
#include "tests/code_signing/signature_builder.h"

namespace {

namespace code_signing = platform::code_signing;

std::string TemporaryDirectory() {
  const char* const place = std::getenv("TEST_TMPDIR");
  return place == nullptr ? "/tmp" : place;
}

/// A bundle with a file, a link and a nested library, which is removed at the end of the program.
class Bundle : public code_signing::EmptyCode {
 public:
  Bundle() {
    if (mkdtemp(path_.data()) == nullptr) std::abort();
    Make(mkdir((path_ + "/MacOS").c_str(), 0700));
    Make(mkdir((path_ + "/Resources").c_str(), 0700));
    Write("/MacOS/tool");
    Write("/MacOS/lib.dylib");
    Write("/Resources/a.txt");
    Make(symlink("a.txt", (path_ + "/Resources/link").c_str()));
    Make(root_.Open(path_));
  }

  ~Bundle() override {
    for (const char* const path : {"/MacOS/tool", "/MacOS/lib.dylib", "/MacOS", "/Resources/a.txt",
                                   "/Resources/link", "/Resources", ""}) {
      std::remove((path_ + path).c_str());
    }
  }

  std::string MainExecutablePath() const override { return path_ + "/MacOS/tool"; }
  std::optional<std::string> ResourceRoot() const override { return path_; }
  const code_signing::BundleRoot* Root() const override { return &root_; }

 private:
  static void Make(int result) {
    if (result != 0) std::abort();
  }

  void Write(const char* path) const {
    std::FILE* const file = std::fopen((path_ + path).c_str(), "w");
    if (file == nullptr) std::abort();
    std::fputs("contents", file);
    std::fclose(file);
  }

  std::string path_ = TemporaryDirectory() + "/resource_seal_fuzzer.XXXXXX";
  code_signing::BundleRoot root_;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const Bundle bundle;
  const code_signing::ResourceSeal seal = {
      bundle,
      std::string(reinterpret_cast<const char*>(data), size),
      {code_signing::HashType::kSha1, code_signing::HashType::kSha256},
      [](const std::string&, const code_signing::Requirement& requirement) {
        return requirement({}) ? code_signing::kErrSecSuccess : code_signing::kErrSecCSReqFailed;
      }};
  code_signing::CheckContext context;
  static_cast<void>(code_signing::CheckResources(seal, context));
  return 0;
}
