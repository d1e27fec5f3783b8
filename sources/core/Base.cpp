#include "Base.h"

#include "ContractTexts.h"
#include "Exceptions.h"

#include <cctype>
#include <cstdio>
#include <iomanip>
#include <iostream>

const char* FILE_PATTERN = contract::kFilePattern;

Base::~Base() = default;

unsigned int Base::AlignUp(unsigned int value, unsigned int alignment) {
    return (value + alignment - 1) & (0u - alignment);
}

unsigned long Base::RoundUp(unsigned long value, unsigned char power) {
    switch (power) {
    case 1:
    case 2:
    case 3:
    case 4:
    case 12:
    case 13:
    case 14:
    case 15:
        break;
    default:
        // Only the alignments the file formats use are supported; the gap
        // between 16 and 4096 is intended.
        throw NotImplementedException(contract::kRoundUpPower);
    }
    const unsigned long mask = (1UL << power) - 1;
    if ((value & mask) == 0) {
        return value;
    }
    return (value + mask + 1) & ~mask;
}

unsigned long Base::RFind(char* haystack, unsigned long haystackLength, char* needle,
                          unsigned long needleLength) {
    const unsigned long notFound = static_cast<unsigned long>(-1);
    if (needleLength == 0) {
        return notFound;
    }
    // The first candidate is truncated to 32 bits, and offset 0 is never
    // tested: a needle found only at the very start is "not found".
    long candidate = static_cast<int32_t>(static_cast<uint32_t>(haystackLength - needleLength));
    for (; candidate >= 1; --candidate) {
        unsigned long i = 0;
        while (i < needleLength && haystack[candidate + i] == needle[i]) {
            ++i;
        }
        if (i == needleLength) {
            return static_cast<unsigned long>(candidate);
        }
    }
    return notFound;
}

void Base::SwapEndian(unsigned char* bytes, unsigned long count) {
    if (count < 2) {
        return;
    }
    for (unsigned long i = 0, j = count - 1; i < j; ++i, --j) {
        unsigned char t = bytes[i];
        bytes[i] = bytes[j];
        bytes[j] = t;
    }
}

std::string Base::StrTrim(std::string text) {
    size_t begin = 0;
    while (begin < text.size() && std::isspace(static_cast<unsigned char>(text[begin]))) {
        ++begin;
    }
    size_t end = text.size();
    while (end > begin && std::isspace(static_cast<unsigned char>(text[end - 1]))) {
        --end;
    }
    return text.substr(begin, end - begin);
}

std::string& Base::Replace(std::string& text, unsigned long /*start*/, unsigned long end,
                           const std::string& from, const std::string& to) {
    // The search always begins at the start of the text, and resumes
    // from.size() bytes before the end of the inserted text.
    if (from.empty()) {
        return text;
    }
    std::string::size_type position = text.find(from, 0);
    while (position != std::string::npos && position < end) {
        text.replace(position, from.size(), to);
        end += to.size() - from.size();
        position = text.find(from, position + to.size() - from.size());
    }
    return text;
}

std::string Base::DumpBufferToString(unsigned char* bytes, unsigned long count, bool upperCase) {
    static const char lower[] = "0123456789abcdef";
    static const char upper[] = "0123456789ABCDEF";
    const char* digits = upperCase ? upper : lower;
    std::string text;
    text.reserve(count * 2);
    for (unsigned long i = 0; i < count; ++i) {
        text.push_back(digits[bytes[i] >> 4]);
        text.push_back(digits[bytes[i] & 0x0F]);
    }
    return text;
}

void Base::DumpBuffer(unsigned char* bytes, unsigned long count) {
    std::cout << std::hex << std::uppercase;
    for (unsigned long i = 0; i < count; ++i) {
        std::cout << std::setw(2) << std::setfill('0') << static_cast<unsigned int>(bytes[i]) << ' ';
        if ((i + 1) % 16 == 0) {
            std::cout << '\n';
        }
    }
    std::cout << '\n';
}

bool is_leap_year(int year) {
    if (year % 400 == 0) {
        return true;
    }
    if (year % 100 == 0) {
        return false;
    }
    return year % 4 == 0;
}

int leap_seconds(int /*year*/) {
    return 0;
}

int32_t mktime_utc(tm* time) {
    static const int32_t monthDays[12] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    // 32-bit arithmetic wraps after January 2038, as the return type says.
    uint32_t seconds = 0;
    for (int y = 70; y < time->tm_year; ++y) {
        const int fullYear = 1900 + y;
        seconds += is_leap_year(fullYear) ? 31622400u : 31536000u;
        seconds += static_cast<uint32_t>(leap_seconds(fullYear));
    }
    for (int m = 0; m < time->tm_mon && m < 12; ++m) {
        int32_t days = monthDays[m];
        if (m == 1 && is_leap_year(1900 + time->tm_year)) {
            ++days;
        }
        seconds += static_cast<uint32_t>(days) * 86400u;
    }
    seconds += static_cast<uint32_t>(time->tm_mday) * 86400u + static_cast<uint32_t>(time->tm_hour) * 3600u +
               static_cast<uint32_t>(time->tm_min) * 60u + static_cast<uint32_t>(time->tm_sec);
    seconds -= 86400u;
    return static_cast<int32_t>(seconds);
}

std::string utc_time(const std::string& format) {
    time_t now = time(nullptr);
    tm broken{};
    if (gmtime_r(&now, &broken) == nullptr) {
        throw InternalErrorException(contract::kUtcTimeFailed);
    }
    char buffer[128];
    size_t written = strftime(buffer, sizeof(buffer), format.c_str(), &broken);
    if (written == 0) {
        return std::string();
    }
    return std::string(buffer, written);
}
