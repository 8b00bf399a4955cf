#include "platform/linux/code_signing/trust_store.h"

#include <openssl/bio.h>
#include <openssl/pem.h>

#include <algorithm>

#include "platform/linux/code_signing/random_access_file.h"

namespace platform::code_signing {
namespace {

constexpr std::uint64_t kLargestFile = 1U << 20U;

}  // namespace

TrustStore TrustStore::Load(const std::string& path) {
  TrustStore store;
  RandomAccessFile file;
  std::uint64_t size = 0;
  std::string text;
  if (file.Open(path) != 0 || file.Size(size) != 0 || size > kLargestFile ||
      file.ReadAll(text) != 0) {
    return store;
  }
  const std::unique_ptr<BIO, int (*)(BIO*)> source(
      BIO_new_mem_buf(text.data(), static_cast<int>(text.size())), BIO_free);
  // An encrypted entry is a broken one: nobody is asked for a password.
  const auto noPassword = [](char*, int, int, void*) { return -1; };
  while (X509* certificate = PEM_read_bio_X509(source.get(), nullptr, noPassword, nullptr)) {
    store.anchors_.emplace_back(certificate, X509_free);
  }
  return store;
}

bool TrustStore::IsAnchor(const X509& certificate) const {
  return std::any_of(anchors_.begin(), anchors_.end(), [&](const CertificatePtr& anchor) {
    return AreSameCertificate(*anchor, certificate);
  });
}

}  // namespace platform::code_signing
