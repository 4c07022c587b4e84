/*
 * docs/traces.md lists every line that the module, the platform, the daemon
 * and the host write. This test reads the format texts of the output calls
 * in their sources (as spelled there) and the first cells of the document's
 * tables, and fails when a text in the code has no row or a row names a text
 * that its sources do not write. A "## " heading of the document names its
 * sources as a directory in backticks, e.g. "## The module (`kivo/`)".
 */
#include <gtest/gtest.h>

#include <cctype>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

namespace fs = std::filesystem;

namespace {

std::string readFile(const fs::path& path)
{
    std::ifstream in(path, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

/* Skips the string or character literal that begins at `i`; returns the
 * index just past it. */
std::size_t skipLiteral(const std::string& s, std::size_t i)
{
    const char quote = s[i++];
    while (i < s.size() && s[i] != quote)
        i += s[i] == '\\' ? 2 : 1;
    return i + 1;
}

/* The source with its comments blanked, literals kept. */
std::string withoutComments(const std::string& s)
{
    std::string out = s;
    for (std::size_t i = 0; i < s.size();) {
        if (s[i] == '"' || s[i] == '\'') {
            i = skipLiteral(s, i);
        } else if (s.compare(i, 2, "//") == 0) {
            for (; i < s.size() && s[i] != '\n'; i++)
                out[i] = ' ';
        } else if (s.compare(i, 2, "/*") == 0) {
            const std::size_t end = std::min(s.find("*/", i + 2), s.size() - 2) + 2;
            for (; i < end; i++)
                out[i] = s[i] == '\n' ? '\n' : ' ';
        } else {
            i++;
        }
    }
    return out;
}

/* The arguments of the call whose '(' is at `open`, split at top-level
 * commas, untrimmed. */
std::vector<std::string> arguments(const std::string& code, std::size_t open)
{
    std::vector<std::string> args(1);
    int depth = 0;
    for (std::size_t i = open + 1; i < code.size();) {
        const char c = code[i];
        if (c == '"' || c == '\'') {
            const std::size_t end = skipLiteral(code, i);
            args.back() += code.substr(i, end - i);
            i = end;
            continue;
        }
        if (c == ')' && depth == 0)
            break;
        if (c == '(' || c == '[' || c == '{')
            depth++;
        if (c == ')' || c == ']' || c == '}')
            depth--;
        if (c == ',' && depth == 0)
            args.emplace_back();
        else
            args.back() += c;
        i++;
    }
    return args;
}

/* The text of an argument made of string literals only (adjacent ones
 * joined), as spelled in the source; false for anything else. */
bool literalText(const std::string& arg, std::string* text)
{
    text->clear();
    bool any = false;
    for (std::size_t i = 0; i < arg.size();) {
        if (std::isspace(static_cast<unsigned char>(arg[i]))) {
            i++;
        } else if (arg[i] == '"') {
            const std::size_t end = skipLiteral(arg, i);
            *text += arg.substr(i + 1, end - i - 2);
            any = true;
            i = end;
        } else {
            return false;
        }
    }
    return any;
}

bool isIdentChar(char c)
{
    return std::isalnum(static_cast<unsigned char>(c)) || c == '_';
}

/* Which argument of an output call is its format; -1 for other names. */
int formatArgument(const std::string& name)
{
    static const std::map<std::string, int> calls = {
        {"UI_ExpWritef", 0}, {"LOG_ExpInfo", 3}, {"LOG_ExpError", 3}, {"PLT_LOG_ERROR", 0}, {"fprintf", 1}};
    if (name.compare(0, 9, "KIVO_LOG_") == 0)
        return 3;
    const auto it = calls.find(name);
    return it == calls.end() ? -1 : it->second;
}

/* The format texts written by the sources under `dir`. */
std::set<std::string> sourceFormats(const fs::path& dir)
{
    std::set<std::string> formats;
    for (const auto& entry : fs::recursive_directory_iterator(dir)) {
        const std::string ext = entry.path().extension().string();
        if (ext != ".cpp" && ext != ".h")
            continue;
        const std::string code = withoutComments(readFile(entry.path()));
        for (std::size_t i = 0; i < code.size();) {
            if (code[i] == '"' || code[i] == '\'') {
                i = skipLiteral(code, i);
                continue;
            }
            if (!isIdentChar(code[i]) || (i > 0 && isIdentChar(code[i - 1]))) {
                i++;
                continue;
            }
            std::size_t end = i;
            while (end < code.size() && isIdentChar(code[end]))
                end++;
            const std::string name = code.substr(i, end - i);
            const int index = formatArgument(name);
            std::size_t open = end;
            while (open < code.size() && std::isspace(static_cast<unsigned char>(code[open])))
                open++;
            i = end;
            if (index < 0 || open >= code.size() || code[open] != '(')
                continue;
            const std::vector<std::string> args = arguments(code, open);
            std::string text;
            // Only what goes to standard error is a log line.
            if (name == "fprintf" && args[0].find("stderr") == std::string::npos)
                continue;
            if (static_cast<std::size_t>(index) < args.size() && literalText(args[index], &text))
                formats.insert(text);
        }
    }
    return formats;
}

/* The first cells of the document's table rows, by the directory that the
 * section heading names. */
std::map<std::string, std::set<std::string>> documentedFormats(const std::string& doc)
{
    std::map<std::string, std::set<std::string>> rows;
    std::istringstream lines(doc);
    std::string line;
    std::string dir;
    while (std::getline(lines, line)) {
        if (line.compare(0, 3, "## ") == 0) {
            const std::size_t open = line.find('`');
            const std::size_t close = open == std::string::npos ? open : line.find('`', open + 1);
            dir = close == std::string::npos ? "" : line.substr(open + 1, close - open - 1);
            if (!dir.empty())
                rows[dir];
        } else if (!dir.empty() && line.compare(0, 3, "| `") == 0) {
            const std::size_t close = line.find('`', 3);
            if (close != std::string::npos)
                rows[dir].insert(line.substr(3, close - 3));
        }
    }
    return rows;
}

TEST(TracesDocument, EveryTextInTheCodeHasARowAndEveryRowATextInTheCode)
{
    const fs::path root = KIVO_SOURCE_DIR;
    const auto documented = documentedFormats(readFile(root / "docs/traces.md"));
    ASSERT_FALSE(documented.empty()) << "no sections with a source directory in docs/traces.md";
    for (const char* dir : {"kivo/", "platform/", "webconfd/", "host/"})
        EXPECT_EQ(documented.count(dir), 1u) << "docs/traces.md has no section for " << dir;

    for (const auto& section : documented) {
        const std::set<std::string> inCode = sourceFormats(root / section.first);
        for (const std::string& text : inCode)
            EXPECT_EQ(section.second.count(text), 1u) << section.first << " writes \"" << text << "\": no row";
        for (const std::string& text : section.second)
            EXPECT_EQ(inCode.count(text), 1u) << "row \"" << text << "\": not written by " << section.first;
    }
}

}  // namespace
