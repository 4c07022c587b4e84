/*
 * The host's console "svc": it plays one of the firmware's other services.
 * It searches through the module's exported KIVO_ExpQuery with a query
 * client of its own, in every query mode and with every client setting, and
 * adds and deletes contacts and events through the exported change
 * functions. Each delivery is shown as it arrives, and each search's end;
 * docs/service-console.md is its manual.
 */
#ifndef HOST_SERVICE_CONSOLE_H
#define HOST_SERVICE_CONSOLE_H

#include <string>

#include <boost/shared_ptr.hpp>

#include "phonebook/manager.h"
#include "phonebook/query.h"
#include "phonebook/records.h"

namespace host {

/* The module's exported phonebook functions. */
struct ModuleExports {
    int (*query)(boost::shared_ptr<ZEMBRA::Phonebook::AbstractQueryClient>, ZEMBRA::Phonebook::Manager::SearchMode);
    int (*addContact)(ZEMBRA::Phonebook::Contact*);
    int (*delContact)(ZEMBRA::Phonebook::Contact*);
    int (*addEvent)(ZEMBRA::Phonebook::Event*);
    int (*delEvent)(ZEMBRA::Phonebook::Event*);
};

/* Looks the functions up in the loaded module `handle`; false with the
 * first missing name in *missing. */
bool lookUpExports(void* handle, ModuleExports* out, std::string* missing);

/* Registers the console "svc" (result of DTM_ExpRegister). `timerMs` is the
 * length of the module's query timer, so that an end by it can be named;
 * `showTimes` adds each search's duration to its end line (at a terminal:
 * through a pipe the output stays the same from run to run). */
int registerServiceConsole(const ModuleExports& exports, long timerMs, bool showTimes);

}  // namespace host

#endif
