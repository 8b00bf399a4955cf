// kx_libcrypto_failures STEP ANCHORS PATH...: checks the signature of each path again and again
// with the roots in the PEM file ANCHORS. Each time another allocation of libcrypto's fails, first
// alone, then with all that follow, and then another one by `operator new`; one in STEP is tried of
// libcrypto's, and more of the others, which are fewer. Whatever fails, code that is not valid must
// not become valid, no signer may get another name, nothing may be left allocated, and the next
// check must find what the first one found. Ends with 0 when all that holds.

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <vector>

#include "platform/linux/code_signing/signed_code.h"
#include "tests/code_signing/libcrypto_memory.h"
#include "tests/support/allocation_failure.h"

namespace platform::code_signing {
namespace {

/// The status of a check, and what the code's signer is called when it is valid.
struct Verdict {
  OsStatus status = kErrSecAllocate;
  std::optional<std::string> team;
  std::vector<std::optional<std::string>> names;

  bool operator==(const Verdict& other) const {
    return status == other.status && team == other.team && names == other.names;
  }
};

Verdict Check(const char* anchors, const char* path) {
  auto context = std::make_shared<CheckContext>(CheckContext{TrustStore::Load(anchors)});
  std::unique_ptr<SignedCode> code;
  Verdict verdict;
  verdict.status = SignedCode::Open(path, std::move(context), code);
  if (verdict.status == kErrSecSuccess) verdict.status = code->CheckValidity();
  if (verdict.status != kErrSecSuccess) return verdict;
  const SigningInformation information = code->CopySigningInformation();
  verdict.team = information.teamIdentifier;
  if (!information.certificates) return verdict;
  for (const Certificate& certificate : *information.certificates) {
    verdict.names.emplace_back();
    static_cast<void>(CopyCommonName(certificate, verdict.names.back()));
  }
  return verdict;
}

/// Whether a check in which an allocation failed may say `verdict`. A name may be missing, since
/// nothing is equal to a missing one.
bool IsHarmless(const Verdict& verdict, const Verdict& usual) {
  if (verdict.status != kErrSecSuccess) return true;
  if (usual.status != kErrSecSuccess || verdict.team != usual.team) return false;
  if (verdict.names.size() != usual.names.size()) return false;
  for (std::size_t i = 0; i < usual.names.size(); ++i) {
    if (verdict.names[i] && verdict.names[i] != usual.names[i]) return false;
  }
  return true;
}

/// An allocation by `operator new` fails. The arguments are those of WithFailedAllocation().
bool WithFailedNew(std::size_t number, Failing, const std::function<void()>& act) {
  fake::AllocationFailure::Arm(number);
  try {
    act();
  } catch (const std::bad_alloc&) {
  }
  return fake::AllocationFailure::Disarm();
}

/// One way to make allocations fail.
struct Kind {
  const char* name;
  Failing failing;
  decltype(&WithFailedNew) withFailure;
  std::size_t fewer;  ///< how many times fewer they are than libcrypto's, about
};

constexpr Kind kKinds[] = {
    {"libcrypto's allocation", Failing::kOne, WithFailedAllocation, 1},
    {"libcrypto's allocations from", Failing::kOneAndAllThatFollow, WithFailedAllocation, 1},
    {"operator new", Failing::kOne, WithFailedNew, 40},
};

/// Checks `path` again and again, each time with another failure. @return whether all was well.
bool Sweep(const char* anchors, const char* path, const Kind& kind, std::size_t step) {
  const Verdict usual = Check(anchors, path);
  bool isWell = true;
  bool hasFailed = true;
  for (std::size_t number = 1; hasFailed; number += std::max<std::size_t>(step / kind.fewer, 1)) {
    Verdict verdict;
    const auto leaks = [&] {
      const long living = LivingLibcryptoAllocations();
      verdict = {};
      hasFailed = kind.withFailure(number, kind.failing, [&] { verdict = Check(anchors, path); });
      return LivingLibcryptoAllocations() > living;
    };
    const auto complain = [&](const char* what) {
      std::fprintf(stderr, "%s, %s %zu: %s (%d)\n", path, kind.name, number, what, verdict.status);
      isWell = false;
    };
    // What libcrypto puts away for later it does not put away twice.
    if (leaks() && leaks()) complain("memory is left allocated");
    if (!IsHarmless(verdict, usual)) complain("a wrong verdict");
    if (!(Check(anchors, path) == usual)) complain("the next check fails");
  }
  return isWell;
}

int SweepFiles(int argc, char** argv) {
  const std::size_t step = argc < 4 ? 0 : std::strtoul(argv[1], nullptr, 10);
  if (step == 0) {
    std::fprintf(stderr, "usage: %s STEP ANCHORS PATH...\n", argv[0]);
    return 2;
  }
  bool isWell = true;
  for (int i = 3; i < argc; ++i) {
    for (const Kind& kind : kKinds) isWell = Sweep(argv[2], argv[i], kind, step) && isWell;
  }
  return isWell ? 0 : 1;
}

}  // namespace
}  // namespace platform::code_signing

// RE2 does not expect that an allocation throws, and leaks then.
extern "C" const char* __lsan_default_suppressions() { return "leak:re2::"; }
extern "C" const char* __lsan_default_options() { return "print_suppressions=0"; }

int main(int argc, char** argv) { return platform::code_signing::SweepFiles(argc, argv); }
