/*
 * kivo-host: the firmware host in miniature. It loads the module at run
 * time, starts it as the firmware's module loader does, and runs the debug
 * terminal on standard input. Standard output carries exactly what the
 * module writes to the terminal; log records go to standard error.
 */
#include <dlfcn.h>
#include <langinfo.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <string>
#include <thread>

#include "lineinput.h"
#include "phonebook/latin1.h"
#include "platform/capture.h"
#include "platform/dtm.h"
#include "platform/log.h"
#include "platform/mantask.h"
#include "platform/output.h"
#include "platform/runtime.h"
#include "platform/standin.h"
#include "service-console.h"
#include "terminal-text.h"

namespace {

const char kUsage[] =
    "usage: kivo-host [options]\n"
    "\n"
    "Loads the kivo module, starts it and runs the debug terminal on standard\n"
    "input. At the top level a line naming a console enters it: \"kivo\", the\n"
    "module's own, or \"svc\", which plays another service of the firmware;\n"
    "inside, every line goes to the console until it returns (\"q\"). Lines\n"
    "beginning with '!' are the terminal's own: \"!sleep MS\" waits, \"!quit\"\n"
    "ends the host.\n"
    "End of input ends the host once the tasks have handled what is queued.\n"
    "At a terminal the arrow keys edit the line and recall earlier lines; the\n"
    "history is kept in $XDG_STATE_HOME/kivo/host-history (default\n"
    "~/.local/state/kivo/host-history).\n"
    "\n"
    "options:\n"
    "  --module PATH        the module to load (default: libkivo.so in the lib\n"
    "                       directory beside this program's, else the installed\n"
    "                       " KIVO_MODULE_SONAME " on the library path)\n"
    "  --ipc-dir DIR        runtime directory of the IPC sockets (default:\n"
    "                       $XDG_RUNTIME_DIR/kivo-ipc or /tmp/kivo-ipc-<uid>)\n"
    "  --timer-unit-us N    length of one timer unit in microseconds (default\n"
    "                       1000; 10 makes the 5000-unit query timer 50 ms)\n"
    "  --enter NAME         start inside the console NAME\n"
    "  --capture FILE       write every datagram, timer message and console line\n"
    "                       to FILE (pcap; it holds phonebook data; docs/capture.md)\n"
    "  --capture-limit N    stop writing the capture at N bytes (default 67108864)\n"
    "  --help               this text\n";

/* Terminal output and log records waiting for a slow reader at the most;
 * more is dropped and counted, so that no task waits for the reader. */
constexpr std::size_t kOutputQueueBytes = 256 * 1024;

/* Longest "!sleep": one day. */
constexpr unsigned long kMaxSleepMs = 86400000;

/* Default bound of a capture file: 64 MiB. */
constexpr unsigned long kCaptureLimit = 64UL << 20;

/* Index of the task that receives the module's cache-clear notices. */
constexpr int kCacheTask = 64;

/* Length of the module's query timer in timer units. */
constexpr unsigned long kQueryTimerUnits = 5000;

bool utf8Terminal;

/* The module's output when standard output is a terminal. */
void toTerminal(const char* bytes, std::size_t length)
{
    const std::string text = host::forTerminal(std::string(bytes, length), utf8Terminal);
    PLT_Output(1, text.data(), text.size());
}

/* Stand-in for the service that caches the phonebook's configuration. */
void cacheTask(int event, unsigned int primitive, void* raw)
{
    if (event != MAN_EVENT_MESSAGE)
        return;
    LOG_ExpInfo("host", "cacheTask", 0, "cache-clear notice 0x%08lx", static_cast<unsigned long>(primitive));
    MAN_ExpPFree(raw);
}

std::string defaultModulePath(const char* argv0)
{
    char self[4096];
    ssize_t n = readlink("/proc/self/exe", self, sizeof self - 1);
    std::string dir = ".";
    if (n > 0) {
        self[n] = '\0';
        dir = self;
    } else {
        dir = argv0;
    }
    std::size_t slash = dir.rfind('/');
    dir = slash == std::string::npos ? "." : dir.substr(0, slash);
    const std::string beside = dir + "/../lib/libkivo.so";
    /* Installed, the module lies in the multiarch library directory: the
     * loader finds it by its SONAME along the host's RUNPATH. */
    return access(beside.c_str(), F_OK) == 0 ? beside : KIVO_MODULE_SONAME;
}

bool parseUnsigned(const char* text, unsigned long* out)
{
    if (text == nullptr || *text < '0' || *text > '9')
        return false;
    errno = 0;
    char* end = nullptr;
    *out = std::strtoul(text, &end, 10);
    return errno == 0 && *end == '\0';
}

int fail(const std::string& message, int code)
{
    std::fprintf(stderr, "kivo-host: %s\n", message.c_str());
    return code;
}

/* The terminal's own commands; false for "!quit". */
bool terminalCommand(const std::string& line)
{
    if (line == "!quit")
        return false;
    unsigned long ms;
    if (line.compare(0, 7, "!sleep ") == 0) {
        /* Bounded: a huge value would overflow the clock (waiting forever
         * or not at all). */
        if (parseUnsigned(line.c_str() + 7, &ms) && ms <= kMaxSleepMs)
            std::this_thread::sleep_for(std::chrono::milliseconds(ms));
        else
            std::fprintf(stderr, "kivo-host: !sleep wants milliseconds from 0 to %lu, not %s\n", kMaxSleepMs,
                         line.c_str() + 7);
        return true;
    }
    std::fprintf(stderr, "kivo-host: unknown terminal command: %s (try !sleep MS, !quit)\n", line.c_str());
    return true;
}

/* Every line the terminal gets is noted in the capture first, so a replay
 * types it at the same point. */
void typeLine(const std::string& line)
{
    PLT_CaptureConsoleLine(line);
    PLT_TerminalLine(line.c_str());
}

}  // namespace

int main(int argc, char** argv)
{
    std::string module = defaultModulePath(argv[0]);
    std::string ipcDir = PLT_DefaultIpcDir();
    std::string enter;
    unsigned long timerUnitUs = 1000;
    std::string captureFile;
    unsigned long captureLimit = kCaptureLimit;

    for (int i = 1; i < argc; i++) {
        const std::string arg = argv[i];
        const char* value = i + 1 < argc ? argv[i + 1] : nullptr;
        if (arg == "--help" || arg == "-h") {
            std::fputs(kUsage, stdout);
            return 0;
        } else if (arg == "--module" && value) {
            module = value;
        } else if (arg == "--ipc-dir" && value) {
            ipcDir = value;
        } else if (arg == "--enter" && value) {
            enter = value;
        } else if (arg == "--capture" && value) {
            captureFile = value;
        } else if (arg == "--capture-limit" && value) {
            if (!parseUnsigned(value, &captureLimit))
                return fail(std::string("--capture-limit wants a number of bytes, not ") + value, 2);
        } else if (arg == "--timer-unit-us" && value) {
            if (!parseUnsigned(value, &timerUnitUs) || timerUnitUs == 0 || timerUnitUs > 1000000)
                return fail(std::string("--timer-unit-us wants a number from 1 to 1000000, not ") + value, 2);
        } else {
            std::fputs(kUsage, stderr);
            return fail("bad argument: " + arg, 2);
        }
        i++;
    }

    std::setlocale(LC_CTYPE, "");
    const bool interactive = isatty(STDIN_FILENO);
    const bool terminalOut = isatty(STDOUT_FILENO);
    utf8Terminal = terminalOut && std::strcmp(nl_langinfo(CODESET), "UTF-8") == 0;
    PLT_StartBoundedOutput(kOutputQueueBytes);
    if (terminalOut)
        PLT_SetTerminalSink(toTerminal);

    if (PLT_SetIpcDir(ipcDir) != 0)
        return fail("cannot use IPC directory " + ipcDir, 2);
    PLT_SetTimerUnitUs(static_cast<unsigned int>(timerUnitUs));
    if (!captureFile.empty() && PLT_CaptureStart(captureFile, captureLimit) != 0)
        return fail("cannot capture to " + captureFile, 2);

    void* handle = dlopen(module.c_str(), RTLD_NOW | RTLD_GLOBAL);
    if (handle == nullptr)
        return fail(std::string("cannot load module: ") + dlerror(), 3);
    /* The module's functions keep C++ linkage: look up KIVO_ExpInit() by
     * its mangled name. */
    typedef int (*InitFn)();
    InitFn init = reinterpret_cast<InitFn>(dlsym(handle, "_Z12KIVO_ExpInitv"));
    if (init == nullptr)
        return fail("module " + module + " has no KIVO_ExpInit", 3);
    int code = init();
    if (code != 0) {
        PLT_Shutdown();
        PLT_CaptureStop();
        return fail("KIVO_ExpInit failed with code " + std::to_string(code), 4);
    }
    /* Created after the module's task: a request sent without a source
     * address leaves from the process's first task, which must be kivo. */
    if (MAN_ExpTCreate("cfgcache", &TaskIdTbl[kCacheTask], 0, cacheTask) != 0)
        std::fprintf(stderr, "kivo-host: no stand-in for task %d\n", kCacheTask);
    /* The module works once its task has handled the start event. */
    PLT_Drain();

    host::ModuleExports exports;
    std::string missing;
    if (!host::lookUpExports(handle, &exports, &missing))
        std::fprintf(stderr, "kivo-host: module %s has no %s: no console svc\n", module.c_str(), missing.c_str());
    else if (host::registerServiceConsole(exports, static_cast<long>(kQueryTimerUnits * timerUnitUs / 1000),
                                          terminalOut) != 0)
        std::fprintf(stderr, "kivo-host: cannot register the console svc\n");

    if (!enter.empty()) {
        typeLine(enter);
        if (PLT_CurrentConsole() != enter) {
            PLT_Shutdown();
            PLT_CaptureStop();
            return fail("no console named " + enter, 2);
        }
    }

    LineInput input(interactive && isatty(STDOUT_FILENO));
    std::string line;
    for (;;) {
        std::string prompt;
        if (interactive) {
            const std::string console = PLT_CurrentConsole();
            prompt = console.empty() ? std::string("> ") : console + "> ";
        }
        if (!input.read(prompt, &line))
            break;
        if (!line.empty() && line.back() == '\r')
            line.pop_back();
        if (!line.empty() && line[0] == '!') {
            if (!terminalCommand(line))
                break;
            continue;
        }
        if (utf8Terminal)
            line = ZEMBRA::Phonebook::utf8ToLatin1(line);
        typeLine(line);
    }
    PLT_Drain();
    PLT_Shutdown();
    PLT_CaptureStop();
    PLT_FinishOutput();
    return 0;
}
