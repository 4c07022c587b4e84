/*
 * Loading records from JSON lines: the bundled sample phonebook and a
 * user's own file (webconfd --import). docs/webconfd.md describes the
 * format.
 */
#ifndef WEBCONFD_IMPORT_H
#define WEBCONFD_IMPORT_H

#include <istream>
#include <string>

#include "store.h"

namespace webconfd {

struct ImportReport {
    int contacts = 0;
    int events = 0;
    int folders = 0;
    int rejected = 0;     // lines logged and skipped
    bool failed = false;  // the database failed: nothing was kept
};

/* Adds (or replaces, by uid) the records of every line in one
 * transaction. `origin` names the input in the log records. */
ImportReport importRecords(Store& store, std::istream& in, const std::string& origin);

/* The sample phonebook a new database starts with. */
ImportReport importSample(Store& store);

}  // namespace webconfd

#endif
