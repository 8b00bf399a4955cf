#include <cstddef>
#include <cstdint>
#include <string_view>

#include "platform/linux/code_signing/certificate.h"
#include "platform/linux/code_signing/requirement.h"

namespace {

using platform::code_signing::RequirementSubject;

RequirementSubject MakeSubject(const X509* certificate) {
  RequirementSubject subject;
  subject.identifier = "com.example.a";
  subject.cdHash.assign(20, '\xAB');
  subject.certificates = {certificate, certificate};
  return subject;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const platform::code_signing::CertificatePtr certificate(X509_new(), X509_free);
  static const RequirementSubject subject = MakeSubject(certificate.get());
  const auto requirement = platform::code_signing::ParseRequirement(
      std::string_view(reinterpret_cast<const char*>(data), size));
  if (requirement) static_cast<void>((*requirement)(subject));
  return 0;
}
