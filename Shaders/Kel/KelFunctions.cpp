// The exported copy of the ray services, and of those for packets.
#define KEL_EMIT_SERVICES
#define OXBEAM_EMIT_PACKET_SERVICES
#include "FastKel.h"
