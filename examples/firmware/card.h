/* The driver of a card that exists only in this program. */
#ifndef CARD_H
#define CARD_H

#include "CiIf.h"

enum { CARD_SLOT = 0, CA_SYSTEM = 0x0B00, VIDEO_PID = 0x100, AUDIO_PID = 0x101, ECM_PID = 0x600 };

/* Registers the card with the module: what a driver does when its card is loaded. */
void cardLoad(void);

/* Whether the hardware finds the card's PIDs descrambled. */
void cardSetDescrambled(int descrambled);

#endif
