#include "CiIf.h"

// Other modules of the firmware refer to these by name.
uint32_t caPmtQuery[MAX_BOARD_NUM][MAX_CAM_NUM];
uint8_t ciProFlag;
