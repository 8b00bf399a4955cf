#include "platform/linux/code_signing/status.h"

#include <cerrno>

namespace platform::code_signing {
namespace {

struct ErrnoPair {
  int host;
  int darwin;
};

// The errors whose numbers differ on macOS (its <sys/errno.h>).
constexpr ErrnoPair kDarwinNumbers[] = {
    {EAGAIN, 35},    {ENOTSUP, 45}, {ELOOP, 62},   {ENAMETOOLONG, 63}, {ESTALE, 70},
    {EOVERFLOW, 84}, {ENODATA, 93}, {EDEADLK, 11}, {ETIMEDOUT, 60},    {EDQUOT, 69},
    {EREMOTE, 71},   {ENOSYS, 78},  {EPROTO, 100}, {EBADMSG, 94},      {ENOLCK, 77},
    {ENOTEMPTY, 66}, {EUSERS, 68},  {EILSEQ, 92},  {ECANCELED, 89},
};

}  // namespace

OsStatus StatusFromErrno(int error) {
  constexpr OsStatus kErrnoBase = 100000;
  if (error == ENOEXEC) return kErrSecCSBadObjectFormat;
  for (const ErrnoPair& pair : kDarwinNumbers) {
    if (pair.host == error) return kErrnoBase + pair.darwin;
  }
  return kErrnoBase + error;
}

}  // namespace platform::code_signing
