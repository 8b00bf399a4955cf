#ifndef PLATFORM_LINUX_CODE_SIGNING_LIBCRYPTO_H_
#define PLATFORM_LINUX_CODE_SIGNING_LIBCRYPTO_H_

#include <openssl/asn1.h>
#include <openssl/crypto.h>

#include <memory>

namespace platform::code_signing {

/// Empties libcrypto's error queue and throws std::bad_alloc if libcrypto ran out of memory. Call
/// it wherever a failure of libcrypto could pass for an answer.
void RequireMemory();

/// Bytes that libcrypto has allocated.
struct FreeBytes {
  void operator()(unsigned char* bytes) const { OPENSSL_free(bytes); }
};
using BytesPtr = std::unique_ptr<unsigned char, FreeBytes>;

struct FreeObject {
  void operator()(ASN1_OBJECT* object) const { ASN1_OBJECT_free(object); }
};
using ObjectPtr = std::unique_ptr<ASN1_OBJECT, FreeObject>;

/// Returns the object with a dotted identifier; null when the text is not an identifier.
/// @throws std::bad_alloc
ObjectPtr ObjectFromText(const char* identifier);

}  // namespace platform::code_signing

#endif  // PLATFORM_LINUX_CODE_SIGNING_LIBCRYPTO_H_
