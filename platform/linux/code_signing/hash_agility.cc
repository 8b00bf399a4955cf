#include "platform/linux/code_signing/hash_agility.h"

#include <openssl/asn1.h>
#include <openssl/objects.h>

#include <map>
#include <memory>
#include <optional>
#include <string>

#include "platform/linux/property_list.h"

namespace platform::code_signing {
namespace {

// An octet string with a property list of the hashes of all directories, cut to 20 bytes.
constexpr char kFirstVersion[] = "1.2.840.113635.100.9.1";

// One sequence for each directory: identifier of the digest and octet string with the hash.
constexpr char kSecondVersion[] = "1.2.840.113635.100.9.2";

constexpr std::size_t kCutHashLength = 20;

// A list with six hashes takes less than a tenth of it.
constexpr std::size_t kMaxListMemory = std::size_t{64} << 10;

std::string TextOf(const ASN1_STRING& string) {
  return {reinterpret_cast<const char*>(ASN1_STRING_get0_data(&string)),
          static_cast<std::size_t>(ASN1_STRING_length(&string))};
}

OsStatus CheckFirstVersion(const ASN1_TYPE& value, const CodeDirectorySet& directories) {
  if (ASN1_TYPE_get(&value) != V_ASN1_OCTET_STRING) return kErrSecCSSignatureFailed;
  PropertyListBudget budget(kMaxListMemory);
  const auto list = ParsePropertyList(TextOf(*value.value.octet_string), budget);
  const PropertyListValue* hashes = list ? list->Find("cdhashes") : nullptr;
  if (hashes == nullptr || hashes->kind != PropertyListValue::Kind::kArray ||
      hashes->elements.size() != directories.All().size()) {
    return kErrSecCSSignatureFailed;
  }
  auto stated = hashes->elements.begin();
  for (const auto& [number, directory] : directories.All()) {
    const std::optional<std::string> hash = directory.Hash();
    if (!hash) return kErrSecCSSignatureUnsupported;
    if (stated->kind != PropertyListValue::Kind::kData ||
        stated->text != hash->substr(0, kCutHashLength)) {
      return kErrSecCSSignatureFailed;
    }
    ++stated;
  }
  return kErrSecSuccess;
}

struct FreeSequence {
  void operator()(ASN1_SEQUENCE_ANY* sequence) const {
    sk_ASN1_TYPE_pop_free(sequence, ASN1_TYPE_free);
  }
};

using HashesByDigest = std::map<int, std::string>;

bool AddHash(const ASN1_TYPE& value, HashesByDigest& hashes) {
  if (ASN1_TYPE_get(&value) != V_ASN1_SEQUENCE) return false;
  const ASN1_STRING* encoded = value.value.sequence;
  const unsigned char* position = ASN1_STRING_get0_data(encoded);
  const std::unique_ptr<ASN1_SEQUENCE_ANY, FreeSequence> parts(
      d2i_ASN1_SEQUENCE_ANY(nullptr, &position, ASN1_STRING_length(encoded)));
  if (sk_ASN1_TYPE_num(parts.get()) != 2) return false;
  const ASN1_TYPE* digest = sk_ASN1_TYPE_value(parts.get(), 0);
  const ASN1_TYPE* hash = sk_ASN1_TYPE_value(parts.get(), 1);
  return ASN1_TYPE_get(digest) == V_ASN1_OBJECT && ASN1_TYPE_get(hash) == V_ASN1_OCTET_STRING &&
         hashes.emplace(OBJ_obj2nid(digest->value.object), TextOf(*hash->value.octet_string))
             .second;
}

// Some signers write a truncated digest in full.
bool IsHashOf(const CodeDirectory& directory, HashType type, const std::string& stated) {
  return stated == DigestOf(type, directory.Blob()) ||
         (type == HashType::kSha256Truncated &&
          stated == DigestOf(HashType::kSha256, directory.Blob()));
}

OsStatus CheckSecondVersion(const std::vector<const ASN1_TYPE*>& values,
                            const CodeDirectorySet& directories) {
  HashesByDigest hashes;
  for (const ASN1_TYPE* value : values) {
    if (!AddHash(*value, hashes)) return kErrSecDecode;
  }
  if (hashes.size() != directories.All().size()) return kErrSecCSSignatureFailed;
  for (const auto& [number, directory] : directories.All()) {
    const std::optional<HashType> type = directory.KnownHashType();
    if (!type) {
      if (&directory == &directories.Base()) continue;  // which the signature covers
      return kErrSecCSSignatureFailed;
    }
    const auto stated = hashes.find(AlgorithmIdentifier(*type));
    if (stated == hashes.end() || !IsHashOf(directory, *type, stated->second)) {
      return kErrSecCSSignatureFailed;
    }
  }
  return kErrSecSuccess;
}

}  // namespace

OsStatus CheckHashAgility(const CmsSigner& signer, const CodeDirectorySet& directories) {
  // A first-version attribute that does not have exactly one value counts as absent.
  const auto first = signer.SignedAttribute(kFirstVersion);
  const bool hasFirst = first && first->size() == 1;
  if (hasFirst) {
    const OsStatus status = CheckFirstVersion(*first->front(), directories);
    if (status != kErrSecSuccess) return status;
  }
  const auto second = signer.SignedAttribute(kSecondVersion);
  if (second) {
    const OsStatus status = CheckSecondVersion(*second, directories);
    if (status != kErrSecSuccess) return status;
  }
  const bool areAllCovered = hasFirst || second || directories.All().size() == 1;
  return areAllCovered ? kErrSecSuccess : kErrSecCSSignatureFailed;
}

}  // namespace platform::code_signing
