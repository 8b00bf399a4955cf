// kx_check_signature ANCHORS PATH...: verifies the signature of each path as the tool does, with
// the roots in the PEM file ANCHORS, and prints the result. Exits with 0 if all are valid.

#include <algorithm>
#include <cstdio>
#include <memory>

#include "platform/linux/code_signing/certificate.h"
#include "platform/linux/code_signing/signed_code.h"

namespace {

using platform::OsStatus;
using platform::code_signing::CheckContext;
using platform::code_signing::SignedCode;
using platform::code_signing::TrustStore;

// Each value is on one line, whatever it contains.
void Print(const char* label, std::string text) {
  std::replace_if(
      text.begin(), text.end(), [](unsigned char byte) { return byte < ' '; }, '?');
  std::printf("%s: %s\n", label, text.c_str());
}

void PrintInformation(SignedCode& code) {
  const platform::SigningInformation information = code.CopySigningInformation();
  if (information.teamIdentifier) Print("team", *information.teamIdentifier);
  if (!information.certificates) return;
  for (const platform::Certificate& certificate : *information.certificates) {
    std::optional<std::string> name;
    static_cast<void>(platform::CopyCommonName(certificate, name));
    Print("certificate", name.value_or(""));
  }
}

bool Check(const std::string& path, const TrustStore& trust) {
  Print("path", path);
  std::unique_ptr<SignedCode> code;
  const OsStatus created =
      SignedCode::Open(path, std::make_shared<CheckContext>(CheckContext{trust}), code);
  std::printf("created: %d\n", created);
  if (created != 0) return false;
  try {
    const OsStatus validity = code->CheckValidity();
    std::printf("validity: %d\n", validity);
    PrintInformation(*code);
    return validity == 0;
  } catch (const platform::code_signing::BudgetExceeded&) {
    std::printf("validity: %d\n", platform::code_signing::kErrSecCSInternalError);
    return false;
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3) {
    std::fprintf(stderr, "usage: %s ANCHORS PATH...\n", argv[0]);
    return 2;
  }
  const TrustStore trust = TrustStore::Load(argv[1]);
  bool allValid = true;
  for (int i = 2; i < argc; ++i) allValid = Check(argv[i], trust) && allValid;
  return allValid ? 0 : 1;
}
