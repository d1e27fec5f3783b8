// Turns bytes from outside (file names, the plug-in's messages) into text
// that cannot fake a line of output: control characters and bytes that are
// not UTF-8 are written as escapes, so one record stays one line.
#ifndef HOST_PROGRAM_SAFETEXT_H
#define HOST_PROGRAM_SAFETEXT_H

#include <cstddef>
#include <string>

namespace host {

class SafeText {
public:
    // Escapes a backslash as "\\", line feed, carriage return and tab as
    // "\n", "\r", "\t", every other control character (C0, DEL and the C1
    // range) and every byte that is not part of valid UTF-8 as "\xHH".
    // Valid printable UTF-8 is kept as it is.
    static std::string Escape(const std::string& bytes);

    // True when the bytes are valid UTF-8 (no overlong forms, no
    // surrogates, nothing above U+10FFFF).
    static bool IsUtf8(const std::string& bytes);

    // Standard Base64 with padding.
    static std::string Base64(const std::string& bytes);

    // The number of terminal columns the text takes, counting one per code
    // point (the escapes above keep it free of control characters).
    static size_t Columns(const std::string& text);

    // The longest prefix that takes at most the given columns, cut at a
    // code point boundary.
    static std::string FitColumns(const std::string& text, size_t columns);
};

} // namespace host

#endif
