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

namespace {

TEST(NumberKey, EveryWritingOfAHomeNumberGivesOneKey)
{
    const std::string key = numberKey("0711 12345");
    EXPECT_EQ(key, "+4971112345");
    for (const char* writing : {"+49 711 12345", "0049 711 12345", "+49 (0)711 12345", "+49(0)711-123 45",
                                "(0711) 123-45", "0711/12345", "0711.12345", "07111\t2345", "  +4971112345"})
        EXPECT_EQ(numberKey(writing), key) << writing;
}

TEST(NumberKey, ForeignNumbersKeepTheirCountryCode)
{
    EXPECT_EQ(numberKey("+43 662 876543"), "+43662876543");
    EXPECT_EQ(numberKey("0043 662 876543"), "+43662876543");
    /* The same digits dialled nationally are a German number. */
    EXPECT_NE(numberKey("0662 876543"), numberKey("+43 662 876543"));
    EXPECT_EQ(numberKey("0043 (0)662 876543"), "+43662876543");
    /* "(0)" first is the trunk prefix itself. */
    EXPECT_EQ(numberKey("(0)662 876543"), "+49662876543");
}

TEST(NumberKey, NumbersWithoutPrefixStayAsDialled)
{
    EXPECT_EQ(numberKey("12-34"), "1234");
    EXPECT_NE(numberKey("12345"), numberKey("0711 12345"));
}

TEST(NumberKey, TextWithoutDigitsMatchesNothing)
{
    EXPECT_EQ(numberKey(""), "");
    EXPECT_EQ(numberKey(" - / ()"), "");
    EXPECT_EQ(numberKey("+"), "");
}

TEST(NumberKey, ServiceCodesAndLettersAreKeptAsWritten)
{
    EXPECT_EQ(numberKey("*31# 0711 123"), "*31#0711123");
    EXPECT_EQ(numberKey("0800-FLOWERS"), "0800FLOWERS");
    /* A plus inside the number is no prefix. */
    EXPECT_EQ(numberKey("0711+5"), "0711+5");
    EXPECT_NE(numberKey("*31#0711123"), numberKey("0711123"));
}

TEST(NameKey, FoldsEveryLatin1CapitalToItsSmallLetter)
{
    for (int c = 0; c < 256; c++) {
        const std::string in(1, static_cast<char>(c));
        const bool capital = (c >= 'A' && c <= 'Z') || (c >= 0xC0 && c <= 0xDE && c != 0xD7);
        const std::string expected(1, static_cast<char>(capital ? c + 0x20 : c));
        EXPECT_EQ(nameKey(in), expected) << "byte " << c;
    }
}

TEST(NameKey, UmlautsMatchWhateverTheirCase)
{
    EXPECT_EQ(nameKey("\xD6HLENBACH"), nameKey("\xF6hlenbach"));   // ÖHLENBACH, öhlenbach
    EXPECT_EQ(nameKey("J\xDCRGEN"), "j\xFCrgen");
    /* Case only: an umlaut is not its base letter. */
    EXPECT_NE(nameKey("\xD6hl"), nameKey("Ohl"));
    /* ß has no capital in ISO-8859-1. */
    EXPECT_EQ(nameKey("STRAU\xDF"), "strau\xDF");
}

TEST(SortKey, AccentedNamesFileUnderTheirBaseLetter)
{
    std::vector<std::string> names = {"\xD6hlenbach", "Pick", "Nu\xDF" "baum", "Ohm", "Zander", "\xC5ngstr\xF6m"};
    std::sort(names.begin(), names.end(),
              [](const std::string& a, const std::string& b) { return sortKey(a) < sortKey(b); });
    const std::vector<std::string> expected = {"\xC5ngstr\xF6m", "Nu\xDF" "baum", "\xD6hlenbach", "Ohm", "Pick",
                                               "Zander"};
    EXPECT_EQ(names, expected);
}

TEST(SortKey, LigaturesAndSharpSSpellOut)
{
    EXPECT_EQ(sortKey("Strau\xDF"), "strauss");
    EXPECT_EQ(sortKey("\xC6r\xF8"), "aero");
    EXPECT_EQ(sortKey("\xDE\xF3r"), "thor");
    EXPECT_EQ(sortKey("Hans-Peter 2"), "hans-peter 2");
    EXPECT_EQ(sortKey("a\xD7" "b"), "ab");   // the multiplication sign is no letter
}

}  // namespace
