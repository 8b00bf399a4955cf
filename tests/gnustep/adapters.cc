#include "tests/contract/support.h"

const bool contract::kGnustep = true;
