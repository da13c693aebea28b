#include "Tools/ORBTString.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace
{

const char WhiteSpace[] = " \t\n\r";

unsigned int SafeLength(const char* s)
{
    return s ? static_cast<unsigned int>(strlen(s)) : 0;
}

bool InSet(char c, const char* set, unsigned int setLength)
{
    for (unsigned int i = 0; i < setLength; ++i)
    {
        if (set[i] == c)
        {
            return true;
        }
    }
    return false;
}

// First index in [from, size) whose membership of the set equals 'member', or npos.
unsigned int ScanForward(const char* str, unsigned int size, unsigned int from, const char* set,
                         unsigned int setLength, bool member)
{
    for (unsigned int i = from; i < size; ++i)
    {
        if (InSet(str[i], set, setLength) == member)
        {
            return i;
        }
    }
    return CORBTString::npos;
}

// Last index in [0, start] whose membership of the set equals 'member', or npos.
unsigned int ScanBackward(const char* str, unsigned int start, const char* set, unsigned int setLength, bool member)
{
    for (unsigned int i = start + 1; i-- > 0;)
    {
        if (InSet(str[i], set, setLength) == member)
        {
            return i;
        }
    }
    return CORBTString::npos;
}

bool MatchesAt(const char* str, unsigned int at, const char* sub, unsigned int subLength)
{
    return subLength == 0 || memcmp(str + at, sub, subLength) == 0;
}

// Signed byte comparison of two stretches; equal prefixes are decided by length.
int CompareStretches(const char* a, unsigned int aLength, const char* b, unsigned int bLength)
{
    const unsigned int common = aLength < bLength ? aLength : bLength;
    for (unsigned int i = 0; i < common; ++i)
    {
        const signed char ca = static_cast<signed char>(a[i]);
        const signed char cb = static_cast<signed char>(b[i]);
        if (ca != cb)
        {
            return ca < cb ? -1 : 1;
        }
    }
    if (bLength < aLength)
    {
        return 1;
    }
    return aLength < bLength ? -1 : 0;
}

// Length of the stretch [pos, pos + count) clipped to a string of the given size.
unsigned int ClipCount(unsigned int size, unsigned int pos, unsigned int count)
{
    if (pos >= size)
    {
        return 0;
    }
    return count < size - pos ? count : size - pos;
}

CORBTString FormatV(const char* fmt, va_list args)
{
    va_list measure;
    va_copy(measure, args);
    const int length = vsnprintf(NULL, 0, fmt, measure);
    va_end(measure);
    if (length <= 0)
    {
        return CORBTString();
    }
    char* buffer = static_cast<char*>(malloc(static_cast<size_t>(length) + 1));
    vsnprintf(buffer, static_cast<size_t>(length) + 1, fmt, args);
    CORBTString result(buffer, static_cast<unsigned int>(length));
    free(buffer);
    return result;
}

} // namespace

// ---------------------------------------------------------------------------
// Construction and assignment

CORBTString::CORBTString(const char* s, unsigned int n)
    : m_pString(NULL), m_Size(0), m_Capacity(0)
{
    if (!s)
    {
        n = 0;
    }
    else if (n == npos)
    {
        n = SafeLength(s);
    }
    Replace(s, n);
}

CORBTString::CORBTString(const CORBTString& s, unsigned int start, unsigned int count)
    : m_pString(NULL), m_Size(0), m_Capacity(0)
{
    const unsigned int n = ClipCount(s.m_Size, start, count);
    Replace(n ? s.m_pString + start : NULL, n);
}

CORBTString::CORBTString(unsigned int count, char c)
    : m_pString(NULL), m_Size(0), m_Capacity(0)
{
    Replace(NULL, 0);
    append(count, c);
}

CORBTString::CORBTString(char c)
    : m_pString(NULL), m_Size(0), m_Capacity(0)
{
    Replace(&c, 1);
}

CORBTString::CORBTString(const CORBTString& s)
    : m_pString(NULL), m_Size(0), m_Capacity(0)
{
    Replace(s.m_pString, s.m_Size);
}

CORBTString::~CORBTString()
{
    free(m_pString);
}

void CORBTString::Replace(const char* src, unsigned int n)
{
    // The old buffer is released only after the copy, so src may point into it.
    char* buffer = static_cast<char*>(malloc(static_cast<size_t>(n) + 1));
    if (n)
    {
        memcpy(buffer, src, n);
    }
    buffer[n] = 0;
    free(m_pString);
    m_pString = buffer;
    m_Size = n;
    m_Capacity = n + 1;
}

CORBTString& CORBTString::operator=(const CORBTString& s)
{
    return assign(s);
}

CORBTString& CORBTString::operator=(const char* s)
{
    return assign(s);
}

CORBTString& CORBTString::operator=(char c)
{
    return assign(1, c);
}

CORBTString& CORBTString::assign(const char* s, unsigned int n)
{
    if (!s)
    {
        n = 0;
    }
    else if (n == npos)
    {
        n = SafeLength(s);
    }
    if (m_Capacity <= n)
    {
        Replace(s, n);
        return *this;
    }
    if (n)
    {
        memmove(m_pString, s, n);
    }
    m_pString[n] = 0;
    m_Size = n;
    return *this;
}

CORBTString& CORBTString::assign(const CORBTString& s)
{
    if (&s == this)
    {
        return *this;
    }
    return assign(s.m_pString, s.m_Size);
}

CORBTString& CORBTString::assign(const CORBTString& s, unsigned int pos, unsigned int count)
{
    const unsigned int n = ClipCount(s.m_Size, pos, count);
    return assign(s.m_pString + (n ? pos : 0), n);
}

CORBTString& CORBTString::assign(unsigned int count, char c)
{
    if (m_Capacity <= count)
    {
        Replace(NULL, 0);
        return append(count, c);
    }
    memset(m_pString, c, count);
    m_pString[count] = 0;
    m_Size = count;
    return *this;
}

// ---------------------------------------------------------------------------
// Appending and sizing

CORBTString& CORBTString::append(const char* s, unsigned int n)
{
    if (!s)
    {
        return *this;
    }
    if (n == npos)
    {
        n = SafeLength(s);
    }
    if (n == 0)
    {
        return *this;
    }
    const unsigned int newSize = m_Size + n;
    if (m_Capacity < newSize + 1)
    {
        // Exact growth. The source may be this string's own buffer, so it is
        // read before the old buffer goes.
        char* buffer = static_cast<char*>(malloc(static_cast<size_t>(newSize) + 1));
        memcpy(buffer, m_pString, m_Size);
        memcpy(buffer + m_Size, s, n);
        free(m_pString);
        m_pString = buffer;
        m_Capacity = newSize + 1;
    }
    else
    {
        memmove(m_pString + m_Size, s, n);
    }
    m_Size = newSize;
    m_pString[m_Size] = 0;
    return *this;
}

CORBTString& CORBTString::append(const CORBTString& s)
{
    return append(s.m_pString, s.m_Size);
}

CORBTString& CORBTString::append(const CORBTString& s, unsigned int pos, unsigned int count)
{
    const unsigned int n = ClipCount(s.m_Size, pos, count);
    return n ? append(s.m_pString + pos, n) : *this;
}

CORBTString& CORBTString::append(unsigned int count, char c)
{
    if (count == 0)
    {
        return *this;
    }
    const unsigned int newSize = m_Size + count;
    if (m_Capacity < newSize + 1)
    {
        m_pString = static_cast<char*>(realloc(m_pString, static_cast<size_t>(newSize) + 1));
        m_Capacity = newSize + 1;
    }
    memset(m_pString + m_Size, c, count);
    m_Size = newSize;
    m_pString[m_Size] = 0;
    return *this;
}

CORBTString& CORBTString::operator+=(const CORBTString& s)
{
    return append(s);
}

CORBTString& CORBTString::operator+=(const char* s)
{
    return append(s);
}

CORBTString& CORBTString::operator+=(char c)
{
    return append(1, c);
}

void CORBTString::push_back(char c)
{
    append(1, c);
}

void CORBTString::clear()
{
    resize(0);
}

void CORBTString::reserve(unsigned int n)
{
    if (m_Capacity > n)
    {
        return;
    }
    m_pString = static_cast<char*>(realloc(m_pString, static_cast<size_t>(n) + 1));
    m_Capacity = n + 1;
}

void CORBTString::resize(unsigned int n, char c)
{
    if (n > m_Size)
    {
        append(n - m_Size, c);
    }
    else
    {
        m_pString[n] = 0;
        m_Size = n;
    }
}

CORBTString& CORBTString::erase(unsigned int pos, unsigned int count)
{
    const unsigned long long end = static_cast<unsigned long long>(pos) + count;
    if (count == npos || end >= m_Size)
    {
        resize(pos, 0);
        return *this;
    }
    // The tail moves down with its terminator; the stored length stays.
    memmove(m_pString + pos, m_pString + end, m_Size - static_cast<unsigned int>(end) + 1);
    return *this;
}

void CORBTString::swap(CORBTString& s)
{
    char* p = m_pString;
    m_pString = s.m_pString;
    s.m_pString = p;
    const unsigned int size = m_Size;
    m_Size = s.m_Size;
    s.m_Size = size;
    const unsigned int capacity = m_Capacity;
    m_Capacity = s.m_Capacity;
    s.m_Capacity = capacity;
}

char& CORBTString::at(unsigned int i)
{
    return m_pString[i < m_Size ? i : m_Size];
}

const char& CORBTString::at(unsigned int i) const
{
    return m_pString[i < m_Size ? i : m_Size];
}

// ---------------------------------------------------------------------------
// Pieces and comparison

CORBTString CORBTString::left(unsigned int n) const
{
    return n < m_Size ? CORBTString(*this, 0, n) : *this;
}

CORBTString CORBTString::right(unsigned int n) const
{
    return n < m_Size ? CORBTString(*this, m_Size - n, n) : *this;
}

CORBTString CORBTString::substr(unsigned int start, unsigned int count) const
{
    return CORBTString(*this, start, count);
}

unsigned int CORBTString::copy(char* dest, unsigned int count, unsigned int pos) const
{
    if (!dest)
    {
        return 0;
    }
    const unsigned int n = ClipCount(m_Size, pos, count);
    if (n)
    {
        memcpy(dest, m_pString + pos, n);
    }
    return count;
}

int CORBTString::compare(const CORBTString& s) const
{
    return strcmp(m_pString, s.m_pString);
}

int CORBTString::compare(const char* s) const
{
    return strcmp(m_pString, s ? s : "");
}

int CORBTString::compare(unsigned int pos, unsigned int count, const CORBTString& s) const
{
    return compare(pos, count, s, 0, npos);
}

int CORBTString::compare(unsigned int pos, unsigned int count, const CORBTString& s,
                         unsigned int pos2, unsigned int count2) const
{
    const unsigned int n = ClipCount(m_Size, pos, count);
    const unsigned int n2 = ClipCount(s.m_Size, pos2, count2);
    return CompareStretches(m_pString + (n ? pos : 0), n, s.m_pString + (n2 ? pos2 : 0), n2);
}

int CORBTString::compare(unsigned int pos, unsigned int count, const char* s) const
{
    return compare(pos, count, s, SafeLength(s));
}

int CORBTString::compare(unsigned int pos, unsigned int count, const char* s, unsigned int count2) const
{
    const unsigned int n = ClipCount(m_Size, pos, count);
    return CompareStretches(m_pString + (n ? pos : 0), n, s ? s : "", s ? count2 : 0);
}

CORBTString& CORBTString::toLower()
{
    for (char* p = m_pString; *p; ++p)
    {
        if (*p >= 'A' && *p <= 'Z')
        {
            *p = static_cast<char>(*p - 'A' + 'a');
        }
    }
    return *this;
}

CORBTString& CORBTString::toUpper()
{
    for (char* p = m_pString; *p; ++p)
    {
        if (*p >= 'a' && *p <= 'z')
        {
            *p = static_cast<char>(*p - 'a' + 'A');
        }
    }
    return *this;
}

CORBTString CORBTString::format(const char* fmt, ...)
{
    va_list args;
    va_start(args, fmt);
    CORBTString result = FormatV(fmt, args);
    va_end(args);
    assign(result);
    return *this;
}

CORBTString CORBTString::formatPositional(const char* fmt, ...)
{
    va_list args;
    va_start(args, fmt);
    CORBTString result = FormatV(fmt, args);
    va_end(args);
    assign(result);
    return *this;
}

// ---------------------------------------------------------------------------
// Searching

unsigned int CORBTString::find(char c, unsigned int pos) const
{
    return find(&c, pos, 1);
}

unsigned int CORBTString::find(const char* s, unsigned int pos) const
{
    return find(s, pos, SafeLength(s));
}

unsigned int CORBTString::find(const CORBTString& s, unsigned int pos) const
{
    return find(s.m_pString, pos, s.m_Size);
}

unsigned int CORBTString::find(const char* s, unsigned int pos, unsigned int length) const
{
    if (!s || pos >= m_Size || length > m_Size)
    {
        return npos;
    }
    for (unsigned int i = pos; i <= m_Size - length; ++i)
    {
        if (MatchesAt(m_pString, i, s, length))
        {
            return i;
        }
    }
    return npos;
}

unsigned int CORBTString::find_first_of(char c, unsigned int pos) const
{
    return find_first_of(&c, pos, 1);
}

unsigned int CORBTString::find_first_of(const char* set, unsigned int pos) const
{
    return find_first_of(set, pos, SafeLength(set));
}

unsigned int CORBTString::find_first_of(const CORBTString& set, unsigned int pos) const
{
    return find_first_of(set.m_pString, pos, set.m_Size);
}

unsigned int CORBTString::find_first_of(const char* set, unsigned int pos, unsigned int length) const
{
    if (!set)
    {
        return npos;
    }
    return ScanForward(m_pString, m_Size, pos, set, length, true);
}

unsigned int CORBTString::find_first_not_of(char c, unsigned int pos) const
{
    return find_first_not_of(&c, pos, 1);
}

unsigned int CORBTString::find_first_not_of(const char* set, unsigned int pos) const
{
    return find_first_not_of(set, pos, SafeLength(set));
}

unsigned int CORBTString::find_first_not_of(const CORBTString& set, unsigned int pos) const
{
    return find_first_not_of(set.m_pString, pos, set.m_Size);
}

unsigned int CORBTString::find_first_not_of(const char* set, unsigned int pos, unsigned int length) const
{
    return ScanForward(m_pString, m_Size, pos, set, set ? length : 0, false);
}

unsigned int CORBTString::find_first_ofn(const char* s, unsigned int pos, unsigned int length) const
{
    if (strlen(m_pString) < length)
    {
        return npos;
    }
    return find(s, pos, length);
}

unsigned int CORBTString::find_last_of(char c, unsigned int pos) const
{
    return find_last_of(&c, pos, 1);
}

unsigned int CORBTString::find_last_of(const char* set, unsigned int pos) const
{
    return find_last_of(set, pos, SafeLength(set));
}

unsigned int CORBTString::find_last_of(const CORBTString& set, unsigned int pos) const
{
    return find_last_of(set.m_pString, pos, set.m_Size);
}

unsigned int CORBTString::find_last_of(const char* set, unsigned int pos, unsigned int length) const
{
    // Counted from the end; an empty string or a pos past the start wraps out of range.
    const unsigned int start = m_Size - 1 - pos;
    if (!set || start >= m_Size)
    {
        return npos;
    }
    return ScanBackward(m_pString, start, set, length, true);
}

unsigned int CORBTString::find_last_not_of(char c, unsigned int pos) const
{
    return find_last_not_of(&c, pos, 1);
}

unsigned int CORBTString::find_last_not_of(const char* set, unsigned int pos) const
{
    return find_last_not_of(set, pos, SafeLength(set));
}

unsigned int CORBTString::find_last_not_of(const CORBTString& set, unsigned int pos) const
{
    return find_last_not_of(set.m_pString, pos, set.m_Size);
}

unsigned int CORBTString::find_last_not_of(const char* set, unsigned int pos, unsigned int length) const
{
    const unsigned int start = m_Size - 1 - pos;
    if (start >= m_Size)
    {
        return npos;
    }
    return ScanBackward(m_pString, start, set, set ? length : 0, false);
}

unsigned int CORBTString::find_number_of(char c, unsigned int pos) const
{
    return find_number_of(&c, pos, 1);
}

unsigned int CORBTString::find_number_of(const char* s, unsigned int pos) const
{
    return find_number_of(s, pos, SafeLength(s));
}

unsigned int CORBTString::find_number_of(const CORBTString& s, unsigned int pos) const
{
    return find_number_of(s.m_pString, pos, s.m_Size);
}

unsigned int CORBTString::find_number_of(const char* s, unsigned int pos, unsigned int length) const
{
    if (!s || length == 0 || pos >= m_Size || length > m_Size)
    {
        return 0;
    }
    unsigned int count = 0;
    for (unsigned int i = pos; i <= m_Size - length; ++i)
    {
        if (MatchesAt(m_pString, i, s, length))
        {
            ++count;
        }
    }
    return count;
}

unsigned int CORBTString::find_next_occurance_of(char c, unsigned int pos) const
{
    return find_next_occurance_of(&c, pos, 1);
}

unsigned int CORBTString::find_next_occurance_of(const char* s, unsigned int pos) const
{
    return find_next_occurance_of(s, pos, SafeLength(s));
}

unsigned int CORBTString::find_next_occurance_of(const CORBTString& s, unsigned int pos) const
{
    return find_next_occurance_of(s.m_pString, pos, s.m_Size);
}

unsigned int CORBTString::find_next_occurance_of(const char* s, unsigned int pos, unsigned int length) const
{
    const unsigned int found = find(s, pos, length);
    return found == npos ? m_Size : found;
}

unsigned int CORBTString::find_previous_occurance_of(char c, unsigned int pos) const
{
    return find_previous_occurance_of(&c, pos, 1);
}

unsigned int CORBTString::find_previous_occurance_of(const char* s, unsigned int pos) const
{
    return find_previous_occurance_of(s, pos, SafeLength(s));
}

unsigned int CORBTString::find_previous_occurance_of(const CORBTString& s, unsigned int pos) const
{
    return find_previous_occurance_of(s.m_pString, pos, s.m_Size);
}

unsigned int CORBTString::find_previous_occurance_of(const char* s, unsigned int pos, unsigned int length) const
{
    if (!s || pos == 0 || length > m_Size)
    {
        return npos;
    }
    // A match must fit inside the string, so the start is clipped to the last place one can begin.
    const unsigned int last = m_Size - length;
    for (unsigned int i = pos < last ? pos : last; i >= 1; --i)
    {
        if (MatchesAt(m_pString, i, s, length))
        {
            return i;
        }
    }
    return npos;
}

// ---------------------------------------------------------------------------
// Substitution

CORBTString& CORBTString::substitute(char a, char b, bool all)
{
    for (unsigned int i = 0; i < m_Size; ++i)
    {
        if (m_pString[i] == a)
        {
            m_pString[i] = b;
            if (!all)
            {
                break;
            }
        }
    }
    return *this;
}

CORBTString& CORBTString::substitute(const char* a, const char* b, bool all)
{
    const unsigned int aLength = SafeLength(a);
    if (aLength == 0)
    {
        return *this;
    }
    const unsigned int bLength = SafeLength(b);
    unsigned int pos = find(a, 0, aLength);
    while (pos != npos)
    {
        CORBTString rebuilt(*this, 0, pos);
        rebuilt.append(b, bLength);
        rebuilt.append(*this, pos + aLength);
        swap(rebuilt);
        if (!all)
        {
            break;
        }
        // Continue after the inserted text so it is never scanned again.
        pos = find(a, pos + bLength, aLength);
    }
    return *this;
}

// ---------------------------------------------------------------------------
// Free functions

CORBTString operator+(const CORBTString& a, const CORBTString& b)
{
    CORBTString result(a);
    return result.append(b);
}

CORBTString operator+(const CORBTString& a, const char* b)
{
    CORBTString result(a);
    return result.append(b);
}

CORBTString operator+(const char* a, const CORBTString& b)
{
    CORBTString result(a);
    return result.append(b);
}

CORBTString operator+(const CORBTString& a, char b)
{
    CORBTString result(a);
    return result.append(1, b);
}

CORBTString operator+(char a, const CORBTString& b)
{
    CORBTString result(a);
    return result.append(b);
}

namespace
{

// Last '/', or when there is none the last '\\'.
unsigned int LastSeparator(const CORBTString& path)
{
    const unsigned int slash = path.find_last_of('/');
    return slash != CORBTString::npos ? slash : path.find_last_of('\\');
}

} // namespace

CORBTString ORBTStringGetFileExtension(const CORBTString& path)
{
    const unsigned int dot = path.find_last_of('.');
    return dot == CORBTString::npos ? CORBTString() : path.substr(dot);
}

CORBTString ORBTStringGetContainingDirectoryPath(const CORBTString& path)
{
    const unsigned int separator = LastSeparator(path);
    return separator == CORBTString::npos ? CORBTString() : path.substr(0, separator);
}

CORBTString ORBTStringGetFileName(const CORBTString& path)
{
    const unsigned int separator = LastSeparator(path);
    return separator == CORBTString::npos ? path : path.substr(separator + 1);
}

CORBTString ORBTStringStripWhiteSpaceFromStartOf(const CORBTString& s)
{
    const unsigned int first = s.find_first_not_of(WhiteSpace);
    return first == CORBTString::npos ? s : s.substr(first);
}

CORBTString ORBTStringStripWhiteSpaceFromEndOf(const CORBTString& s)
{
    const unsigned int last = s.find_last_not_of(WhiteSpace);
    return last == CORBTString::npos ? s : s.substr(0, last + 1);
}

CORBTString ORBTStringFromFormattedStr(const char* fmt, ...)
{
    va_list args;
    va_start(args, fmt);
    CORBTString result = FormatV(fmt, args);
    va_end(args);
    return result;
}

CORBTString ORBTStringFromFormattedStrPositional(const char* fmt, ...)
{
    va_list args;
    va_start(args, fmt);
    CORBTString result = FormatV(fmt, args);
    va_end(args);
    return result;
}
