#include "ByteReader.h"

#include "Exceptions.h"

ByteReader::ByteReader(const void* data, size_t size, const char* context)
    : m_Data(static_cast<const unsigned char*>(data)), m_Size(data == nullptr ? 0 : size), m_Offset(0),
      m_Context(context) {}

void ByteReader::Require(size_t count, const char* field) const {
    if (count > Remaining()) {
        throw DataFormatException(std::string(m_Context) + ": " + field + " runs past the end of the data (" +
                                  std::to_string(count) + " bytes needed, " + std::to_string(Remaining()) +
                                  " left)");
    }
}

uint8_t ByteReader::ReadUInt8(const char* field) {
    Require(1, field);
    return m_Data[m_Offset++];
}

uint16_t ByteReader::ReadUInt16(const char* field) {
    Require(2, field);
    uint16_t value = LoadBigEndian16(m_Data + m_Offset);
    m_Offset += 2;
    return value;
}

uint32_t ByteReader::ReadUInt32(const char* field) {
    Require(4, field);
    uint32_t value = LoadBigEndian32(m_Data + m_Offset);
    m_Offset += 4;
    return value;
}

const unsigned char* ByteReader::ReadBytes(size_t count, const char* field) {
    Require(count, field);
    const unsigned char* p = m_Data + m_Offset;
    m_Offset += count;
    return p;
}

void ByteReader::Skip(size_t count, const char* field) {
    Require(count, field);
    m_Offset += count;
}

void ByteReader::Seek(size_t offset, const char* field) {
    if (offset > m_Size) {
        throw DataFormatException(std::string(m_Context) + ": " + field + " points past the end of the data");
    }
    m_Offset = offset;
}
