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
 * matched key into the interpreter's own copy of the line, and advances it
 * past what it consumed. */
typedef int (*KIVOCmdHandler)(char** ppCursor);

struct KIVOCmd {
    int iId;                    /* -1 ends the table */
    char szKey[20];
    KIVOCmdHandler pfnHandler;
    char szDescription[64];
};

static int CmdHelp(char**);
static int CmdGet(char**);
static int CmdSet(char**);
static int CmdQuit(char**);
static int CmdTraceStatus(char**);
static int CmdTraceSet(char**);
static int CmdSearchByName(char**);
static int CmdSearchByID(char**);
static int CmdSearchByNumber(char**);
static int CmdSearchByIndex(char**);
static int CmdAddContact(char**);
static int CmdDelContact(char**);
static int CmdDumpDB(char**);
static int CmdSetInterface(char**);
static int CmdEnd(char**);

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
            /* The platform's readers take char*: the handlers work on a copy
             * of the line, which the key matched, so it holds n characters. */
            std::string copy(line);
            char* cursor = &copy[n];
            return cmd->pfnHandler(&cursor);
        }
    }
    UI_ExpWritef("unknown command\n");
    return 0;
}

/* ---- argument reading --------------------------------------------------- */

static void skipBlanks(char** ppCursor)
{
    while (**ppCursor == ' ')
        (*ppCursor)++;
}

/* Reads the word at the cursor into `buffer`, cut to N - 1 characters.
 * GetString takes no size, so it gets a copy holding no more than fits; the
 * cursor then moves past the whole word, so the rest of a cut word is
 * skipped. A word ends at a blank, a tab, a line end or the line's end. */
template <std::size_t N>
static void readWord(char** ppCursor, char (&buffer)[N])
{
    skipBlanks(ppCursor);
    const std::size_t length = std::strcspn(*ppCursor, " \t\r\n");
    char word[N];
    const std::size_t kept = length < N - 1 ? length : N - 1;
    std::memcpy(word, *ppCursor, kept);
    word[kept] = '\0';
    buffer[0] = '\0';
    GetString(word, buffer);
    *ppCursor += length;
}

/* Reads the number at the cursor; 0 when none follows. */
static int readNumber(char** ppCursor)
{
    int value = 0;
    skipBlanks(ppCursor);
    const int consumed = adn2i(*ppCursor, &value);
    /* Never past the end of the line, whatever adn2i reports. */
    const std::size_t rest = std::strlen(*ppCursor);
    if (consumed > 0)
        *ppCursor += static_cast<std::size_t>(consumed) < rest ? static_cast<std::size_t>(consumed) : rest;
    return value;
}

/* ---- handlers ----------------------------------------------------------- */

static int CmdHelp(char**)
{
    UI_ExpWritef("\n");
    UI_ExpWritef("= KIVO ===================================\n");
    for (const KIVOCmd* cmd = KIVOCmdTbl; cmd->iId != -1; cmd++)
        UI_ExpWritef("%-20s %s\n", cmd->szKey, cmd->szDescription);
    UI_ExpWritef("==========================================\n");
    return 0;
}

static int CmdGet(char**)
{
    UI_ExpWritef("%s\n", "CmdGet");
    return 0;
}

static int CmdSet(char**)
{
    UI_ExpWritef("%s\n", "CmdSet");
    return 0;
}

static int CmdQuit(char**)
{
    DTM_ExpReturn();
    return 0;
}

static int CmdTraceStatus(char**)
{
    UI_ExpWritef("%s\n", "CmdTraceStatus");
    KIVO_DebugDump();
    return 1;
}

static int CmdTraceSet(char** ppCursor)
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
static int searchCommand(const char* name, void (*search)(const std::string&), char** ppCursor)
{
    char szWord[32];
    UI_ExpWritef("%s\n", name);
    readWord(ppCursor, szWord);
    search(std::string(szWord, std::strlen(szWord)));
    return 0;
}

static int CmdSearchByName(char** ppCursor)
{
    return searchCommand("CmdSearchByName", KIVO_TFSearchByName, ppCursor);
}

static int CmdSearchByID(char** ppCursor)
{
    return searchCommand("CmdSearchByID", KIVO_TFSearchByID, ppCursor);
}

static int CmdSearchByNumber(char** ppCursor)
{
    return searchCommand("CmdSearchByNumber", KIVO_TFSearchByNumber, ppCursor);
}

static int CmdSearchByIndex(char** ppCursor)
{
    return searchCommand("CmdSearchByIndex", KIVO_TFSearchByIndex, ppCursor);
}

static int CmdDelContact(char** ppCursor)
{
    UI_ExpWritef("%s\n", "CmdDelContact");
    KIVO_TFDelete(readNumber(ppCursor));
    return 0;
}

static int CmdDumpDB(char**)
{
    UI_ExpWritef("%s\n", "CmdDumpDB");
    KIVO_DumpDb();
    return 0;
}

static int CmdSetInterface(char** ppCursor)
{
    UI_ExpWritef("%s\n", "CmdSetInterface");
    KIVO_SetIfcEnable(readNumber(ppCursor));
    UI_ExpWritef("%s  KIVO_GetIfcEnable() %d\n", "CmdSetInterface", KIVO_GetIfcEnable());
    return 0;
}

static int CmdEnd(char**)
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

static int CmdAddContact(char** ppCursor)
{
    UI_ExpWritef("%s\n", "CmdAddContact");
    int selector = readNumber(ppCursor);
    const Sample& s = samples[selector >= 1 && selector <= 3 ? selector : 0];

    std::unique_ptr<Contact> contact(
        new Contact("source", "", "", s.firstName, s.lastName, s.company, boost::optional<std::string>()));
    if (selector == 1) {
        ContactNumber number;   /* text1, text3 and text4 stay empty */
        number.number = "011122233344";
        number.value1 = 1;
        number.value2 = 2;
        number.value3 = -1;
        contact->numbers.push_back(number);
    }
    KIVO_ExpAddContact(contact.get());
    return 0;
}
