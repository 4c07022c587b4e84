/*
 * Stand-in extras: ours, not part of the firmware.
 *
 * The firmware's own headers (log.h, manmsg.h, mantask.h, dtm.h) declare
 * only what the firmware provides. What our platform adds for the host, the
 * daemon, the tests and its own code is here: result codes, limits, wire
 * tags, event and primitive names, callback typedefs, and log calls that take
 * constant names. The module uses none of it (scripts/ci-declared.sh checks).
 */
#ifndef PLATFORM_STANDIN_H
#define PLATFORM_STANDIN_H

#include <cstddef>

#include "platform/attrs.h"

/* Result codes of our platform's calls (0 is success). */
enum {
    MAN_OK = 0,
    MAN_E_STATE = 1,     /* call not allowed in the message's state */
    MAN_E_SIZE = 2,      /* size out of range */
    MAN_E_FORMAT = 3,    /* raw message malformed or truncated */
    MAN_E_NOTASK = 4,    /* no such task or address */
    MAN_E_IO = 5,        /* the operating system refused */
    MAN_E_NOMEM = 6,
};

/* Largest message (primitive and fields) the platform carries; Create
 * refuses a larger size with MAN_E_SIZE, addU32 and addString a field that
 * would not fit. */
constexpr std::size_t MAN_MAX_MSG = 65536;

/* Field tags on the wire. */
constexpr unsigned char MAN_TAG_U32 = 0x01;
constexpr unsigned char MAN_TAG_STRING = 0x02;

/* Slots of TaskIdTbl. */
constexpr int MAN_MAX_TASKS = 128;

/* Event kinds of a task callback, and the start event's primitive. */
enum { MAN_EVENT_MESSAGE = 0, MAN_EVENT_CONTROL = 1, MAN_EVENT_TASK = 2 };
enum { MAN_PRIM_START = 1 };

typedef void (*MAN_TaskCallback)(int event, unsigned int primitive, void* raw);
typedef int (*DTM_Interpreter)(const char* line);

/* Log calls for our programs, which name files and functions by constant
 * strings; the same records as the firmware's char* forms. */
PLT_API void LOG_ExpInfo(const char* file, const char* function, int line, const char* format, ...)
    PLT_PRINTF(4, 5);
PLT_API void LOG_ExpError(const char* file, const char* function, int line, const char* format, ...)
    PLT_PRINTF(4, 5);

#endif
