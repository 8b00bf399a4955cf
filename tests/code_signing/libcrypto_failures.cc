// kx_libcrypto_failures STEP ANCHORS PATH...: checks the signature of each path repeatedly, with
// the roots in the PEM file ANCHORS. Each time a different allocation fails: first one of
// libcrypto's, then one of libcrypto's and all that follow it, and finally one by `operator new`.
// Tries one in STEP of libcrypto's allocations, and a larger share of the others, which are fewer.
// Invalid code must not become valid, no signer may get another name, nothing may leak, and the
// next check must repeat the first result. Exits with 0 if all of this holds.

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

/// The status of a check and, for valid code, the names of the signer.
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

/// Whether a check in which an allocation failed may return `verdict`. A name may be missing, since
/// nothing equals a missing name.
bool IsHarmless(const Verdict& verdict, const Verdict& usual) {
  if (verdict.status != kErrSecSuccess) return true;
  if (usual.status != kErrSecSuccess || verdict.team != usual.team) return false;
  if (verdict.names.size() != usual.names.size()) return false;
  for (std::size_t i = 0; i < usual.names.size(); ++i) {
    if (verdict.names[i] && verdict.names[i] != usual.names[i]) return false;
  }
  return true;
}

/// Like WithFailedAllocation(), but fails an allocation by `operator new`.
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
  std::size_t fewer;  ///< divides STEP: there are fewer of them than of libcrypto's
};

constexpr Kind kKinds[] = {
    {"libcrypto's allocation", Failing::kOne, WithFailedAllocation, 1},
    {"libcrypto's allocations from", Failing::kOneAndAllThatFollow, WithFailedAllocation, 1},
    {"operator new", Failing::kOne, WithFailedNew, 40},
};

/// Checks `path` repeatedly, each time with a different failure. @return whether every check was
/// correct.
bool Sweep(const char* anchors, const char* path, const Kind& kind, std::size_t step) {
  const Verdict usual = Check(anchors, path);
  bool isWell = true;
  bool hasFailed = true;
  for (std::size_t number = 1; hasFailed; number += std::max<std::size_t>(step / kind.fewer, 1)) {
    Verdict verdict;
    const auto leaks = [&] {
      const long living = LiveLibcryptoAllocations();
      verdict = {};
      hasFailed = kind.withFailure(number, kind.failing, [&] { verdict = Check(anchors, path); });
      return LiveLibcryptoAllocations() > living;
    };
    const auto complain = [&](const char* what) {
      std::fprintf(stderr, "%s, %s %zu: %s (%d)\n", path, kind.name, number, what, verdict.status);
      isWell = false;
    };
    // libcrypto may allocate a cache, but only once.
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

// RE2 leaks when an allocation throws.
extern "C" const char* __lsan_default_suppressions() { return "leak:re2::"; }
extern "C" const char* __lsan_default_options() { return "print_suppressions=0"; }

int main(int argc, char** argv) { return platform::code_signing::SweepFiles(argc, argv); }
