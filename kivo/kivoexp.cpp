/*
 * The module's entry points for the host and for other services: start-up,
 * and the exported phonebook functions, which the interface switch can
 * refuse. They run on their callers' threads.
 */
#include "kivo.h"
#include "kivoglob.h"
#include "platform/dtm.h"
#include "platform/log.h"
#include "platform/mantask.h"

using ZEMBRA::Phonebook::AbstractQueryClient;
using ZEMBRA::Phonebook::Contact;
using ZEMBRA::Phonebook::Event;
using ZEMBRA::Phonebook::Manager;

static const char kFile[] = "kivoexp";

int KIVO_ExpInit()
{
    if (KIVO_TraceExp())
        UI_ExpWritef("%s\n", "KIVO_ExpInit");

    int iRetCode = MAN_ExpTCreate("kivo", &TaskIdTbl[KIVO_TASK_INDEX], KIVO_TASK_ARG, KIVO_Process);
    if (iRetCode != 0) {
        KIVO_LOG_INFO(kFile, "KIVO_ExpInit", 69, "unable to create process iRetCode %d", iRetCode);
        return iRetCode;
    }

    iRetCode = DTM_ExpRegister("kivo", "kivo", KIVO_Interpreter);
    if (iRetCode != 0) {
        KIVO_LOG_INFO(kFile, "KIVO_ExpInit", 76, "unable to register testmenue %d", iRetCode);
        return iRetCode;
    }
    return 0;
}

/* The switch check shared by the exported functions: true when the call may
 * go on; otherwise the refusal is logged under the caller's name and line. */
static bool ifcEnabled(const char* function, int line)
{
    if (KIVO_GetIfcEnable() != 0)
        return true;
    KIVO_LOG_INFO(kFile, function, line, "kivo-interface disabled");
    return false;
}

int KIVO_ExpQuery(boost::shared_ptr<AbstractQueryClient> client, Manager::SearchMode mode)
{
    if (KIVO_TraceExp())
        UI_ExpWritef("%s  searchMode %d\n", "KIVO_ExpQuery", static_cast<int>(mode));
    if (!client) {
        /* Nobody could be told about the search's end: refuse it. */
        KIVO_LOG_ERROR(kFile, "KIVO_ExpQuery", 91, "no query client");
        return -1;
    }
    if (!ifcEnabled("KIVO_ExpQuery", 94)) {
        client->requestFinished();
        return 1;
    }
    return KIVO_Query(client, mode);
}

int KIVO_ExpAddContact(Contact* pContact)
{
    if (KIVO_TraceExp())
        UI_ExpWritef("%s  pContact %p\n", "KIVO_ExpAddContact", static_cast<void*>(pContact));
    if (!ifcEnabled("KIVO_ExpAddContact", 111))
        return 1;
    return KIVO_AddContact(pContact);
}

int KIVO_ExpDelContact(Contact* pContact)
{
    if (KIVO_TraceExp())
        UI_ExpWritef("%s  pContact %p\n", "KIVO_ExpDelContact", static_cast<void*>(pContact));
    if (!ifcEnabled("KIVO_ExpDelContact", 127))
        return 1;
    return KIVO_DelContact(pContact);
}

int KIVO_ExpAddEvent(Event* pEvent)
{
    if (KIVO_TraceExp())
        UI_ExpWritef("%s  pEvent %p\n", "KIVO_ExpAddEvent", static_cast<void*>(pEvent));
    if (!ifcEnabled("KIVO_ExpAddEvent", 143))
        return 1;
    return KIVO_AddEvent(pEvent);
}

int KIVO_ExpDelEvent(Event* pEvent)
{
    if (KIVO_TraceExp())
        UI_ExpWritef("%s  pEvent %p\n", "KIVO_ExpDelEvent", static_cast<void*>(pEvent));
    if (!ifcEnabled("KIVO_ExpDelEvent", 159))
        return 1;
    return KIVO_DelEvent(pEvent);
}
