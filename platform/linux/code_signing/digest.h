#ifndef PLATFORM_LINUX_CODE_SIGNING_DIGEST_H_
#define PLATFORM_LINUX_CODE_SIGNING_DIGEST_H_

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

struct evp_md_ctx_st;
struct evp_md_st;

namespace platform::code_signing {

/// The digests of a signature, numbered as in a CodeDirectory and in the keys of CodeResources
/// (cs_blobs.h of Apple's open xnu).
enum class HashType : std::uint8_t {
  kSha1 = 1,
  kSha256 = 2,
  kSha256Truncated = 3,  ///< the first 20 bytes of SHA-256
  kSha384 = 4,
};

/// All types, the most preferred first.
inline constexpr HashType kHashTypes[] = {HashType::kSha384, HashType::kSha256,
                                          HashType::kSha256Truncated, HashType::kSha1};

/// @return the type with this number; nothing for an unknown number.
std::optional<HashType> HashTypeFromNumber(std::uint8_t number);

/// @return the digest's length in bytes.
std::size_t DigestLength(HashType type);

/// @return libcrypto's number of the algorithm (NID).
int AlgorithmIdentifier(HashType type);

/// A digest that is computed in pieces. Move-only. Throws std::bad_alloc when libcrypto fails,
/// which means a lack of memory.
class Digest {
 public:
  explicit Digest(HashType type);

  void Update(std::string_view bytes);

  /// @return the digest, cut to DigestLength(). The object then starts over.
  std::string Finish();

 private:
  struct Free {
    void operator()(evp_md_ctx_st* context) const;
  };

  void Start(const evp_md_st* algorithm);

  HashType type_;
  std::unique_ptr<evp_md_ctx_st, Free> context_;
};

/// The digest of `bytes`, cut to DigestLength().
std::string DigestOf(HashType type, std::string_view bytes);

}  // namespace platform::code_signing

#endif  // PLATFORM_LINUX_CODE_SIGNING_DIGEST_H_
