// The exported copy of the ray services.
#define KEL_EMIT_SERVICES
#include "FastKel.h"
