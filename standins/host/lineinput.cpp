/*
 * Line editing and history for the host at a terminal (libedit), plain
 * line reading everywhere else. The history file is rewritten after every
 * line, so it survives Ctrl-C as well as a normal end; it holds at most
 * kHistorySize lines, each at most kHistoryLineMax bytes.
 */
#include "lineinput.h"

#include <histedit.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cwchar>
#include <iostream>
#include <limits>

#include "platform/output.h"

namespace {

constexpr int kHistorySize = 500;
/* Longer lines are run but not kept: the file stays small. */
constexpr std::size_t kHistoryLineMax = 1024;
/* Longest line read from a pipe or file: far past any console line (a
 * record typed as JSON is at most 16 KiB), and what bounds the host's memory
 * when input has no line end. */
constexpr std::size_t kInputLineMax = 64 * 1024;

/* The prompt libedit asks for; one editor per process. */
std::string currentPrompt;

char* promptOf(EditLine*)
{
    return const_cast<char*>(currentPrompt.c_str());
}

void writeAll(int fd, const std::string& bytes)
{
    for (std::size_t done = 0; done < bytes.size();) {
        const ssize_t n = write(fd, bytes.data() + done, bytes.size() - done);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return;
        done += static_cast<std::size_t>(n);
    }
}

/* What arrived while the prompt is shown goes above it: the prompt's line
 * is cleared, the output written, and libedit draws the prompt with the
 * half-typed line again below it. */
void showArrived(EditLine* el)
{
    const std::vector<std::pair<int, std::string>> arrived = PLT_TakeOutput();
    if (arrived.empty())
        return;
    writeAll(STDOUT_FILENO, "\r\033[K");
    char last = '\n';
    for (const auto& entry : arrived) {
        writeAll(entry.first, entry.second);
        if (!entry.second.empty())
            last = entry.second.back();
    }
    if (last != '\n')
        writeAll(STDOUT_FILENO, "\n");   // an unfinished line ends here, not in the prompt
    el_set(el, EL_REFRESH);
}

/* libedit's character reader, which also wakes for output that arrives
 * while it waits: only this thread draws on the terminal then. */
int readChar(EditLine* el, wchar_t* out)
{
    std::mbstate_t state{};
    for (;;) {
        pollfd fds[2] = {{STDIN_FILENO, POLLIN, 0}, {PLT_OutputWakeFd(), POLLIN, 0}};
        if (poll(fds, fds[1].fd < 0 ? 1 : 2, -1) < 0) {
            if (errno == EINTR)
                continue;   // a resize: libedit's handler has dealt with it
            return -1;
        }
        if (fds[1].revents & POLLIN) {
            showArrived(el);
            continue;
        }
        if (fds[0].revents == 0)
            continue;
        char byte;
        const ssize_t n = read(STDIN_FILENO, &byte, 1);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return static_cast<int>(n);
        wchar_t wide;
        const std::size_t used = std::mbrtowc(&wide, &byte, 1, &state);
        if (used == static_cast<std::size_t>(-2))
            continue;   // more bytes of this character to come
        // A byte that is no character in the locale is taken as it is.
        *out = used == static_cast<std::size_t>(-1) ? static_cast<wchar_t>(static_cast<unsigned char>(byte)) : wide;
        return 1;
    }
}

/* mkdir -p with mode 0700 for the directories it makes. */
bool makeDirs(const std::string& dir)
{
    for (std::size_t slash = dir.find('/', 1);; slash = dir.find('/', slash + 1)) {
        const std::string part = dir.substr(0, slash);
        if (mkdir(part.c_str(), 0700) != 0 && errno != EEXIST)
            return false;
        if (slash == std::string::npos)
            return true;
    }
}

/* Whether the history may be read from and written to `path`: a regular
 * file, or none yet. Anything else (a FIFO would block the host before its
 * first prompt, a device) is left alone. Reading also wants a file no
 * larger than a full history: a longer one is not read, and the first
 * line typed replaces it. */
bool historyFileUsable(const std::string& path, bool reading)
{
    struct stat st;
    if (::stat(path.c_str(), &st) != 0)
        return errno == ENOENT && !reading;
    return S_ISREG(st.st_mode) &&
           (!reading || static_cast<unsigned long long>(st.st_size) <= kHistorySize * (kHistoryLineMax + 2));
}

}  // namespace

struct LineInput::Editor {
    EditLine* el = nullptr;
    History* history = nullptr;
    HistEvent event;
    std::string path;
};

std::string LineInput::historyPath()
{
    // A relative XDG_STATE_HOME is to be ignored.
    const char* state = std::getenv("XDG_STATE_HOME");
    if (state != nullptr && state[0] == '/')
        return std::string(state) + "/kivo/host-history";
    const char* home = std::getenv("HOME");
    if (home != nullptr && home[0] == '/')
        return std::string(home) + "/.local/state/kivo/host-history";
    return "";
}

LineInput::LineInput(bool edit)
{
    if (!edit)
        return;
    EditLine* el = el_init("kivo-host", stdin, stdout, stderr);
    History* hist = history_init();
    if (el == nullptr || hist == nullptr) {
        // Without the editor the terminal still works, as on a pipe.
        if (el != nullptr)
            el_end(el);
        if (hist != nullptr)
            history_end(hist);
        return;
    }
    editor_ = new Editor;
    editor_->el = el;
    editor_->history = hist;
    history(hist, &editor_->event, H_SETSIZE, kHistorySize);
    history(hist, &editor_->event, H_SETUNIQUE, 1);
    el_set(el, EL_EDITOR, "emacs");
    // Ctrl-C and Ctrl-Z still stop the host; the terminal is restored first.
    el_set(el, EL_SIGNAL, 1);
    el_set(el, EL_PROMPT, promptOf);
    el_set(el, EL_GETCFN, readChar);
    el_set(el, EL_HIST, history, hist);
    editor_->path = historyPath();
    if (!editor_->path.empty()) {
        // A missing, unreadable or unfit file starts an empty history.
        if (historyFileUsable(editor_->path, true))
            history(hist, &editor_->event, H_LOAD, editor_->path.c_str());
    }
}

LineInput::~LineInput()
{
    if (editor_ == nullptr)
        return;
    el_end(editor_->el);
    history_end(editor_->history);
    delete editor_;
}

bool LineInput::readBounded(std::string* line)
{
    static char buffer[kInputLineMax + 1];
    for (;;) {
        lineNumber_++;
        std::cin.getline(buffer, sizeof buffer);
        const std::size_t n = static_cast<std::size_t>(std::cin.gcount());
        if (std::cin.eof()) {
            line->assign(buffer, n);   // the last line, which has no line end
            return n > 0;
        }
        if (!std::cin.fail()) {
            line->assign(buffer, n - 1);   // gcount counts the line end
            return true;
        }
        /* Longer than any line can be: the rest up to its end is skipped, and
         * nothing of it is typed. */
        std::cin.clear();
        std::cin.ignore(std::numeric_limits<std::streamsize>::max(), '\n');
        std::fprintf(stderr, "kivo-host: input line %lu longer than %lu bytes, ignored\n", lineNumber_,
                     static_cast<unsigned long>(kInputLineMax));
        if (std::cin.eof())
            return false;
    }
}

bool LineInput::read(const std::string& prompt, std::string* line)
{
    if (editor_ == nullptr) {
        if (!prompt.empty())
            PLT_Output(1, prompt.data(), prompt.size());
        return readBounded(line);
    }
    currentPrompt = prompt;
    int count = 0;
    PLT_HoldOutput(true);
    const char* text = el_gets(editor_->el, &count);
    PLT_HoldOutput(false);
    if (text == nullptr || count <= 0)
        return false;
    line->assign(text, static_cast<std::size_t>(count));
    if (!line->empty() && line->back() == '\n')
        line->pop_back();
    if (!line->empty() && line->size() <= kHistoryLineMax) {
        history(editor_->history, &editor_->event, H_ENTER, line->c_str());
        const std::size_t slash = editor_->path.rfind('/');
        if (slash != std::string::npos && makeDirs(editor_->path.substr(0, slash)) &&
            historyFileUsable(editor_->path, false))
            history(editor_->history, &editor_->event, H_SAVE, editor_->path.c_str());
    }
    return true;
}
