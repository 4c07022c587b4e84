/*
 * The phonebook records as values: what the full constructor fills, and
 * the keypad key of names (vanity). Their JSON form is phonebook_json_test's.
 */
#include <gtest/gtest.h>

#include "phonebook/records.h"
#include "phonebook/standin.h"

using namespace ZEMBRA::Phonebook;

/* The six texts go to the first six members, the optional text is engaged
 * only with a value, and text3, when not given, gets the keys of last and
 * first name; nothing else is set. */
TEST(ContactValue, FullConstructorFillsItsMembersThenTheVanity)
{
    const struct {
        const char* text3;
        const char* first;
        const char* last;
        boost::optional<std::string> optional;
        const char* vanity;
    } cases[] = {
        {"", "J\xF6rg", "M\xFCller", std::string("x"), "685537 5674"}, {"", "", "Berg", boost::none, "2374"},
        {"", "Anna", "", std::string(), "2662"},  {"", "-", "Berg", boost::none, "2374"},
        {"mine", "Anna", "Berg", boost::none, "mine"},
    };
    for (const auto& c : cases) {
        Contact contact("b", "u", c.text3, c.first, c.last, "co", c.optional);
        EXPECT_EQ((std::vector<std::string>{"b", "u", c.vanity, c.first, c.last, "co"}),
                  (std::vector<std::string>{contact.backend, contact.uid, contact.text3, contact.firstName,
                                            contact.lastName, contact.company}));
        EXPECT_TRUE(c.optional == contact.optionalText);
        contact.backend = contact.uid = contact.text3 = contact.firstName = contact.lastName = contact.company = "";
        contact.optionalText = boost::none;
        EXPECT_EQ(Contact(), contact) << "nothing else is set";
    }
}

/* Keypad keys (2 abc .. 9 wxyz) of every ISO-8859-1 byte: accented letters
 * take their base letter's (eth as d, thorn as t, sharp s as s); the
 * multiplication and division signs and everything but letters and digits
 * have none. */
TEST(ContactValue, VanityKeyOfEveryByte)
{
    std::string all;
    for (int b = 0; b < 256; ++b)
        all += static_cast<char>(b);
    EXPECT_EQ(std::string("0123456789") + "22233344455566677778889999" + "22233344455566677778889999" +
                  "22222222" "3333" "4444" "3" "666666" "6" "8888" "9" "8" "7" +   // 0xC0..0xDF
                  "22222222" "3333" "4444" "3" "666666" "6" "8888" "9" "8" "9",    // 0xE0..0xFF
              vanityKey(all));
}
