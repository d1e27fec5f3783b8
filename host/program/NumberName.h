// Names of the numbers a format defines (algorithms, packet types, tags),
// looked up in a table; a number the table lacks is shown as prefix and
// number.
#ifndef HOST_PROGRAM_NUMBERNAME_H
#define HOST_PROGRAM_NUMBERNAME_H

#include <cstddef>
#include <string>

namespace host {

struct NumberName {
    unsigned number;
    const char* name;
};

template <size_t N> std::string NameOf(const NumberName (&table)[N], unsigned number, const char* prefix) {
    for (const NumberName& entry : table) {
        if (entry.number == number) {
            return entry.name;
        }
    }
    return prefix + std::to_string(number);
}

} // namespace host

#endif
