/*
 * The debug terminal of the working platform: the consoles modules
 * register, and the line a program reads from its user, which either
 * enters a console by its name or goes to the console entered.
 */
#include <cstring>
#include <mutex>
#include <string>
#include <vector>

#include "platform/dtm.h"
#include "working.h"

namespace {

struct Console {
    std::string name;
    std::string title;
    DTM_Interpreter interpreter;
};

std::mutex g_termMu;
std::vector<Console> g_consoles;
std::string g_current;

}  // namespace

/* Shutdown forgets the consoles with the tasks. */
void plt::work::forgetConsoles()
{
    std::lock_guard<std::mutex> lock(g_termMu);
    g_consoles.clear();
    g_current.clear();
}

int DTM_ExpRegister(const char* name, const char* title, DTM_Interpreter interpreter)
{
    if (int fault = plt::faultFor(plt::Fault::Register))
        return fault;
    if (name == nullptr || name[0] == '\0' || std::strpbrk(name, " \t\r\n") != nullptr ||
        interpreter == nullptr)
        return MAN_E_FORMAT;
    std::lock_guard<std::mutex> lock(g_termMu);
    for (const Console& c : g_consoles)
        if (c.name == name)
            return MAN_E_STATE;
    g_consoles.push_back(Console{name, title ? title : "", interpreter});
    return MAN_OK;
}

void DTM_ExpReturn()
{
    std::lock_guard<std::mutex> lock(g_termMu);
    g_current.clear();
}

int PLT_TerminalLine(const char* line)
{
    if (line == nullptr)
        return 0;
    DTM_Interpreter interpreter = nullptr;
    std::string word;
    {
        std::lock_guard<std::mutex> lock(g_termMu);
        if (!g_current.empty()) {
            for (const Console& c : g_consoles)
                if (c.name == g_current)
                    interpreter = c.interpreter;
        } else {
            word = line;
            std::size_t b = word.find_first_not_of(" \t\r\n");
            std::size_t e = word.find_last_not_of(" \t\r\n");
            word = b == std::string::npos ? std::string() : word.substr(b, e - b + 1);
            if (word.empty())
                return 0;
            for (const Console& c : g_consoles)
                if (c.name == word) {
                    g_current = word;
                    return 0;
                }
        }
    }
    /* Called without the lock: the interpreter may call DTM_ExpReturn. */
    if (interpreter != nullptr)
        return interpreter(line);
    if (!word.empty())
        UI_ExpWritef("unknown console: %s\n", word.c_str());
    return 0;
}

std::string PLT_CurrentConsole()
{
    std::lock_guard<std::mutex> lock(g_termMu);
    return g_current;
}
