#include "ByteReader.h"

#include "Exceptions.h"

ByteReader::ByteReader(const void* data, size_t size, const char* context)
    : _Data(static_cast<const unsigned char*>(data)), _Size(data == nullptr ? 0 : size), _Offset(0),
      _Context(context) {}

void ByteReader::Require(size_t count, const char* field) const {
    if (count > Remaining()) {
        throw DataFormatException(std::string(_Context) + ": " + field + " runs past the end of the data (" +
                                  std::to_string(count) + " bytes needed, " + std::to_string(Remaining()) +
                                  " left)");
    }
}

uint8_t ByteReader::ReadUInt8(const char* field) {
    Require(1, field);
    return _Data[_Offset++];
}

uint16_t ByteReader::ReadUInt16(const char* field) {
    Require(2, field);
    uint16_t value = LoadBigEndian16(_Data + _Offset);
    _Offset += 2;
    return value;
}

uint32_t ByteReader::ReadUInt32(const char* field) {
    Require(4, field);
    uint32_t value = LoadBigEndian32(_Data + _Offset);
    _Offset += 4;
    return value;
}

const unsigned char* ByteReader::ReadBytes(size_t count, const char* field) {
    Require(count, field);
    const unsigned char* p = _Data + _Offset;
    _Offset += count;
    return p;
}

void ByteReader::Skip(size_t count, const char* field) {
    Require(count, field);
    _Offset += count;
}

void ByteReader::Seek(size_t offset, const char* field) {
    if (offset > _Size) {
        throw DataFormatException(std::string(_Context) + ": " + field + " points past the end of the data");
    }
    _Offset = offset;
}
