/*
 * What the daemon's searches mean, as keys: every stored contact carries
 * the keys of its names and numbers, and a search computes the same key of
 * what was typed. A match is then plain equality (numbers) or a prefix
 * (names, keypad digits), which the store leaves to SQLite. Texts are
 * ISO-8859-1, as in the phonebook library.
 */
#ifndef WEBCONFD_MATCH_H
#define WEBCONFD_MATCH_H

#include <string>

namespace webconfd {

/* Country whose numbers are also dialled with the trunk prefix 0. */
constexpr char kHomeCountryCode[] = "49";

/* The number as the network sees it, so that every way of writing one
 * number gives one key: separators (blank, tab, - / . ( )) are dropped;
 * "+CC", "00CC" and, for the home country, "0" become "+CC" followed by
 * the national significant number; "+49 (0)711" drops the "(0)". A number
 * without any prefix (an extension) stays as its digits. Anything else in
 * it (letters, * #) keeps the text, minus separators, as its own key.
 * "" for a text without digits. */
std::string numberKey(const std::string& dialString);

/* The name with its letters in lower case, ISO-8859-1 letters included
 * (Ö -> ö); ß and ÿ have no upper case in ISO-8859-1 and stay. */
std::string nameKey(const std::string& latin1);

/* Phonebook order: lower case with accents dropped (ö -> o, ß -> ss, æ ->
 * ae), so "Öhlenbach" files under O, not after Z. */
std::string sortKey(const std::string& latin1);

/* The keypad digits a user typed for a vanity search: digits only. */
std::string typedDigits(const std::string& text);

}  // namespace webconfd

#endif
