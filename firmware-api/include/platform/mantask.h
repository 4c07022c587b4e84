/*
 * The firmware's task framework (declarations only, see
 * firmware-api/README.md).
 */
#ifndef FIRMWARE_PLATFORM_MANTASK_H
#define FIRMWARE_PLATFORM_MANTASK_H

extern int TaskIdTbl[];

int MAN_ExpTCreate(char const* name, int* idSlot, int arg, void (*callback)(int, unsigned int, void*));
void MAN_ExpPFree(void* raw);

#endif
