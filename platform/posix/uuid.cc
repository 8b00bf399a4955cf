#include "platform/uuid.h"

#include <uuid/uuid.h>

namespace platform {

void RandomUuidText(char (&text)[kUuidTextSize]) {
  uuid_t uuid;
  uuid_generate_random(uuid);
  uuid_unparse(uuid, text);
}

}  // namespace platform
