#include <cstddef>
#include <cstdint>
#include <string_view>

#include "platform/linux/code_signing/requirement.h"
#include "tests/code_signing/cms_builder.h"

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
  static const auto certificate = platform::code_signing::MakeNamedCertificate(
      {{"CN", "Example"}, {"OU", "TEAM"}}, {"1.2.840.113635.100.6.1.13"});
  static const RequirementSubject subject = MakeSubject(certificate.get());
  const auto requirement = platform::code_signing::ParseRequirement(
      std::string_view(reinterpret_cast<const char*>(data), size));
  if (requirement) static_cast<void>((*requirement)(subject));
  return 0;
}
