// Everything that reads a CMS signature: message, attributes, time stamp, chain and names. The
// input is the length of a CodeDirectory in two bytes (big-endian), the CodeDirectory, and a
// message that signs it. The message's certificates are the anchors, so that chains can be valid.
// Functions behind a check that hardly any input passes are also called directly.

#include <cstddef>
#include <cstdint>
#include <ctime>
#include <optional>
#include <string>
#include <string_view>

#include "platform/linux/code_signing/certificate_chain.h"
#include "platform/linux/code_signing/chain_policy.h"
#include "platform/linux/code_signing/cms_message.h"
#include "platform/linux/code_signing/code_directory_set.h"
#include "platform/linux/code_signing/hash_agility.h"
#include "platform/linux/code_signing/signature_check.h"
#include "platform/linux/code_signing/timestamp_token.h"
#include "tests/code_signing/signature_builder.h"

namespace {

using namespace platform::code_signing;
using platform::OsStatus;
using platform::RandomAccessFile;

/// Code that consists of a CodeDirectory.
class DirectoryOnly : public EmptyCode {
 public:
  explicit DirectoryOnly(std::string_view directory) : directory_(directory) {}

  OsStatus ReadComponent(std::size_t, Slot slot, std::optional<std::string>& bytes) const override {
    bytes.reset();
    if (slot == kSlotCodeDirectory) bytes.emplace(directory_);
    return kErrSecSuccess;
  }

 private:
  std::string_view directory_;
};

void VisitCertificates(const CertificateList& certificates, CheckContext& context) {
  constexpr std::size_t kMax = 8;  // building chains is bounded, but not cheap
  for (std::size_t i = 0; i < certificates.size() && i < kMax; ++i) {
    static_cast<void>(CommonName(*certificates[i]));
    static_cast<void>(OrganizationalUnit(*certificates[i]));
    const CertificateChain chain = BuildChain(certificates[i], certificates, context);
    static_cast<void>(IsAppleDeveloperChain(chain));
    static_cast<void>(EvaluateChain(chain, ChainPurpose::kCodeSigning, std::time(nullptr),
                                    DateRule::kEnforce, context.trust));
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::string_view input(reinterpret_cast<const char*>(data), size);
  if (size < 2) return 0;
  const std::size_t length = static_cast<std::size_t>(data[0]) << 8U | data[1];
  input.remove_prefix(2);
  const DirectoryOnly code(input.substr(0, length));
  const std::string_view bytes = input.substr(std::min(length, input.size()));

  CodeDirectorySet directories;
  const OsStatus status = CodeDirectorySet::Load(code, 0, directories);
  CmsMessage message;
  const bool parsed = CmsMessage::Parse(bytes, message) == CmsMessage::ParseResult::kComplete;
  CheckContext context = {TrustStore(parsed ? message.Certificates() : CertificateList())};
  CertificateChain chain;
  try {
    static_cast<void>(CheckSignature(bytes, status, directories, context, chain));
    static_cast<void>(VerifyTimestampToken(bytes, "signature", context));
    if (parsed) VisitCertificates(message.Certificates(), context);
  } catch (const BudgetExceeded&) {
    return 0;
  }
  if (!parsed) return 0;
  for (const CmsSigner& signer : message.Signers()) {
    static_cast<void>(signer.SigningTime());
    if (status == kErrSecSuccess) static_cast<void>(CheckHashAgility(signer, directories));
  }
  return 0;
}
