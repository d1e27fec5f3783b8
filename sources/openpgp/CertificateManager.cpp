#include "CertificateManager.h"

#include "Base64.h"
#include "ContractTexts.h"
#include "Exceptions.h"
#include "FileHelper.h"
#include "KeyFileBounds.h"
#include "PgpCertificate.h"
#include "PgpMessage.h"

#include <climits>
#include <cstring>
#include <memory>
#include <vector>

namespace {

constexpr unsigned int kPemLineLength = 64;

// Refuses a key file larger than any key.
void CheckKeyFileSize(const std::string& path, unsigned long long size) {
    if (size > key_file::kMaxSize) {
        throw FileIoException("Key file " + path + " is larger than " + std::to_string(key_file::kMaxSize) +
                              " bytes");
    }
}

// The size of a key file that may be read: only a regular file (not a
// device such as /dev/zero, a FIFO or a socket) no larger than the key-file
// bound is read at all. The file object has judged the opened file by its
// descriptor already: it keeps a size only for a regular file.
unsigned long BoundedKeyFileSize(const FileHelper& file, const std::string& path) {
    unsigned long size = 0;
    if (file.GetOpenedSize(size)) {
        CheckKeyFileSize(path, size);
        return size;
    }
    // A folder goes on to the file object's own "was not open" failure.
    if (file.IsFolder()) {
        return 0;
    }
    throw FileIoException("Key file " + path + " is not a regular file");
}

} // namespace

CertificateManager::CertificateManager() = default;

CertificateManager::~CertificateManager() {
    _Certificates.clear();
    _CertificateData.clear();
    _Replaced.clear();
    _PgpPublicKeyFilePath.clear();
}

void CertificateManager::SetPgpPublicKeyFilePath(const std::string& path) {
    _PgpPublicKeyFilePath = path;
}

Certificate* CertificateManager::LoadPgpPublicKey() {
    return LoadCertificateFromFile(_PgpPublicKeyFilePath, soapWrap::PgpPublicKeyCertificate);
}

Certificate* CertificateManager::LoadCertificateFromFile(std::string& path,
                                                         soapWrap::CertificateFileFormat format) {
    std::vector<char> data;
    {
        // The file object opens without blocking, so a FIFO in the key's
        // place cannot stall the caller; a missing file keeps its own
        // exception. The key-file bound holds before anything is read.
        std::unique_ptr<FileHelper> file(new FileHelper(path));
        const unsigned long size = BoundedKeyFileSize(*file, path);
        data.resize(size);
        // One read for the whole file; further reads only if the system
        // answers with less.
        const long count = file->ReadFullyAt(data.data(), 0, size);
        if (count < 0) {
            throw FileIoException("Cannot read file " + path);
        }
        data.resize(static_cast<unsigned long>(count));
        file->Close();
    }
    return CreateCertificate(data.data(), data.size(), format);
}

Certificate* CertificateManager::CreateCertificate(char* data, unsigned long size,
                                                   soapWrap::CertificateFileFormat format) {
    if (format != soapWrap::PgpPublicKeyCertificate) {
        throw NotImplementedException(contract::kCertificateFormatNotImplemented);
    }
    if (size > UINT_MAX) {
        throw ArgumentException("The certificate data is too large");
    }
    std::unique_ptr<PgpMessage> message(new PgpMessage(data, static_cast<unsigned int>(size)));
    // The certificate takes over the message, also when its constructor throws.
    std::unique_ptr<PgpCertificate> certificate(new PgpCertificate(message.release()));

    auto found = _Certificates.find(format);
    if (found == _Certificates.end()) {
        _Certificates.emplace(format, certificate.get());
    } else {
        // A certificate once handed out stays valid for the life of the
        // process: the one replaced is kept, not destroyed.
        if (found->second != nullptr) {
            _Replaced.push_back(static_cast<PgpCertificate*>(found->second));
        }
        found->second = certificate.get();
    }
    return certificate.release();
}

Certificate* CertificateManager::GetCertificate(soapWrap::CertificateFileFormat format) const {
    auto found = _Certificates.find(format);
    return found == _Certificates.end() ? nullptr : found->second;
}

// The exported signature takes the shared pointer by value.
// NOLINTNEXTLINE(performance-unnecessary-value-param)
cpp11::shared_ptr<binary> der_to_pem(cpp11::shared_ptr<binary> der) {
    if (!der) {
        throw ArgumentException(exception_text::NullArgument("der_to_pem"));
    }
    static const char kNoBytes[1] = {0};
    const char* bytes = der->data != nullptr ? reinterpret_cast<const char*>(der->data) : kNoBytes;
    unsigned int encodedLength = 0;
    std::unique_ptr<char[]> encoded(
        Base64::Encode(bytes, der->data != nullptr ? der->length : 0, encodedLength));

    const unsigned int fullLines = encodedLength / kPemLineLength;
    const unsigned int rest = encodedLength % kPemLineLength;
    const uint32_t size = fullLines * (kPemLineLength + 1) + rest + (rest != 0 ? 1 : 0) +
                          (sizeof(contract::kPemBegin) - 1) + (sizeof(contract::kPemEnd) - 1);
    std::unique_ptr<unsigned char[]> pem(new unsigned char[size]);
    unsigned char* out = pem.get();
    auto append = [&out](const void* text, size_t length) {
        std::memcpy(out, text, length);
        out += length;
    };
    append(contract::kPemBegin, sizeof(contract::kPemBegin) - 1);
    for (unsigned int line = 0; line < fullLines; ++line) {
        append(encoded.get() + static_cast<size_t>(line) * kPemLineLength, kPemLineLength);
        append(contract::kPemLineEnd, sizeof(contract::kPemLineEnd) - 1);
    }
    if (rest != 0) {
        append(encoded.get() + static_cast<size_t>(fullLines) * kPemLineLength, rest);
        append(contract::kPemLineEnd, sizeof(contract::kPemLineEnd) - 1);
    }
    append(contract::kPemEnd, sizeof(contract::kPemEnd) - 1);

    std::unique_ptr<binary> record(new binary(pem.get(), size, 1));
    pem.release();
    return cpp11::shared_ptr<binary>(record.release());
}
