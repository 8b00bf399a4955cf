#ifndef PLATFORM_CODE_SIGNING_H_
#define PLATFORM_CODE_SIGNING_H_

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

/// The functions need an AutoreleasePool in the calling thread.

namespace platform {

/// Releases on destruction what the host's frameworks have autoreleased (macOS: an autorelease
/// pool; Linux: nothing).
class AutoreleasePool {
 public:
  AutoreleasePool();
  ~AutoreleasePool();  // NOLINT(performance-trivially-destructible): trivial on Linux only
  AutoreleasePool(const AutoreleasePool&) = delete;
  AutoreleasePool& operator=(const AutoreleasePool&) = delete;

 private:
  [[maybe_unused]] void* pool_ = nullptr;
};

/// A status number of the Security framework; 0 (errSecSuccess) is success. Statuses that wrap an
/// errno are 100000 plus the macOS number, on every host.
using OsStatus = std::int32_t;

/// A code object on disk: a file or a bundle. Empty until CreateStaticCode() has filled it. The
/// handle owns the host's object and releases it with the last copy.
struct StaticCode {
  std::shared_ptr<const void> handle;
};

/// One certificate of a signature's chain. The handle owns the host's object.
struct Certificate {
  std::shared_ptr<const void> handle;
};

/// What a signature says about its signer. A part that the signature does not carry is absent.
struct SigningInformation {
  /// The chain, signing (leaf) certificate first; absent for unsigned and ad-hoc signed code.
  std::optional<std::vector<Certificate>> certificates;
  std::optional<std::string> teamIdentifier;
};

/// SecStaticCodeCreateWithPath() with default flags: determines what kind of code is at `path`
/// (UTF-8). This function does not detect unsigned code or damaged signatures; CheckValidity()
/// does.
/// @param code is filled on success and empty otherwise.
OsStatus CreateStaticCode(const std::string& path, StaticCode& code);

/// SecStaticCodeCheckValidityWithErrors() with kSecCSCheckAllArchitectures and no requirement.
/// @param code must be filled.
OsStatus CheckValidity(const StaticCode& code);

/// SecCodeCopySigningInformation() with the flags 0x1E. Succeeds for unsigned and invalid code too,
/// with the parts that such code has.
/// @param information is replaced on success and untouched otherwise.
OsStatus CopySigningInformation(const StaticCode& code, SigningInformation& information);

/// SecCertificateCopyCommonName(): the last common name of the certificate's subject, in UTF-8.
/// @param name is reset, and filled when the subject has a common name.
OsStatus CopyCommonName(const Certificate& certificate, std::optional<std::string>& name);

}  // namespace platform

#endif  // PLATFORM_CODE_SIGNING_H_
