#include "SafeText.h"

#include <cstdint>

namespace host {
namespace {

// The length of the valid UTF-8 sequence at the position, or 0 when the
// byte there does not start one.
size_t Utf8SequenceLength(const std::string& bytes, size_t at) {
    auto byteAt = [&bytes](size_t index) { return static_cast<uint8_t>(bytes[index]); };
    uint8_t lead = byteAt(at);
    if (lead < 0x80) {
        return 1;
    }
    size_t length;
    uint32_t codePoint;
    if (lead >= 0xC2 && lead <= 0xDF) {
        length = 2;
        codePoint = lead & 0x1F;
    } else if (lead >= 0xE0 && lead <= 0xEF) {
        length = 3;
        codePoint = lead & 0x0F;
    } else if (lead >= 0xF0 && lead <= 0xF4) {
        length = 4;
        codePoint = lead & 0x07;
    } else {
        return 0;
    }
    if (at + length > bytes.size()) {
        return 0;
    }
    for (size_t index = 1; index < length; ++index) {
        uint8_t next = byteAt(at + index);
        if ((next & 0xC0) != 0x80) {
            return 0;
        }
        codePoint = (codePoint << 6) | (next & 0x3F);
    }
    bool overlong = (length == 3 && codePoint < 0x800) || (length == 4 && codePoint < 0x10000);
    bool surrogate = codePoint >= 0xD800 && codePoint <= 0xDFFF;
    if (overlong || surrogate || codePoint > 0x10FFFF) {
        return 0;
    }
    return length;
}

void AppendHex(std::string& out, uint8_t byte) {
    static const char kDigits[] = "0123456789abcdef";
    out += "\\x";
    out += kDigits[byte >> 4];
    out += kDigits[byte & 0x0F];
}

} // namespace

std::string SafeText::Escape(const std::string& bytes) {
    std::string out;
    out.reserve(bytes.size());
    size_t at = 0;
    while (at < bytes.size()) {
        uint8_t byte = static_cast<uint8_t>(bytes[at]);
        size_t length = Utf8SequenceLength(bytes, at);
        if (length == 0) {
            AppendHex(out, byte);
            ++at;
            continue;
        }
        if (length == 2 && byte == 0xC2 && static_cast<uint8_t>(bytes[at + 1]) < 0xA0) {
            // U+0080..U+009F are controls too: a terminal may act on them.
            AppendHex(out, byte);
            AppendHex(out, static_cast<uint8_t>(bytes[at + 1]));
            at += 2;
            continue;
        }
        if (length > 1) {
            out.append(bytes, at, length);
            at += length;
            continue;
        }
        switch (byte) {
        case '\\':
            out += "\\\\";
            break;
        case '\n':
            out += "\\n";
            break;
        case '\r':
            out += "\\r";
            break;
        case '\t':
            out += "\\t";
            break;
        default:
            if (byte < 0x20 || byte == 0x7F) {
                AppendHex(out, byte);
            } else {
                out += static_cast<char>(byte);
            }
        }
        ++at;
    }
    return out;
}

bool SafeText::IsUtf8(const std::string& bytes) {
    size_t at = 0;
    while (at < bytes.size()) {
        size_t length = Utf8SequenceLength(bytes, at);
        if (length == 0) {
            return false;
        }
        at += length;
    }
    return true;
}

std::string SafeText::Base64(const std::string& bytes) {
    static const char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string out;
    out.reserve((bytes.size() + 2) / 3 * 4);
    size_t at = 0;
    while (at + 3 <= bytes.size()) {
        uint32_t group = (static_cast<uint32_t>(static_cast<uint8_t>(bytes[at])) << 16) |
                         (static_cast<uint32_t>(static_cast<uint8_t>(bytes[at + 1])) << 8) |
                         static_cast<uint8_t>(bytes[at + 2]);
        out += kAlphabet[(group >> 18) & 0x3F];
        out += kAlphabet[(group >> 12) & 0x3F];
        out += kAlphabet[(group >> 6) & 0x3F];
        out += kAlphabet[group & 0x3F];
        at += 3;
    }
    size_t rest = bytes.size() - at;
    if (rest != 0) {
        uint32_t group = static_cast<uint32_t>(static_cast<uint8_t>(bytes[at])) << 16;
        if (rest == 2) {
            group |= static_cast<uint32_t>(static_cast<uint8_t>(bytes[at + 1])) << 8;
        }
        out += kAlphabet[(group >> 18) & 0x3F];
        out += kAlphabet[(group >> 12) & 0x3F];
        out += rest == 2 ? kAlphabet[(group >> 6) & 0x3F] : '=';
        out += '=';
    }
    return out;
}

size_t SafeText::Columns(const std::string& text) {
    size_t columns = 0;
    for (char byte : text) {
        if ((static_cast<uint8_t>(byte) & 0xC0) != 0x80) {
            ++columns;
        }
    }
    return columns;
}

std::string SafeText::FitColumns(const std::string& text, size_t columns) {
    size_t used = 0;
    for (size_t at = 0; at < text.size(); ++at) {
        if ((static_cast<uint8_t>(text[at]) & 0xC0) != 0x80) {
            if (used == columns) {
                return text.substr(0, at);
            }
            ++used;
        }
    }
    return text;
}

} // namespace host
