#include "platform/code_signing.h"

#include <openssl/crypto.h>
#include <openssl/err.h>

#include <exception>
#include <memory>
#include <new>
#include <utility>

#include "platform/linux/code_signing/signed_code.h"

namespace platform {
namespace {

using code_signing::SignedCode;

// Like the Security framework, lets no exception leave the interface.
template <typename Call>
OsStatus Guarded(const Call& call) {
  OsStatus status = code_signing::kErrSecCSInternalError;
  try {
    status = call();
  } catch (const std::bad_alloc&) {
    status = code_signing::kErrSecAllocate;
  } catch (const std::exception&) {
    // Stays an internal error.
  }
  ERR_clear_error();
  return status;
}

// The check must not depend on a configuration file that the environment can name. It needs neither
// error texts, nor cipher names, nor a cleanup at the end of the process.
void StartCrypto() {
  OPENSSL_init_crypto(OPENSSL_INIT_NO_LOAD_CONFIG | OPENSSL_INIT_NO_LOAD_CRYPTO_STRINGS |
                          OPENSSL_INIT_NO_ADD_ALL_CIPHERS | OPENSSL_INIT_NO_ATEXIT,
                      nullptr);
}

SignedCode& Unwrap(const StaticCode& code) {
  return *const_cast<SignedCode*>(static_cast<const SignedCode*>(code.handle.get()));
}

}  // namespace

AutoreleasePool::AutoreleasePool() = default;

AutoreleasePool::~AutoreleasePool() = default;

OsStatus CreateStaticCode(const std::string& path, StaticCode& code) {
  code = {};
  return Guarded([&] {
    StartCrypto();
    auto context = std::make_shared<code_signing::CheckContext>(code_signing::CheckContext{
        code_signing::TrustStore::Load(code_signing::TrustStore::kAnchorsPath)});
    std::unique_ptr<SignedCode> opened;
    const OsStatus status = SignedCode::Open(path, std::move(context), opened);
    if (status == code_signing::kErrSecSuccess) {
      code.handle = std::shared_ptr<const SignedCode>(std::move(opened));
    }
    return status;
  });
}

OsStatus CheckValidity(const StaticCode& code) {
  return Guarded([&] { return Unwrap(code).CheckValidity(); });
}

OsStatus CopySigningInformation(const StaticCode& code, SigningInformation& information) {
  return Guarded([&]() -> OsStatus {
    information = Unwrap(code).CopySigningInformation();
    return code_signing::kErrSecSuccess;
  });
}

OsStatus CopyCommonName(const Certificate& certificate, std::optional<std::string>& name) {
  name.reset();
  return Guarded([&]() -> OsStatus {
    name = code_signing::CommonName(*static_cast<const X509*>(certificate.handle.get()));
    return name ? code_signing::kErrSecSuccess : code_signing::kErrSecInternal;
  });
}

}  // namespace platform
