/*
 * Reading records straight from the wire's UTF-8 JSON. Each text is
 * converted as it is taken, which gives what T::fromJson(utf8ToLatin1(json))
 * gives without building a converted copy of the tree first: that copy cost
 * about as much as parsing the reply. Member names need no conversion: the
 * names a record reads are ASCII, and no other name converts to one of them.
 */
#ifndef PHONEBOOK_SRC_WIRE_H
#define PHONEBOOK_SRC_WIRE_H

#include <cstddef>
#include <string>

#include <json/value.h>

#include "phonebook/records.h"

namespace ZEMBRA {
namespace Phonebook {
namespace detail {

/* utf8ToLatin1 of the bytes [utf8, utf8 + size), into *out. */
void utf8ToLatin1(const char* utf8, std::size_t size, std::string* out);

/* Fill a default-constructed record from its wire form. */
void readWire(const Json::Value& utf8, Contact* out);
void readWire(const Json::Value& utf8, Event* out);
void readWire(const Json::Value& utf8, Folder* out);

}  // namespace detail
}  // namespace Phonebook
}  // namespace ZEMBRA

#endif
