#include "DigestBase.h"

#include "ContractTexts.h"
#include "Exceptions.h"

DigestBase::DigestBase(soapWrap::HashAlgorithm type) : _Type(type), _Value() {}

DigestBase::~DigestBase() = default;

std::string DigestBase::GetTypeName() const {
    unsigned int index = static_cast<unsigned int>(_Type);
    if (index >= soapWrap::NAMED_ALGORITHM_COUNT) {
        throw DigestException(contract::kDigestUndefinedType);
    }
    return soapWrap::HASH_ALGORITHMS[index].Name;
}

const char* DigestBase::GetAlgorithmIdentifier() const {
    unsigned int index = static_cast<unsigned int>(_Type);
    if (index >= soapWrap::DIGEST_ALGORITHM_COUNT) {
        throw Pkcs7InnerException(contract::kDigestUnknownAlgorithm);
    }
    return soapWrap::HASH_ALGORITHMS[index].Oid;
}
