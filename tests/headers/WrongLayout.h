/* Asserts what is false of a layout. */
#include "CiIf.h"

CI_STATIC_ASSERT(sizeof(CiDescCa) == 5, "CiDescCa");
