/* A module that reaches for a stand-in's extra instead of the firmware's
 * CManIO::SendIpc: the plugin check must refuse it. */
#include "platform/standin.h"

int pluginSend(CManMessage& msg)
{
    return PLT_SendIpc(msg, "a@Local", "b@Local");
}
