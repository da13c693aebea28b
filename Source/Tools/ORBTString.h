#ifndef ORBTSTRING_H
#define ORBTSTRING_H

// Zero-terminated byte string of the public interface. The buffer comes from
// malloc/realloc and is released with free; the capacity counts the terminator.
//
// Points where it differs from the usual string:
// - growth is exact, never geometric;
// - erase() in the middle moves the tail down but keeps the stored length;
// - copy() returns the requested count;
// - find_first_ofn() is a substring search;
// - find_last_of()/find_last_not_of() take a position counted from the end;
// - find_next_occurance_of() reports a miss with the length;
// - find_previous_occurance_of() never looks at index 0.

#include "Tools/ORBTDefines.h"

class ORBT_API CORBTString
{
public:
    static const unsigned int npos = 0xFFFFFFFF;

    // A count of npos takes the whole zero-terminated string; any other count
    // copies exactly that many bytes. A null pointer gives the empty string.
    CORBTString(const char* s = "", unsigned int n = npos);
    CORBTString(const CORBTString& s, unsigned int start, unsigned int count = npos);
    CORBTString(unsigned int count, char c);
    CORBTString(char c);
    CORBTString(const CORBTString& s);
    virtual ~CORBTString();

    CORBTString& operator=(const CORBTString& s);
    CORBTString& operator=(const char* s);
    CORBTString& operator=(char c);

    CORBTString& append(const char* s, unsigned int n = npos);
    CORBTString& append(const CORBTString& s);
    CORBTString& append(const CORBTString& s, unsigned int pos, unsigned int count = npos);
    CORBTString& append(unsigned int count, char c);

    CORBTString& assign(const char* s, unsigned int n = npos);
    CORBTString& assign(const CORBTString& s);
    CORBTString& assign(const CORBTString& s, unsigned int pos, unsigned int count = npos);
    CORBTString& assign(unsigned int count, char c);

    CORBTString& operator+=(const CORBTString& s);
    CORBTString& operator+=(const char* s);
    CORBTString& operator+=(char c);
    void push_back(char c);

    const char* c_str() const { return m_pString; }
    const char* data() const { return m_pString; }
    char* data() { return m_pString; }
    unsigned int length() const { return m_Size; }
    unsigned int size() const { return m_Size; }
    unsigned int capacity() const { return m_Capacity; }
    bool empty() const { return m_Size == 0; }

    void clear();
    void reserve(unsigned int n);
    void resize(unsigned int n, char c = 0);
    CORBTString& erase(unsigned int pos = 0, unsigned int count = npos);
    void swap(CORBTString& s);

    // Unchecked.
    char& operator[](unsigned int i) { return m_pString[i]; }
    const char& operator[](unsigned int i) const { return m_pString[i]; }
    // Checked: an index not below the length gives the terminator.
    char& at(unsigned int i);
    const char& at(unsigned int i) const;

    CORBTString left(unsigned int n) const;
    CORBTString right(unsigned int n) const;
    CORBTString substr(unsigned int start = 0, unsigned int count = npos) const;
    unsigned int copy(char* dest, unsigned int count, unsigned int pos = 0) const;

    // Whole-string forms compare the zero-terminated bytes like strcmp.
    int compare(const CORBTString& s) const;
    int compare(const char* s) const;
    // Ranged forms compare signed bytes and give -1, 0 or 1.
    int compare(unsigned int pos, unsigned int count, const CORBTString& s) const;
    int compare(unsigned int pos, unsigned int count, const CORBTString& s,
                unsigned int pos2, unsigned int count2 = npos) const;
    int compare(unsigned int pos, unsigned int count, const char* s) const;
    int compare(unsigned int pos, unsigned int count, const char* s, unsigned int count2) const;

    bool operator==(const CORBTString& s) const { return compare(s) == 0; }
    bool operator!=(const CORBTString& s) const { return compare(s) != 0; }
    bool operator<(const CORBTString& s) const { return compare(s) < 0; }
    bool operator>(const CORBTString& s) const { return compare(s) > 0; }
    bool operator<=(const CORBTString& s) const { return compare(s) <= 0; }
    bool operator>=(const CORBTString& s) const { return compare(s) >= 0; }
    bool operator==(const char* s) const { return compare(s) == 0; }
    bool operator!=(const char* s) const { return compare(s) != 0; }
    bool operator<(const char* s) const { return compare(s) < 0; }
    bool operator>(const char* s) const { return compare(s) > 0; }
    bool operator<=(const char* s) const { return compare(s) <= 0; }
    bool operator>=(const char* s) const { return compare(s) >= 0; }

    // ASCII only, up to the first zero byte.
    CORBTString& toLower();
    CORBTString& toUpper();

    // Replace the contents with the printf-style result and return a copy.
    CORBTString format(const char* fmt, ...) __attribute__((format(printf, 2, 3)));
    CORBTString formatPositional(const char* fmt, ...) __attribute__((format(printf, 2, 3)));

    // First occurrence of the bytes at or after pos.
    unsigned int find(char c, unsigned int pos = 0) const;
    unsigned int find(const char* s, unsigned int pos = 0) const;
    unsigned int find(const CORBTString& s, unsigned int pos = 0) const;
    unsigned int find(const char* s, unsigned int pos, unsigned int length) const;

    unsigned int find_first_of(char c, unsigned int pos = 0) const;
    unsigned int find_first_of(const char* set, unsigned int pos = 0) const;
    unsigned int find_first_of(const CORBTString& set, unsigned int pos = 0) const;
    unsigned int find_first_of(const char* set, unsigned int pos, unsigned int length) const;

    unsigned int find_first_not_of(char c, unsigned int pos = 0) const;
    unsigned int find_first_not_of(const char* set, unsigned int pos = 0) const;
    unsigned int find_first_not_of(const CORBTString& set, unsigned int pos = 0) const;
    unsigned int find_first_not_of(const char* set, unsigned int pos, unsigned int length) const;

    // Substring search that also requires strlen(c_str()) >= length.
    unsigned int find_first_ofn(const char* s, unsigned int pos, unsigned int length) const;

    // Backward scans; pos counts from the end (0 is the last character).
    unsigned int find_last_of(char c, unsigned int pos = 0) const;
    unsigned int find_last_of(const char* set, unsigned int pos = 0) const;
    unsigned int find_last_of(const CORBTString& set, unsigned int pos = 0) const;
    unsigned int find_last_of(const char* set, unsigned int pos, unsigned int length) const;

    unsigned int find_last_not_of(char c, unsigned int pos = 0) const;
    unsigned int find_last_not_of(const char* set, unsigned int pos = 0) const;
    unsigned int find_last_not_of(const CORBTString& set, unsigned int pos = 0) const;
    unsigned int find_last_not_of(const char* set, unsigned int pos, unsigned int length) const;

    // Number of (possibly overlapping) occurrences at or after pos.
    unsigned int find_number_of(char c, unsigned int pos = 0) const;
    unsigned int find_number_of(const char* s, unsigned int pos = 0) const;
    unsigned int find_number_of(const CORBTString& s, unsigned int pos = 0) const;
    unsigned int find_number_of(const char* s, unsigned int pos, unsigned int length) const;

    // Forward search from pos; a miss gives length(), not npos.
    unsigned int find_next_occurance_of(char c, unsigned int pos = 0) const;
    unsigned int find_next_occurance_of(const char* s, unsigned int pos = 0) const;
    unsigned int find_next_occurance_of(const CORBTString& s, unsigned int pos = 0) const;
    unsigned int find_next_occurance_of(const char* s, unsigned int pos, unsigned int length) const;

    // Backward search from pos down to index 1; index 0 is never examined.
    unsigned int find_previous_occurance_of(char c, unsigned int pos = 0) const;
    unsigned int find_previous_occurance_of(const char* s, unsigned int pos = 0) const;
    unsigned int find_previous_occurance_of(const CORBTString& s, unsigned int pos = 0) const;
    unsigned int find_previous_occurance_of(const char* s, unsigned int pos, unsigned int length) const;

    CORBTString& substitute(char a, char b, bool all = true);
    CORBTString& substitute(const char* a, const char* b, bool all = true);

protected:
    char* m_pString;
    unsigned int m_Size;
    unsigned int m_Capacity;

private:
    // Point at a fresh buffer of exactly n + 1 bytes holding n bytes of src.
    void Replace(const char* src, unsigned int n);
};

ORBT_API CORBTString operator+(const CORBTString& a, const CORBTString& b);
ORBT_API CORBTString operator+(const CORBTString& a, const char* b);
ORBT_API CORBTString operator+(const char* a, const CORBTString& b);
ORBT_API CORBTString operator+(const CORBTString& a, char b);
ORBT_API CORBTString operator+(char a, const CORBTString& b);

inline bool operator==(const char* a, const CORBTString& b) { return b.compare(a) == 0; }
inline bool operator!=(const char* a, const CORBTString& b) { return b.compare(a) != 0; }
inline bool operator<(const char* a, const CORBTString& b) { return b.compare(a) > 0; }
inline bool operator>(const char* a, const CORBTString& b) { return b.compare(a) < 0; }
inline bool operator<=(const char* a, const CORBTString& b) { return b.compare(a) >= 0; }
inline bool operator>=(const char* a, const CORBTString& b) { return b.compare(a) <= 0; }

inline void swap(CORBTString& a, CORBTString& b) { a.swap(b); }

// From the last '.' to the end, dot included; empty without a dot.
ORBT_API CORBTString ORBTStringGetFileExtension(const CORBTString& path);
// Before the last '/' (or, when there is none, the last '\\'); empty without either.
ORBT_API CORBTString ORBTStringGetContainingDirectoryPath(const CORBTString& path);
// After the last '/' (or, when there is none, the last '\\'); the whole path without either.
ORBT_API CORBTString ORBTStringGetFileName(const CORBTString& path);
// Without leading/trailing blanks, tabs, line feeds and carriage returns.
// A string of nothing but those comes back unchanged.
ORBT_API CORBTString ORBTStringStripWhiteSpaceFromStartOf(const CORBTString& s);
ORBT_API CORBTString ORBTStringStripWhiteSpaceFromEndOf(const CORBTString& s);

ORBT_API CORBTString ORBTStringFromFormattedStr(const char* fmt, ...) __attribute__((format(printf, 1, 2)));
ORBT_API CORBTString ORBTStringFromFormattedStrPositional(const char* fmt, ...) __attribute__((format(printf, 1, 2)));

#endif
