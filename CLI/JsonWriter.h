#ifndef ORBTEX_CLI_JSON_WRITER_H
#define ORBTEX_CLI_JSON_WRITER_H

// Builds one JSON value as compact text: objects and arrays are opened and
// closed in order, and the writer puts the commas and colons.

#include <cstdint>
#include <string>
#include <vector>

namespace cli
{

class JsonWriter
{
public:
    JsonWriter& BeginObject() { return Open('{'); }
    JsonWriter& EndObject() { return Close('}'); }
    JsonWriter& BeginArray() { return Open('['); }
    JsonWriter& EndArray() { return Close(']'); }
    // The name of the next member of an object.
    JsonWriter& Key(const std::string& name);
    JsonWriter& String(const std::string& value);
    JsonWriter& Number(uint64_t value);
    JsonWriter& Number(double value); // non-finite values are written as null
    JsonWriter& Bool(bool value);
    JsonWriter& Null();

    const std::string& Text() const { return m_text; }

private:
    JsonWriter& Open(char bracket);
    JsonWriter& Close(char bracket);
    void BeforeValue();

    std::string m_text;
    std::vector<bool> m_first; // per open container: no member yet
    bool m_afterKey = false;
};

} // namespace cli

#endif
