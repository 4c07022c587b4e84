/* docs/traces.md has a row for every format text, as spelled, of the output
 * calls in the sources that a "## " heading names in backticks ("## The
 * module (`kivo/`)"), and no other row. */
#include <gtest/gtest.h>

#include <cctype>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <sstream>

namespace fs = std::filesystem;

namespace {

std::string readFile(const fs::path& path)
{
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

/* A source's tokens but comments and blanks: words, adjacent string literals
 * as '"' and their joined text as spelled, "'", and other characters. */
std::vector<std::string> tokens(const std::string& s)
{
    auto isIdent = [](char c) { return std::isalnum(static_cast<unsigned char>(c)) || c == '_'; };
    std::vector<std::string> out;
    for (std::size_t i = 0, end; i < s.size(); i = std::max(end, i + 1)) {
        end = i;
        if (s.compare(i, 2, "//") == 0 || s.compare(i, 2, "/*") == 0) {
            end = s[i + 1] == '/' ? s.find('\n', i) : s.find("*/", i) + 2;
        } else if (s[i] == '"' || s[i] == '\'') {
            for (end = i + 1; end < s.size() && s[end] != s[i]; end += s[end] == '\\' ? 2 : 1) {
            }
            if (s[i] == '\'' || out.empty() || out.back()[0] != '"')
                out.push_back(std::string(1, s[i]));
            if (s[i] == '"')
                out.back() += s.substr(i + 1, end - i - 1);
            end++;
        } else if (!std::isspace(static_cast<unsigned char>(s[i]))) {   // a word, or one character
            while (++end < s.size() && isIdent(s[i]) && isIdent(s[end])) {
            }
            out.push_back(s.substr(i, end - i));
        }
    }
    return out;
}

/* The literal-only format arguments of the output calls under `dir`. */
std::set<std::string> sourceFormats(const fs::path& dir)
{
    static const std::map<std::string, std::size_t> formatArgument = {{"UI_ExpWritef", 0}, {"LOG_ExpInfo", 3},
        {"LOG_ExpError", 3}, {"KIVO_LOG_INFO", 3}, {"KIVO_LOG_ERROR", 3}, {"PLT_LOG_ERROR", 0},
        {"PLT_LOG_ERROR_IN", 1}, {"fprintf", 1}, {"writeOutputf", 1}};
    std::set<std::string> formats;
    for (const auto& entry : fs::recursive_directory_iterator(dir)) {
        if (entry.path().extension() != ".cpp" && entry.path().extension() != ".h")
            continue;
        const std::vector<std::string> t = tokens(readFile(entry.path()));
        for (std::size_t i = 0; i + 1 < t.size(); i++) {
            const auto call = formatArgument.find(t[i]);
            if (call == formatArgument.end() || t[i + 1] != "(")
                continue;
            std::vector<std::string> args(1);   // each the tokens of an argument, joined by '\1'
            int depth = 0;
            for (std::size_t j = i + 2; j < t.size() && (depth > 0 || t[j] != ")"); j++) {
                depth += (t[j] == "(" || t[j] == "[" || t[j] == "{") - (t[j] == ")" || t[j] == "]" || t[j] == "}");
                if (depth == 0 && t[j] == ",")
                    args.emplace_back();
                else
                    args.back() += (args.back().empty() ? "" : "\1") + t[j];
            }
            const std::string format = call->second < args.size() ? args[call->second] : "";
            // Only what goes to standard error is a log line.
            if ((call->first != "fprintf" || args[0] == "stderr") && format[0] == '"' &&
                format.find('\1') == std::string::npos)
                formats.insert(format.substr(1));
        }
    }
    return formats;
}

TEST(TracesDocument, EveryTextInTheCodeHasARowAndEveryRowATextInTheCode)
{
    const fs::path root = KIVO_SOURCE_DIR;
    std::map<std::string, std::set<std::string>> documented;   // first cells of table rows by section directory
    std::istringstream lines(readFile(root / "docs/traces.md"));
    for (std::string line, dir; std::getline(lines, line);) {
        const std::size_t open = line.find('`'), close = line.find('`', open + 1);
        if (line.compare(0, 3, "## ") == 0)
            dir = close == std::string::npos ? "" : line.substr(open + 1, close - open - 1);
        else if (!dir.empty() && line.compare(0, 3, "| `") == 0 && close != std::string::npos)
            documented[dir].insert(line.substr(3, close - 3));
    }
    for (const char* dir : {"kivo/", "standins/platform/", "standins/webconfd/", "standins/host/"})
        EXPECT_EQ(documented.count(dir), 1u) << "docs/traces.md has no rows for " << dir;
    for (const auto& section : documented) {
        const std::set<std::string> inCode = sourceFormats(root / section.first);
        for (const std::string& text : inCode)
            EXPECT_EQ(section.second.count(text), 1u) << section.first << " writes \"" << text << "\": no row";
        for (const std::string& text : section.second)
            EXPECT_EQ(inCode.count(text), 1u) << "row \"" << text << "\": not written by " << section.first;
    }
}

}  // namespace
