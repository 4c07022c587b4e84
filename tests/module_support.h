/*
 * What the unit tests, the stress test and the fuzz harness share to drive
 * the module: its reset to load-time state, and daemon replies written out
 * member by member.
 */
#ifndef TESTS_MODULE_SUPPORT_H
#define TESTS_MODULE_SUPPORT_H

#include <string>

#include <json/json.h>

#include "kivoglob.h"
#include "pbbackend.h"
#include "phonebook/latin1.h"

/* Releases the module's objects and restores its load-time state. */
inline void resetModule()
{
    delete pBackend.exchange(nullptr);
    delete pManager.exchange(nullptr);
    uiQueryId = 0;
    iIfcEnable = 1;
    KIVODebugLevel[0] = 0;
    KIVODebugLevel[1] = 0;
}

/* JSON of a contact item as the daemon sends it (texts given in
 * ISO-8859-1, sent as UTF-8). */
inline Json::Value contactItem(const std::string& lastName, const std::string& firstNumberText3 = "",
                               const std::string& number = "0711")
{
    Json::Value c;
    c["uid"] = ZEMBRA::Phonebook::latin1ToUtf8("uid-" + lastName);
    c["firstName"] = "F";
    c["lastName"] = ZEMBRA::Phonebook::latin1ToUtf8(lastName);
    Json::Value n;
    n["number"] = number;
    n["text3"] = firstNumberText3;
    c["numbers"].append(n);
    return c;
}

inline std::string replyText(unsigned int queryId, int type, int total,
                             const Json::Value& items = Json::Value(Json::arrayValue))
{
    Json::Value r;
    r["queryId"] = queryId;
    r["type"] = type;
    r["message"] = "";
    r["total"] = total;
    r["items"] = items;
    return Json::FastWriter().write(r);
}

#endif
