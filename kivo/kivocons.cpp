/*
 * The test console "kivo": a fixed command table, the interpreter that
 * matches typed lines against it, the handlers, and the sample contacts of
 * the "add" command. Runs on the debug terminal's thread.
 */
#include <strings.h>

#include <cstring>
#include <memory>
#include <string>

#include "kivo.h"
#include "platform/dtm.h"
#include "platform/log.h"

using ZEMBRA::Phonebook::Contact;
using ZEMBRA::Phonebook::ContactNumber;

/* A handler reads its arguments at the cursor, which points just behind the
 * matched key, and advances it past what it consumed. */
typedef int (*KIVOCmdHandler)(const char** ppCursor);

struct KIVOCmd {
    int iId;                    /* -1 ends the table */
    char szKey[20];
    KIVOCmdHandler pfnHandler;
    char szDescription[64];
};

static int CmdHelp(const char**);
static int CmdGet(const char**);
static int CmdSet(const char**);
static int CmdQuit(const char**);
static int CmdTraceStatus(const char**);
static int CmdTraceSet(const char**);
static int CmdSearchByName(const char**);
static int CmdSearchByID(const char**);
static int CmdSearchByNumber(const char**);
static int CmdSearchByIndex(const char**);
static int CmdAddContact(const char**);
static int CmdDelContact(const char**);
static int CmdDumpDB(const char**);
static int CmdSetInterface(const char**);
static int CmdEnd(const char**);

static const KIVOCmd KIVOCmdTbl[15] = {
    {0, "help", CmdHelp, "help"},
    {1, "get", CmdGet, "get something"},
    {2, "set", CmdSet, "set something"},
    {3, "q", CmdQuit, "quit"},
    {4, "ti", CmdTraceStatus, "trace info"},
    {5, "ts", CmdTraceSet, "trace set"},
    {6, "name", CmdSearchByName, "search by Name"},
    {7, "id", CmdSearchByID, "search by ID"},
    {8, "number", CmdSearchByNumber, "search by Number"},
    {9, "index", CmdSearchByIndex, "search by index"},
    {10, "add", CmdAddContact, "add contact"},
    {11, "del", CmdDelContact, "delete contact"},
    {12, "dd", CmdDumpDB, "dump database"},
    {13, "si", CmdSetInterface, "set interface [0|1]"},
    {-1, "--", CmdEnd, ""},
};

int KIVO_Interpreter(const char* line)
{
    if (line == nullptr || line[0] == '\0')
        return CmdHelp(nullptr);

    for (const KIVOCmd* cmd = KIVOCmdTbl; cmd->iId != -1; cmd++) {
        std::size_t n = std::strlen(cmd->szKey);
        if (strncasecmp(cmd->szKey, line, n) == 0) {
            /* The key matched n characters, so the line holds at least n. */
            const char* cursor = line + n;
            return cmd->pfnHandler(&cursor);
        }
    }
    UI_ExpWritef("unknown command\n");
    return 0;
}

/* ---- argument reading --------------------------------------------------- */

static void skipBlanks(const char** ppCursor)
{
    while (**ppCursor == ' ')
        (*ppCursor)++;
}

template <std::size_t N>
static void readWord(const char** ppCursor, char (&buffer)[N])
{
    skipBlanks(ppCursor);
    *ppCursor += GetString(*ppCursor, buffer);
}

static int readNumber(const char** ppCursor)
{
    int value = 0;
    skipBlanks(ppCursor);
    *ppCursor += adn2i(*ppCursor, &value);
    return value;
}

/* ---- handlers ----------------------------------------------------------- */

static int CmdHelp(const char**)
{
    UI_ExpWritef("\n");
    UI_ExpWritef("= KIVO ===================================\n");
    for (const KIVOCmd* cmd = KIVOCmdTbl; cmd->iId != -1; cmd++)
        UI_ExpWritef("%-20s %s\n", cmd->szKey, cmd->szDescription);
    UI_ExpWritef("==========================================\n");
    return 0;
}

static int CmdGet(const char**)
{
    UI_ExpWritef("%s\n", "CmdGet");
    return 0;
}

static int CmdSet(const char**)
{
    UI_ExpWritef("%s\n", "CmdSet");
    return 0;
}

static int CmdQuit(const char**)
{
    DTM_ExpReturn();
    return 0;
}

static int CmdTraceStatus(const char**)
{
    UI_ExpWritef("%s\n", "CmdTraceStatus");
    KIVO_DebugDump();
    return 1;
}

static int CmdTraceSet(const char** ppCursor)
{
    char szName[12];
    UI_ExpWritef("%s\n", "CmdTraceSet");
    readWord(ppCursor, szName);
    int iValue = readNumber(ppCursor);
    KIVO_DebugSet(szName, iValue);
    KIVO_DebugDump();
    return 1;
}

/* The four search commands differ only in their name and search. */
static int searchCommand(const char* name, void (*search)(const std::string&), const char** ppCursor)
{
    char szWord[32];
    UI_ExpWritef("%s\n", name);
    readWord(ppCursor, szWord);
    search(std::string(szWord, std::strlen(szWord)));
    return 0;
}

static int CmdSearchByName(const char** ppCursor)
{
    return searchCommand("CmdSearchByName", KIVO_TFSearchByName, ppCursor);
}

static int CmdSearchByID(const char** ppCursor)
{
    return searchCommand("CmdSearchByID", KIVO_TFSearchByID, ppCursor);
}

static int CmdSearchByNumber(const char** ppCursor)
{
    return searchCommand("CmdSearchByNumber", KIVO_TFSearchByNumber, ppCursor);
}

static int CmdSearchByIndex(const char** ppCursor)
{
    return searchCommand("CmdSearchByIndex", KIVO_TFSearchByIndex, ppCursor);
}

static int CmdDelContact(const char** ppCursor)
{
    UI_ExpWritef("%s\n", "CmdDelContact");
    KIVO_TFDelete(readNumber(ppCursor));
    return 0;
}

static int CmdDumpDB(const char**)
{
    UI_ExpWritef("%s\n", "CmdDumpDB");
    KIVO_DumpDb();
    return 0;
}

static int CmdSetInterface(const char** ppCursor)
{
    UI_ExpWritef("%s\n", "CmdSetInterface");
    KIVO_SetIfcEnable(readNumber(ppCursor));
    UI_ExpWritef("%s  KIVO_GetIfcEnable() %d\n", "CmdSetInterface", KIVO_GetIfcEnable());
    return 0;
}

static int CmdEnd(const char**)
{
    return 0;
}

/* ---- sample contacts ---------------------------------------------------- */

/* Texts are ISO-8859-1 bytes: \xF6 is ö, \xFC ü, \xD6 Ö. */
struct Sample {
    const char* firstName;
    const char* lastName;
    const char* company;
};

static const Sample samples[] = {
    {"Falmer", "\xD6hlenbach", "Olva"},          /* any other selector */
    {"Tilmo", "Wefer", "H\xF6strand"},
    {"Jorn", "Wellbrook", "Mittelwinkel GmbH"},
    {"Elka", "St\xF6" "be", "L\xFCnbeck"},
};

static int CmdAddContact(const char** ppCursor)
{
    UI_ExpWritef("%s\n", "CmdAddContact");
    int selector = readNumber(ppCursor);
    const Sample& s = samples[selector >= 1 && selector <= 3 ? selector : 0];

    std::unique_ptr<Contact> contact(
        new Contact("source", "", "", s.firstName, s.lastName, s.company, boost::optional<std::string>()));
    if (selector == 1) {
        ContactNumber number("", "011122233344", "", "", 1, 2, -1);
        contact->numbers.push_back(number);
    }
    KIVO_ExpAddContact(contact.get());
    return 0;
}
