// A bounds-checked cursor over bytes for the host's own readers of packages
// and keys: every read checks what remains and throws ReadError naming the
// field that would overrun.
#ifndef HOST_PROGRAM_BOUNDEDREADER_H
#define HOST_PROGRAM_BOUNDEDREADER_H

#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>

namespace host {

class ReadError : public std::runtime_error {
public:
    explicit ReadError(const std::string& message) : std::runtime_error(message) {}
};

class BoundedReader {
public:
    BoundedReader(const unsigned char* data, size_t size) : m_Data(data), m_Size(size) {}

    size_t Offset() const { return m_Offset; }
    size_t Remaining() const { return m_Size - m_Offset; }
    bool AtEnd() const { return m_Offset == m_Size; }

    void Require(size_t count, const char* field) const {
        if (count > Remaining()) {
            throw ReadError(std::string(field) + " needs " + std::to_string(count) + " bytes but only " +
                            std::to_string(Remaining()) + " remain");
        }
    }
    uint8_t U8(const char* field) {
        Require(1, field);
        return m_Data[m_Offset++];
    }
    uint16_t U16(const char* field) {
        Require(2, field);
        uint16_t value = static_cast<uint16_t>((m_Data[m_Offset] << 8) | m_Data[m_Offset + 1]);
        m_Offset += 2;
        return value;
    }
    uint32_t U32(const char* field) {
        Require(4, field);
        uint32_t value = (static_cast<uint32_t>(m_Data[m_Offset]) << 24) |
                         (static_cast<uint32_t>(m_Data[m_Offset + 1]) << 16) |
                         (static_cast<uint32_t>(m_Data[m_Offset + 2]) << 8) | m_Data[m_Offset + 3];
        m_Offset += 4;
        return value;
    }
    const unsigned char* Bytes(size_t count, const char* field) {
        Require(count, field);
        const unsigned char* at = m_Data + m_Offset;
        m_Offset += count;
        return at;
    }
    void Skip(size_t count, const char* field) { Bytes(count, field); }

private:
    const unsigned char* m_Data;
    size_t m_Size;
    size_t m_Offset = 0;
};

} // namespace host

#endif
