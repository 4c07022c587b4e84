/*
 * What the module's fuzz targets share: the module started on the recording
 * platform as the host starts it, a query client that checks what the
 * module does to it, and the check that stops the run on a broken
 * invariant. Every input starts from a freshly loaded module and tears it
 * down again, so memory taken during an input is given back by its end and
 * LeakSanitizer can blame the input that leaked.
 */
#ifndef FUZZ_HARNESS_H
#define FUZZ_HARNESS_H

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include <json/json.h>

#include "check.h"
#include "kivo.h"
#include "module_support.h"

/* Counts what the module does to it. A delivery or a second end after the
 * first end is a module fault and stops the run at once. */
class FuzzClient : public ZEMBRA::Phonebook::AbstractQueryClient {
public:
    FuzzClient(ZEMBRA::Phonebook::QueryMode mode, const Json::Value& value, bool bestMatch);
    ~FuzzClient() override;

    void requestFinished() override;
    void addContact(const ZEMBRA::Phonebook::Contact& c, CacheInfo info) override;
    void addContact(const ZEMBRA::Phonebook::Contact& c, CacheInfo info, const std::string& pattern,
                    int count) override;
    void addEvent(const ZEMBRA::Phonebook::Event& e, CacheInfo info) override;
    void addFolder(const ZEMBRA::Phonebook::Folder& f, CacheInfo info) override;

    int finishedCalls = 0;
    int delivered = 0;
    int otherRecords = 0;   /* events and folders */
    /* Called once from the first requestFinished: a client may start new
     * work from inside its callback. */
    void (*onFinished)() = nullptr;

    static std::atomic<int> alive;

private:
    void delivery();
};

/* Loads and starts the module (KIVO_ExpInit, then the task's start event)
 * on a reset recording platform. */
void moduleStart();
/* Releases the module's objects and everything the platform recorded, and
 * checks that no received message was left unreleased. */
void moduleStop();

/* A daemon reply delivered to the kivo task; stops the run when the task
 * does not take it or does not release it exactly once. */
void deliverReplyChecked(const std::string& text);

/* Splits data at `separator`, at most `maxParts` parts (the last takes the
 * rest). */
std::vector<std::string> splitInput(const uint8_t* data, std::size_t size, char separator,
                                    std::size_t maxParts);

#endif
