/*
 * Line editing and history for the host at a terminal (libedit), plain
 * line reading everywhere else. The history file is rewritten after every
 * line, so it survives Ctrl-C as well as a normal end; it holds at most
 * kHistorySize lines, each at most kHistoryLineMax bytes.
 */
#include "lineinput.h"

#include <histedit.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <iostream>

namespace {

constexpr int kHistorySize = 500;
/* Longer lines are run but not kept: the file stays small. */
constexpr std::size_t kHistoryLineMax = 1024;

/* The prompt libedit asks for; one editor per process. */
std::string currentPrompt;

char* promptOf(EditLine*)
{
    return const_cast<char*>(currentPrompt.c_str());
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

bool LineInput::read(const std::string& prompt, std::string* line)
{
    if (editor_ == nullptr) {
        if (!prompt.empty()) {
            std::fputs(prompt.c_str(), stdout);
            std::fflush(stdout);
        }
        return static_cast<bool>(std::getline(std::cin, *line));
    }
    currentPrompt = prompt;
    int count = 0;
    const char* text = el_gets(editor_->el, &count);
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
