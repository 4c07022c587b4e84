/*
 * The exported functions of libkivo, the remote search backend of the
 * phonebook library. The host loads the library and calls KIVO_ExpInit once;
 * other services search and change the phonebook through KIVO_Exp<Name>.
 *
 * Results are int codes: 0 success, 1 refused (interface switch off), -1 a
 * step of the module failed; a failing platform call's code is passed back
 * unchanged by KIVO_ExpInit.
 */
#ifndef KIVO_KIVO_H
#define KIVO_KIVO_H

#include <string>

#include <boost/shared_ptr.hpp>

#include "phonebook/manager.h"
#include "phonebook/query.h"
#include "phonebook/records.h"

#define KIVO_EXPORT __attribute__((visibility("default")))

/* Start-up (host thread): creates the task "kivo" and registers the console
 * "kivo". Returns 0 or the failing platform call's code. */
KIVO_EXPORT int KIVO_ExpInit();
/* Start event (kivo task): creates the manager and the backend, once. */
KIVO_EXPORT void KIVO_Init();
/* Kept for the module loader; does nothing. */
KIVO_EXPORT void KIVO_InitDb();

/* Task callback of "kivo": start event, query timers and daemon replies. */
KIVO_EXPORT void KIVO_Process(int event, unsigned int primitive, void* raw);
/* Arms the 5000-unit timer of a query: 0, or -1 when no timer message could
 * be made. Any thread. */
KIVO_EXPORT int KIVO_QueryTimer(unsigned int queryId);
/* Forward a timer expiry and a reply to the backend (kivo task). */
KIVO_EXPORT void KIVO_QueryTimeout(unsigned int queryId);
KIVO_EXPORT void KIVO_QueryResult(const std::string& text);

/* Search and change the phonebook; any thread, after the task has started.
 * 1 when the interface is switched off (a refused search's client gets
 * requestFinished() at once), else 0. The records are borrowed for the call. */
KIVO_EXPORT int KIVO_ExpQuery(boost::shared_ptr<ZEMBRA::Phonebook::AbstractQueryClient> client,
                              ZEMBRA::Phonebook::Manager::SearchMode mode);
KIVO_EXPORT int KIVO_ExpAddContact(ZEMBRA::Phonebook::Contact* pContact);
KIVO_EXPORT int KIVO_ExpDelContact(ZEMBRA::Phonebook::Contact* pContact);
KIVO_EXPORT int KIVO_ExpAddEvent(ZEMBRA::Phonebook::Event* pEvent);
KIVO_EXPORT int KIVO_ExpDelEvent(ZEMBRA::Phonebook::Event* pEvent);

/* The manager calls behind the exported functions: 0, or -1 (with an error
 * record) before the task has handled its start event. */
KIVO_EXPORT int KIVO_Query(boost::shared_ptr<ZEMBRA::Phonebook::AbstractQueryClient> client,
                           ZEMBRA::Phonebook::Manager::SearchMode mode);
KIVO_EXPORT int KIVO_AddContact(ZEMBRA::Phonebook::Contact* pContact);
KIVO_EXPORT int KIVO_DelContact(ZEMBRA::Phonebook::Contact* pContact);
KIVO_EXPORT int KIVO_AddEvent(ZEMBRA::Phonebook::Event* pEvent);
KIVO_EXPORT int KIVO_DelEvent(ZEMBRA::Phonebook::Event* pEvent);

/* Trace levels "exp" and "info", the interface switch and the status dump;
 * any thread. */
KIVO_EXPORT void KIVO_DebugSet(const char* pName, int iValue);
KIVO_EXPORT void KIVO_DebugDump();
KIVO_EXPORT int KIVO_SetIfcEnable(int iIfcEnable);
KIVO_EXPORT int KIVO_GetIfcEnable();
KIVO_EXPORT void KIVO_DumpDb();

/* The test console "kivo": one typed line; the handler's result or 0.
 * Debug terminal thread. */
KIVO_EXPORT int KIVO_Interpreter(const char* line);

/* Test searches of the console with its own client; the results are printed
 * as a table when the search ends. */
KIVO_EXPORT void KIVO_TFSearchByID(const std::string& id);
KIVO_EXPORT void KIVO_TFSearchByNumber(const std::string& strNumber);
KIVO_EXPORT void KIVO_TFSearchByName(const std::string& strName);
KIVO_EXPORT void KIVO_TFSearchByIndex(const std::string& strName);
/* Deletes the contact of row iIndex of the last result table. */
KIVO_EXPORT int KIVO_TFDelete(int iIndex);

#endif
