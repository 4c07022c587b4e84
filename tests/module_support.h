/*
 * The one way the unit tests, the stress test and the fuzz harness drive
 * the module on the recording platform: reset to load-time state, start as
 * the host starts it, replies delivered and timers fired as the platform
 * would, and daemon replies written out member by member. The functions
 * return false where a test framework would fail, so both gtest and the
 * fuzz targets' check can use them.
 */
#ifndef TESTS_MODULE_SUPPORT_H
#define TESTS_MODULE_SUPPORT_H

#include <memory>
#include <string>

#include <json/json.h>

#include "kivoglob.h"
#include "kivo.h"
#include "pbbackend.h"
#include "phonebook/latin1.h"
#include "phonebook/standin.h"
#include "platform/recording.h"

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

/* Loads and starts the module on a reset recording platform: KIVO_ExpInit,
 * then the task's start event. */
inline bool startModule()
{
    resetModule();
    rec::reset();
    return KIVO_ExpInit() == 0 && rec::deliver(KIVO_TASK_INDEX, MAN_EVENT_CONTROL, MAN_PRIM_START, nullptr) &&
           pBackend.load() != nullptr;
}

/* A daemon reply delivered to the kivo task; true when the task took it and
 * released it exactly once. */
inline bool deliverReply(const std::string& text)
{
    void* raw = rec::RawBuilder(KIVO_PRIM_RESULT).str(text).build();
    return raw != nullptr && rec::deliver(KIVO_TASK_INDEX, MAN_EVENT_MESSAGE, KIVO_PRIM_RESULT, raw) &&
           rec::releaseCount(raw) == 1;
}

/* Fires the armed, not yet fired timer of a query id; false if none. */
inline bool fireTimerOf(unsigned int queryId)
{
    for (std::size_t i = 0, n = rec::timerCount(); i < n; i++) {
        const rec::TimerArm& t = rec::recorder().timers[i];
        if (!t.fired && t.msg.u32(0) == queryId)
            return rec::fireTimer(i);
    }
    return false;
}

/* A JSON text parsed; null when unparsable. */
inline Json::Value parseJson(const std::string& text)
{
    Json::Value root;
    std::string errors;
    std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
    if (!reader->parse(text.data(), text.data() + text.size(), &root, &errors))
        return Json::Value();
    return root;
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
