#include "Signature.h"

#include "ContractTexts.h"
#include "Exceptions.h"

namespace {
// The public-key algorithm code of RSA, and the size of its signed hash.
constexpr uint32_t kRsaAlgorithm = 1;
constexpr unsigned int kRsaSignedHashSize = 256;
} // namespace

Signature::Signature() : _Digests(nullptr), _SingleDigest(nullptr), _SingleDigestKey(0) {}

Signature::~Signature() {
    // Mapped digests are owned; the single digest is borrowed from the
    // container that lent it.
    if (_Digests != nullptr) {
        for (auto& entry : *_Digests) {
            delete entry.second;
        }
        delete _Digests;
        _Digests = nullptr;
    }
    _SingleDigest = nullptr;
}

uint32_t Signature::GetPublicKeyAlgorithm() const {
    return kRsaAlgorithm;
}

void Signature::UpdateDigests() {}

void Signature::SetDigest(int key, DigestBase* digest) {
    if (_Digests == nullptr && _SingleDigest == nullptr) {
        _SingleDigest = digest;
        _SingleDigestKey = key;
        return;
    }
    if (_Digests == nullptr) {
        _Digests = new std::map<int, DigestBase*>();
        (*_Digests)[_SingleDigestKey] = _SingleDigest;
        _SingleDigest = nullptr;
        _SingleDigestKey = 0;
    }
    // An earlier digest under the key is dropped, not released.
    _Digests->erase(key);
    _Digests->emplace(key, digest);
}

DigestBase* Signature::GetDigest(int key) const {
    if (_SingleDigest != nullptr) {
        return key == _SingleDigestKey ? _SingleDigest : nullptr;
    }
    if (_Digests == nullptr) {
        return nullptr;
    }
    auto found = _Digests->find(key);
    return found == _Digests->end() ? nullptr : found->second;
}

void Signature::SetAdditionalInfo(int key, soapWrap::Binary* data) {
    _AdditionalInfo.erase(key);
    _AdditionalInfo.emplace(key, data);
}

soapWrap::Binary* Signature::GetAdditionalInfo(int key) const {
    auto found = _AdditionalInfo.find(key);
    return found == _AdditionalInfo.end() ? nullptr : found->second;
}

unsigned int Signature::GetSignedHashSize() const {
    if (GetPublicKeyAlgorithm() == kRsaAlgorithm) {
        return kRsaSignedHashSize;
    }
    // Only RSA is known; the text is just the class title and its separator.
    throw NotImplementedException(contract::kSignedHashSizeNotImplemented);
}
