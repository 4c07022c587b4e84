/*
 * The kivo task's callback: the start event, and the message switch that
 * turns query timer expiries and daemon replies into calls of the backend.
 * Runs on the kivo task, one event at a time.
 */
#include <string>

#include "kivo.h"
#include "kivoglob.h"
#include "platform/log.h"
#include "platform/manmsg.h"
#include "platform/mantask.h"

static const char kFile[] = "kivoprcss";

/* The primitive: the first four bytes of the received message, most
 * significant byte first. */
static unsigned int primitiveOf(const void* raw)
{
    const unsigned char* p = static_cast<const unsigned char*>(raw);
    return (static_cast<unsigned int>(p[0]) << 24) | (static_cast<unsigned int>(p[1]) << 16) |
           (static_cast<unsigned int>(p[2]) << 8) | static_cast<unsigned int>(p[3]);
}

static void KIVO_MsgSwitch(void* raw)
{
    {
        CManMessage cMsg;
        int iRetCode = cMsg.Assign(raw);
        if (iRetCode != 0) {
            KIVO_LOG_INFO(kFile, "KIVO_MsgSwitch", 100, "receive failed iRetCode %d", iRetCode);
        } else {
            /* Assign accepted the message, so it holds its primitive. */
            unsigned int wPrimitiv = primitiveOf(raw);
            switch (wPrimitiv) {
            case KIVO_PRIM_TIMER:
                KIVO_QueryTimeout(cMsg.getU32());
                break;
            case KIVO_PRIM_RESULT:
                KIVO_QueryResult(cMsg.getString());
                break;
            default:
                UI_ExpWritef("%s *** unknown Primitive 0x%08lx\n", "KIVO_MsgSwitch",
                             static_cast<unsigned long>(wPrimitiv));
                cMsg.Dump();
                break;
            }
        }
    }
    MAN_ExpPFree(raw);
}

void KIVO_Process(int event, unsigned int primitive, void* raw)
{
    switch (event) {
    case KIVO_EVENT_CONTROL:
        if (primitive == KIVO_PRIM_START)
            KIVO_Init();
        break;
    case KIVO_EVENT_TASK:
        UI_ExpWritef("KIVO_EventSwitch wPrimitiv %08lx\n", static_cast<unsigned long>(primitive));
        break;
    case KIVO_EVENT_MESSAGE:
        KIVO_MsgSwitch(raw);
        break;
    default:
        break;
    }
}
