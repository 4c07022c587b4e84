#include "jsontext.h"

#include <memory>
#include <sstream>

#include <json/reader.h>
#include <json/writer.h>

namespace webconfd {

/* The writer and the reader are made once per thread: making them (their
 * settings are a JSON object filled member by member) cost more than most
 * texts they handle. Both start every text afresh. */
std::string compactJson(const Json::Value& value)
{
    thread_local const std::unique_ptr<Json::StreamWriter> writer([] {
        Json::StreamWriterBuilder builder;
        builder["indentation"] = "";
        return builder.newStreamWriter();
    }());
    std::ostringstream out;
    writer->write(value, &out);
    return out.str();
}

bool parseJson(const std::string& text, Json::Value* out, std::string* error)
{
    thread_local const std::unique_ptr<Json::CharReader> reader([] {
        Json::CharReaderBuilder builder;
        builder["failIfExtra"] = true;   // "{} trailing" is not one value
        builder["stackLimit"] = 100;     // records nest three deep
        return builder.newCharReader();
    }());
    std::string errors;
    bool parsed;
    try {
        parsed = reader->parse(text.data(), text.data() + text.size(), out, &errors);
    } catch (const Json::Exception& e) {
        /* jsoncpp throws when the nesting passes stackLimit. */
        errors = e.what();
        parsed = false;
    }
    if (!parsed && error) {
        /* jsoncpp's report spans lines ("* Line 1, Column 1\n  Syntax
         * error: ..."): make it one. */
        error->clear();
        bool blank = false;
        for (char c : errors) {
            const bool space = c == '\n' || c == ' ' || c == '\t';
            if (space && !error->empty() && !blank)
                *error += ' ';
            else if (!space)
                *error += c;
            blank = space;
        }
        while (!error->empty() && error->back() == ' ')
            error->pop_back();
        if (error->empty())
            *error = "not JSON";
    }
    return parsed;
}

}  // namespace webconfd
