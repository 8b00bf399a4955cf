#include "platform/linux/code_signing/libcrypto.h"

#include <openssl/err.h>
#include <openssl/objects.h>

#include <new>

namespace platform::code_signing {

void RequireMemory() {
  while (const unsigned long error = ERR_get_error()) {
    if (ERR_GET_REASON(error) == ERR_R_MALLOC_FAILURE) throw std::bad_alloc();
  }
}

ObjectPtr ObjectFromText(const char* identifier) {
  ObjectPtr object(OBJ_txt2obj(identifier, 1));
  if (!object) RequireMemory();
  return object;
}

}  // namespace platform::code_signing
