#include "platform/linux/code_signing/trust_store.h"

#include <openssl/bio.h>
#include <openssl/pem.h>

#include <algorithm>
#include <memory>

#include "platform/linux/code_signing/libcrypto.h"
#include "platform/linux/random_access_file.h"

namespace platform::code_signing {
namespace {

constexpr std::uint64_t kMaxFileSize = 1U << 20U;

}  // namespace

TrustStore::TrustStore(const CertificateList& anchors) {
  for (const CertificatePtr& anchor : anchors) {
    encodedAnchors_.push_back(EncodedCertificate(*anchor));
  }
}

TrustStore TrustStore::Load(const std::string& path) {
  TrustStore store;
  RandomAccessFile file;
  std::string text;
  if (file.Open(path) != 0 || file.ReadAll(text, kMaxFileSize) != 0) return store;
  const std::unique_ptr<BIO, int (*)(BIO*)> source(
      BIO_new_mem_buf(text.data(), static_cast<int>(text.size())), BIO_free);
  // An encrypted entry is an error: there is no prompt for a password.
  const auto noPassword = [](char*, int, int, void*) { return -1; };
  unsigned char* bytes = nullptr;
  long length = 0;
  while (PEM_bytes_read_bio(&bytes, &length, nullptr, PEM_STRING_X509, source.get(), noPassword,
                            nullptr) == 1) {
    const BytesPtr owner(bytes);
    store.encodedAnchors_.emplace_back(reinterpret_cast<char*>(bytes), length);
  }
  return store;
}

CertificateList TrustStore::Anchors() const {
  CertificateList anchors;
  for (const std::string& encoded : encodedAnchors_) {
    const auto* position = reinterpret_cast<const unsigned char*>(encoded.data());
    CertificatePtr anchor(d2i_X509(nullptr, &position, static_cast<long>(encoded.size())),
                          X509_free);
    if (anchor) anchors.push_back(std::move(anchor));
  }
  return anchors;
}

bool TrustStore::IsAnchor(const X509& certificate) const {
  const std::string encoded = EncodedCertificate(certificate);
  return !encoded.empty() && std::find(encodedAnchors_.begin(), encodedAnchors_.end(), encoded) !=
                                 encodedAnchors_.end();
}

}  // namespace platform::code_signing
