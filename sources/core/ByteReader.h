// The one bounds-checked reader over a byte range that every parser uses:
// it checks what remains before each read, and reads big-endian numbers.
// A read past the end throws DataFormatException naming what overran.
#ifndef SIGNING_BYTE_READER_H
#define SIGNING_BYTE_READER_H

#include <cstddef>
#include <cstdint>
#include <string>

// Big-endian load and store of 16- and 32-bit numbers from raw bytes.
inline uint16_t LoadBigEndian16(const unsigned char* p) {
    return static_cast<uint16_t>((p[0] << 8) | p[1]);
}
inline uint32_t LoadBigEndian32(const unsigned char* p) {
    return (static_cast<uint32_t>(p[0]) << 24) | (static_cast<uint32_t>(p[1]) << 16) |
           (static_cast<uint32_t>(p[2]) << 8) | static_cast<uint32_t>(p[3]);
}
inline void StoreBigEndian16(unsigned char* p, uint16_t value) {
    p[0] = static_cast<unsigned char>(value >> 8);
    p[1] = static_cast<unsigned char>(value);
}
inline void StoreBigEndian32(unsigned char* p, uint32_t value) {
    p[0] = static_cast<unsigned char>(value >> 24);
    p[1] = static_cast<unsigned char>(value >> 16);
    p[2] = static_cast<unsigned char>(value >> 8);
    p[3] = static_cast<unsigned char>(value);
}

class ByteReader {
public:
    // context names the structure being read, for the exception text.
    ByteReader(const void* data, size_t size, const char* context);

    size_t Offset() const { return m_Offset; }
    size_t Size() const { return m_Size; }
    size_t Remaining() const { return m_Size - m_Offset; }
    const unsigned char* Current() const { return m_Data + m_Offset; }

    // Throws unless count bytes remain; field names what would overrun.
    void Require(size_t count, const char* field) const;

    uint8_t ReadUInt8(const char* field);
    uint16_t ReadUInt16(const char* field);
    uint32_t ReadUInt32(const char* field);
    // Returns a pointer to count bytes and steps over them.
    const unsigned char* ReadBytes(size_t count, const char* field);
    void Skip(size_t count, const char* field);
    // Moves to an absolute offset within the range.
    void Seek(size_t offset, const char* field);

private:
    const unsigned char* m_Data;
    size_t m_Size;
    size_t m_Offset;
    const char* m_Context;
};

#endif
