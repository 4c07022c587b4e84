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

static void KIVO_MsgSwitch(void* raw)
{
    {
        CManMessage cMsg;
        int iRetCode = cMsg.Assign(raw);
        if (iRetCode != 0) {
            LOG_ExpInfo(kFile, "KIVO_MsgSwitch", 100, "receive failed iRetCode %d", iRetCode);
        } else {
            const unsigned char* p = cMsg.data();
            unsigned int wPrimitiv = (static_cast<unsigned int>(p[0]) << 24) | (static_cast<unsigned int>(p[1]) << 16) |
                                     (static_cast<unsigned int>(p[2]) << 8) | static_cast<unsigned int>(p[3]);
            switch (wPrimitiv) {
            case KIVO_PRIM_TIMER: {
                unsigned int queryId = cMsg.getU32();
                /* Without its id a timer message could end an unrelated query 0. */
                if (cMsg.readFailed())
                    LOG_ExpError(kFile, "KIVO_MsgSwitch", 108, "timer message without query id");
                else
                    KIVO_QueryTimeout(queryId);
                break;
            }
            case KIVO_PRIM_RESULT: {
                std::string text = cMsg.getString();
                if (cMsg.readFailed())
                    LOG_ExpError(kFile, "KIVO_MsgSwitch", 116, "result message without text");
                else
                    KIVO_QueryResult(text);
                break;
            }
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
    case MAN_EVENT_CONTROL:
        if (primitive == MAN_PRIM_START)
            KIVO_Init();
        break;
    case MAN_EVENT_TASK:
        UI_ExpWritef("KIVO_EventSwitch wPrimitiv %08lx\n", static_cast<unsigned long>(primitive));
        break;
    case MAN_EVENT_MESSAGE:
        KIVO_MsgSwitch(raw);
        break;
    default:
        break;
    }
}
