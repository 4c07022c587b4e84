/*
 * A daemon reply as text, written out member by member, for the tests, the
 * stress test and the fuzz harness.
 */
#ifndef TESTS_REPLY_TEXT_H
#define TESTS_REPLY_TEXT_H

#include <string>

#include <json/json.h>

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
