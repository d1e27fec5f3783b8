// The root class of the library's polymorphic classes, its static byte and
// string utilities, the owned byte buffer and the UTC time helpers.
#ifndef SIGNING_BASE_H
#define SIGNING_BASE_H

#include <cstdint>
#include <ctime>
#include <string>

namespace soapWrap {

// An owned byte buffer: data comes from array new, and whoever holds the
// record at the end deletes the array and then the record.
struct Binary {
    unsigned char* data;
    uint32_t size;
};

} // namespace soapWrap

class Base {
public:
    virtual ~Base();

    static unsigned int AlignUp(unsigned int value, unsigned int alignment);
    static unsigned long RoundUp(unsigned long value, unsigned char power);
    static unsigned long RFind(char* haystack, unsigned long haystackLength, char* needle,
                               unsigned long needleLength);
    static void SwapEndian(unsigned char* bytes, unsigned long count);
    static std::string StrTrim(std::string text);
    static std::string& Replace(std::string& text, unsigned long start, unsigned long end,
                                const std::string& from, const std::string& to);
    static std::string DumpBufferToString(unsigned char* bytes, unsigned long count, bool upperCase);
    static void DumpBuffer(unsigned char* bytes, unsigned long count);
};

bool is_leap_year(int year);
int leap_seconds(int year);
int32_t mktime_utc(tm* time);
std::string utc_time(const std::string& format);

// The pattern of acceptable path names, exported for the host.
extern const char* FILE_PATTERN;

#endif
