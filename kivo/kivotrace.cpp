/*
 * Trace levels, interface switch and status dump: the module-wide switches
 * that the console and other services set at run time. All output here is
 * written whatever the trace levels.
 */
#include <cstring>

#include "kivo.h"
#include "kivoglob.h"
#include "platform/log.h"

std::atomic<int> KIVODebugLevel[2] = {{0}, {0}};
const char* const KIVODebugLevelName[2] = {"exp", "info"};
std::atomic<int> iIfcEnable{1};

void KIVO_DebugSet(const char* pName, int iValue)
{
    UI_ExpWritef("KIVO_DebugSet pName %s  iValue %d\n", pName ? pName : "", iValue);
    if (pName == nullptr)
        return;

    int level;
    if (std::strcmp(pName, KIVODebugLevelName[KIVO_LEVEL_EXP]) == 0)
        level = KIVO_LEVEL_EXP;
    else if (std::strcmp(pName, KIVODebugLevelName[KIVO_LEVEL_INFO]) == 0)
        level = KIVO_LEVEL_INFO;
    else
        return;
    KIVODebugLevel[level].store(iValue == 1 ? 1 : 0, std::memory_order_relaxed);
}

void KIVO_DebugDump()
{
    UI_ExpWritef("KIVO_DebugDump\n");
    UI_ExpWritef("idx name       status\n");
    UI_ExpWritef("----------------------\n");
    for (int i = 0; i < 2; i++)
        UI_ExpWritef("%2d  %-10s %d\n", i, KIVODebugLevelName[i], KIVODebugLevel[i].load(std::memory_order_relaxed));
}

int KIVO_SetIfcEnable(int value)
{
    iIfcEnable.store(value, std::memory_order_relaxed);
    return 0;
}

int KIVO_GetIfcEnable()
{
    return iIfcEnable.load(std::memory_order_relaxed);
}

void KIVO_DumpDb()
{
    UI_ExpWritef("kivo\n");
    UI_ExpWritef("'--iIfcEnable        %d\n", KIVO_GetIfcEnable());
}
