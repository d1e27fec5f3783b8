#include "Digest.h"

#include "ContractTexts.h"
#include "Exceptions.h"
#include "OpenSsl.h"

#include <cstring>

namespace {

// The table row of an algorithm that can be digested, or null.
const soapWrap::HashAlgorithmInfo* DigestInfo(soapWrap::HashAlgorithm type) {
    unsigned int index = static_cast<unsigned int>(type);
    return index < soapWrap::DIGEST_ALGORITHM_COUNT ? &soapWrap::HASH_ALGORITHMS[index] : nullptr;
}

// The order in which object identifiers are compared.
constexpr soapWrap::HashAlgorithm OID_SEARCH_ORDER[] = {soapWrap::SHA1,   soapWrap::SHA256, soapWrap::SHA512,
                                                        soapWrap::SHA384, soapWrap::SHA224, soapWrap::MD5};

// The algorithm implementations, fetched from OpenSSL once per process.
// Starting a digest from the table's EVP_MD makes OpenSSL look its
// implementation up again every time; starting it from one fetched before
// gives the same computation without the look-up. Fetched on first use and
// kept for the life of the process; an algorithm that cannot be fetched
// starts from the table's EVP_MD as before.
const EVP_MD* FetchedMd(soapWrap::HashAlgorithm type, const EVP_MD* md) {
    static const auto* fetched = [] {
        auto* table = new const EVP_MD*[soapWrap::DIGEST_ALGORITHM_COUNT];
        for (unsigned int index = 0; index < soapWrap::DIGEST_ALGORITHM_COUNT; ++index) {
            const EVP_MD* legacy = soapWrap::HASH_ALGORITHMS[index].Md();
            table[index] =
                legacy == nullptr ? nullptr : EVP_MD_fetch(nullptr, EVP_MD_get0_name(legacy), nullptr);
        }
        return table;
    }();
    const unsigned int index = static_cast<unsigned int>(type);
    const EVP_MD* found = index < soapWrap::DIGEST_ALGORITHM_COUNT ? fetched[index] : nullptr;
    return found != nullptr ? found : md;
}

} // namespace

Digest::Digest(soapWrap::HashAlgorithm type) : DigestBase(type), _Md(nullptr), _Context() {
    crypto::RequireOpenSsl();
    _Md = GetMd(type);
    if (_Md == nullptr) {
        throw DigestException(contract::kDigestCannotCreate + GetTypeName() + contract::kDigestTypeEnd);
    }
    _Context.reset(EVP_MD_CTX_new());
    if (!_Context) {
        throw DigestException(contract::kDigestCannotCreate + GetTypeName() + contract::kDigestContextEnd);
    }
    if (EVP_DigestInit_ex(_Context.get(), FetchedMd(type, _Md), nullptr) != 1) {
        throw DigestException(contract::kDigestCannotInitialize + GetTypeName() +
                              contract::kDigestContextEnd);
    }
}

Digest::~Digest() = default;

Digest* Digest::Copy() const {
    std::unique_ptr<Digest> copy(new Digest(GetType()));
    if (!_Context || EVP_MD_CTX_copy_ex(copy->_Context.get(), _Context.get()) != 1) {
        throw DigestException(contract::kDigestCannotCopy + GetTypeName() + contract::kDigestStateEnd);
    }
    return copy.release();
}

void Digest::Update(const void* data, unsigned long length) {
    if (!_Context) {
        throw DigestException(contract::kDigestWrongContext);
    }
    if (EVP_DigestUpdate(_Context.get(), data, length) != 1) {
        throw DigestException(contract::kDigestErrorWhile + GetTypeName() + contract::kDigestUpdateEnd);
    }
}

unsigned int Digest::GetLength() const {
    return GetLength(GetType());
}

bool Digest::GetValue(unsigned char* out) {
    if (!_Context) {
        throw DigestException(contract::kDigestNotInitialized);
    }
    unsigned int expected = GetLength();
    unsigned int written = 0;
    if (EVP_DigestFinal_ex(_Context.get(), out, &written) != 1) {
        throw DigestException(contract::kDigestCannotGetValue + GetTypeName() + contract::kDigestEnd);
    }
    if (written != expected) {
        throw DigestException(contract::kDigestWrongLength + std::to_string(expected) +
                              contract::kDigestWrongLengthGot + std::to_string(written));
    }
    return true;
}

unsigned char* Digest::GetValue() {
    if (!_Value) {
        std::unique_ptr<unsigned char[]> value(new unsigned char[GetLength()]);
        GetValue(value.get());
        _Value = std::move(value);
    }
    return _Value.get();
}

void Digest::Reinitialize() {
    if (!_Context || EVP_DigestInit_ex(_Context.get(), FetchedMd(GetType(), _Md), nullptr) != 1) {
        throw DigestException(contract::kDigestCannotInitialize + GetTypeName() +
                              contract::kDigestContextEnd);
    }
}

const EVP_MD* Digest::GetMd(soapWrap::HashAlgorithm type) {
    const soapWrap::HashAlgorithmInfo* info = DigestInfo(type);
    if (info == nullptr) {
        throw DigestException(contract::kDigestUndefinedType);
    }
    return info->Md();
}

unsigned int Digest::GetLength(soapWrap::HashAlgorithm type) {
    const soapWrap::HashAlgorithmInfo* info = DigestInfo(type);
    if (info == nullptr) {
        throw DigestException(contract::kDigestUndefinedType);
    }
    return info->Length;
}

int Digest::GetNID(soapWrap::HashAlgorithm type) {
    const soapWrap::HashAlgorithmInfo* info = DigestInfo(type);
    if (info == nullptr) {
        throw NotSupportedFileFormatException(contract::kDigestNidNotSupported);
    }
    return info->Nid;
}

soapWrap::HashAlgorithm Digest::GetTypeByNid(unsigned int nid) {
    for (unsigned int index = 0; index < soapWrap::DIGEST_ALGORITHM_COUNT; ++index) {
        const soapWrap::HashAlgorithmInfo& info = soapWrap::HASH_ALGORITHMS[index];
        if (nid == static_cast<unsigned int>(info.Nid) ||
            nid == static_cast<unsigned int>(info.RsaSignatureNid)) {
            return static_cast<soapWrap::HashAlgorithm>(index);
        }
    }
    throw NotSupportedFileFormatException(contract::kDigestUnknownNid);
}

soapWrap::HashAlgorithm Digest::GetTypeByOid(soapWrap::Binary* oid) {
    if (oid != nullptr && oid->data != nullptr) {
        // The length decides which identifiers are candidates at all.
        for (soapWrap::HashAlgorithm type : OID_SEARCH_ORDER) {
            const soapWrap::HashAlgorithmInfo& info = soapWrap::HASH_ALGORITHMS[type];
            if (oid->size == info.OidLength && std::memcmp(oid->data, info.OidBytes, info.OidLength) == 0) {
                return type;
            }
        }
    }
    throw Pkcs7InnerException(contract::kDigestUnknownOid);
}
