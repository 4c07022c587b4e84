/*
 * What webconfd's searches mean, as the keys of names and numbers: every
 * way of writing one number gives one key, name keys ignore case in all of
 * ISO-8859-1, and the phonebook order files accented names under their
 * base letter.
 */
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "match.h"

using webconfd::nameKey;
using webconfd::numberKey;
using webconfd::sortKey;

TEST(NumberKey, EveryWritingOfANumberGivesItsOneKey)
{
    const struct {
        const char* dialled;
        const char* key;
    } cases[] = {
        {"0711 12345", "+4971112345"},         {"+49 711 12345", "+4971112345"},
        {"0049 711 12345", "+4971112345"},     {"+49 (0)711 12345", "+4971112345"},
        {"+49(0)711-123 45", "+4971112345"},   {"(0711) 123-45", "+4971112345"},
        {"0711/12345", "+4971112345"},         {"0711.12345", "+4971112345"},
        {"07111\t2345", "+4971112345"},        {"  +4971112345", "+4971112345"},
        /* Foreign numbers keep their country code; dialled nationally, the
         * same digits are a home number. */
        {"+43 662 876543", "+43662876543"},    {"0043 (0)662 876543", "+43662876543"},
        {"0662 876543", "+49662876543"},
        {"(0)662 876543", "+49662876543"},     // "(0)" first is the trunk prefix itself
        {"12-34", "1234"},                     // an extension stays as dialled
        {"", ""},                              // no digits: matches nothing
        {" - / ()", ""},
        {"+", ""},
        /* Service codes, letters and an inner plus keep the text. */
        {"*31# 0711 123", "*31#0711123"},      {"0800-FLOWERS", "0800FLOWERS"},
        {"0711+5", "0711+5"},
    };
    for (const auto& c : cases)
        EXPECT_EQ(c.key, numberKey(c.dialled)) << c.dialled;
}

TEST(NameKey, FoldsLatin1CapitalsToTheirSmallLetterOnly)
{
    /* A Z À Ö Ø Þ fold; the bytes next to them, ×, ß, ÿ and small letters stay. */
    EXPECT_EQ("@az[\xBF\xE0\xF6\xD7\xF8\xFE\xDF\xFF" "a\xE0", nameKey("@AZ[\xBF\xC0\xD6\xD7\xD8\xDE\xDF\xFF" "a\xE0"));
}

TEST(SortKey, AccentedNamesFileUnderTheirBaseLetter)
{
    std::vector<std::string> names = {"\xD6hlenbach", "Pick", "Nu\xDF" "baum", "Ohm", "Zander", "\xC5ngstr\xF6m"};
    std::sort(names.begin(), names.end(),
              [](const std::string& a, const std::string& b) { return sortKey(a) < sortKey(b); });
    EXPECT_EQ((std::vector<std::string>{"\xC5ngstr\xF6m", "Nu\xDF" "baum", "\xD6hlenbach", "Ohm", "Pick", "Zander"}),
              names);
    EXPECT_EQ("strauss aero thor ab-2", sortKey("Strau\xDF \xC6r\xF8 \xDE\xF3r a\xD7" "b-2"))
        << "ligatures and sharp s spell out, the multiplication sign is no letter";
}
