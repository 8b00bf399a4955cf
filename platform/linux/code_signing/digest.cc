#include "platform/linux/code_signing/digest.h"

#include <openssl/evp.h>

#include <algorithm>
#include <iterator>
#include <new>

namespace platform::code_signing {
namespace {

struct HashTraits {
  HashType type;
  std::size_t length;
  const EVP_MD* (*algorithm)();
};

constexpr HashTraits kHashes[] = {
    {HashType::kSha1, 20, EVP_sha1},
    {HashType::kSha256, 32, EVP_sha256},
    {HashType::kSha256Truncated, 20, EVP_sha256},
    {HashType::kSha384, 48, EVP_sha384},
};

const HashTraits& TraitsOf(HashType type) {
  return *std::find_if(std::begin(kHashes), std::end(kHashes),
                       [type](const HashTraits& hash) { return hash.type == type; });
}

}  // namespace

std::optional<HashType> HashTypeFromNumber(std::uint8_t number) {
  for (const HashType type : kHashTypes) {
    if (static_cast<std::uint8_t>(type) == number) return type;
  }
  return std::nullopt;
}

std::size_t DigestLength(HashType type) { return TraitsOf(type).length; }

int AlgorithmIdentifier(HashType type) { return EVP_MD_get_type(TraitsOf(type).algorithm()); }

void Digest::Free::operator()(evp_md_ctx_st* context) const { EVP_MD_CTX_free(context); }

Digest::Digest(HashType type) : type_(type), context_(EVP_MD_CTX_new()) {
  Start(TraitsOf(type_).algorithm());
}

void Digest::Start(const evp_md_st* algorithm) {
  if (context_ == nullptr || EVP_DigestInit_ex(context_.get(), algorithm, nullptr) != 1) {
    throw std::bad_alloc();
  }
}

void Digest::Update(std::string_view bytes) {
  if (EVP_DigestUpdate(context_.get(), bytes.data(), bytes.size()) != 1) throw std::bad_alloc();
}

std::string Digest::Finish() {
  std::string digest(EVP_MAX_MD_SIZE, '\0');
  auto* const bytes = reinterpret_cast<unsigned char*>(digest.data());
  if (EVP_DigestFinal_ex(context_.get(), bytes, nullptr) != 1) throw std::bad_alloc();
  digest.resize(DigestLength(type_));
  // Keeping the context's algorithm avoids a lookup for every page.
  Start(nullptr);
  return digest;
}

std::string DigestOf(HashType type, std::string_view bytes) {
  Digest digest(type);
  digest.Update(bytes);
  return digest.Finish();
}

}  // namespace platform::code_signing
