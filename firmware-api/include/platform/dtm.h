/*
 * The firmware's debug terminal and its line readers (declarations only, see
 * firmware-api/README.md). GetString knows no buffer size.
 */
#ifndef FIRMWARE_PLATFORM_DTM_H
#define FIRMWARE_PLATFORM_DTM_H

int DTM_ExpRegister(char const* name, char const* title, int (*interpreter)(char const* line));
void DTM_ExpReturn();

/* Both return the number of characters of src consumed. */
int GetString(char* src, char* dst);
int adn2i(char* src, int* value);

#endif
