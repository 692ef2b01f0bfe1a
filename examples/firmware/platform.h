/* What main.c asks of the platform beside CiPlatform.h. */
#ifndef PLATFORM_H
#define PLATFORM_H

#include "CiPlatform.h"

void platformStart(void);
void platformInsertCam(int inserted);

#endif
