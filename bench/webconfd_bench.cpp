/*
 * webconfd's name and vanity searches at 1,000 and 100,000 contacts, side
 * by side: a narrow search finds one contact, a broad one a thirtieth
 * ("schr") or a quarter ("724") of the phonebook. The store is filled with
 * made-up contacts in a temporary directory; each figure is the median of
 * many searches of the first page (100 contacts, with the total counted).
 */
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <string>
#include <vector>

#include "store.h"

namespace {

/* Last names begin with one of these: 1 in 30 with "Schr", 8 in 30 with
 * the keypad digits 724 (s/r/p c/a/b h/i/g). */
const char* const kStems[30] = {"Schr", "Schm", "Sag",  "Rai",  "Rah",  "Pbi",  "Scha", "Rag",  "Bau",  "Dorn",
                                "Ernst", "Fuchs", "Gold", "Horn", "Iser", "Jung", "Kern", "Lang", "Moor", "Nagel",
                                "Ott",  "Tal",  "Ufer", "Voss", "Wolf", "Zorn", "Kolb", "Lutz", "Mohr", "Teich"};

/* A distinct lower-case tail for every contact. */
std::string tail(int i)
{
    std::string t;
    for (int k = 0; k < 4; k++, i /= 26)
        t += static_cast<char>('a' + i % 26);
    return t;
}

std::string lastName(int i) { return kStems[i % 30] + tail(i / 30); }

/* "W" and `i` in base 8, one letter of each key from 2 to 9 a digit, so
 * that every contact has keypad digits of its own: "9" and the digits. */
std::string firstName(int i, std::string* digits = nullptr)
{
    std::string name = "W", keys = "9";
    for (int k = 0; k < 6; k++, i /= 8) {
        name += "adgjmptw"[i % 8];
        keys += static_cast<char>('2' + i % 8);
    }
    if (digits != nullptr)
        *digits = keys;
    return name;
}

struct Search {
    const char* label;
    bool vanity;
    std::string value;
};

struct Figure {
    double us;
    int32_t total;
};

Figure measure(webconfd::Store& store, const Search& s, int rounds)
{
    std::vector<double> times;
    int32_t total = 0;
    for (int r = 0; r < rounds; r++) {
        const auto start = std::chrono::steady_clock::now();
        const webconfd::Found<ZEMBRA::Phonebook::Contact> found =
            s.vanity ? store.contactsByKeypad(s.value, webconfd::Page()) : store.contactsByName(s.value, webconfd::Page());
        times.push_back(std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - start).count());
        total = found.total;
    }
    std::sort(times.begin(), times.end());
    return Figure{times[times.size() / 2], total};
}

bool fill(webconfd::Store& store, const std::string& path, int contacts)
{
    std::string error;
    if (!store.open(path, &error)) {
        std::fprintf(stderr, "webconfd_bench: %s: %s\n", path.c_str(), error.c_str());
        return false;
    }
    store.begin();
    for (int i = 0; i < contacts; i++) {
        ZEMBRA::Phonebook::Contact c;
        c.lastName = lastName(i);
        c.firstName = firstName(i);
        c.numbers.push_back(ZEMBRA::Phonebook::ContactNumber{"", "0711 " + std::to_string(100000 + i), "", "", 2, 0, 0});
        if (store.putContact(c) != webconfd::Change::Added)
            return false;
    }
    return store.commit();
}

}  // namespace

int main()
{
    char dir[] = "/tmp/webconfd-bench-XXXXXX";
    if (mkdtemp(dir) == nullptr)
        return 1;
    const int sizes[2] = {1000, 100000};
    /* Contact 7 is in both phonebooks: by its last name, and by the
     * keypad digits of its first name. */
    std::string digits;
    firstName(7, &digits);
    const Search searches[] = {
        {"name narrow", false, lastName(7)},
        {"name broad", false, "schr"},
        {"vanity narrow", true, digits},
        {"vanity broad", true, "724"},
    };
    Figure figures[4][2];
    for (int n = 0; n < 2; n++) {
        webconfd::Store store;
        const std::string path = std::string(dir) + "/pb" + std::to_string(sizes[n]) + ".db";
        if (!fill(store, path, sizes[n]))
            return 1;
        for (int s = 0; s < 4; s++)
            figures[s][n] = measure(store, searches[s], n == 0 ? 400 : 40);
        store.close();
        ::unlink(path.c_str());
    }
    ::rmdir(dir);
    std::printf("  %-14s %-10s %10s %10s %12s %12s %8s\n", "search", "value", "found 1k", "found 100k", "us at 1k",
                "us at 100k", "ratio");
    for (int s = 0; s < 4; s++)
        std::printf("  %-14s %-10s %10d %10d %12.1f %12.1f %7.1fx\n", searches[s].label, searches[s].value.c_str(),
                    static_cast<int>(figures[s][0].total), static_cast<int>(figures[s][1].total), figures[s][0].us,
                    figures[s][1].us, figures[s][1].us / figures[s][0].us);
    return 0;
}
