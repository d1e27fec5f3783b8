#include "KeyProbe.h"

#include "ProgramError.h"

#include <openssl/evp.h>

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <vector>

namespace host {
namespace {

using Bytes = std::vector<unsigned char>;

void Put32(Bytes& out, uint32_t value) {
    out.push_back(static_cast<unsigned char>(value >> 24));
    out.push_back(static_cast<unsigned char>(value >> 16));
    out.push_back(static_cast<unsigned char>(value >> 8));
    out.push_back(static_cast<unsigned char>(value));
}

Bytes Digest(const EVP_MD* type, const Bytes& first, const Bytes& second = Bytes()) {
    unsigned char value[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    EVP_MD_CTX* context = EVP_MD_CTX_new();
    EVP_DigestInit_ex(context, type, nullptr);
    EVP_DigestUpdate(context, first.data(), first.size());
    EVP_DigestUpdate(context, second.data(), second.size());
    EVP_DigestFinal_ex(context, value, &length);
    EVP_MD_CTX_free(context);
    return Bytes(value, value + length);
}

Bytes IssuerBytes(const std::string& hex) {
    Bytes issuer(8, 0);
    for (size_t i = 0; i < 8 && 2 * i + 1 < hex.size(); ++i) {
        issuer[i] = static_cast<unsigned char>(std::strtoul(hex.substr(2 * i, 2).c_str(), nullptr, 16));
    }
    return issuer;
}

// A package of the format the plug-in reads: lead, signature header with
// the header SHA-1 (269), the MD5 (1004) and a header signature (268), an
// empty main header and a few payload bytes.
Bytes ProbePackage(const std::string& issuerHex) {
    const Bytes mainHeader = {0x8E, 0xAD, 0xE8, 0x01, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0};
    const std::string payloadText = "signing-host key probe\n";
    const Bytes payload(payloadText.begin(), payloadText.end());

    // Version 4 signature over the main header, SHA-256, with a creation
    // time and an issuer subpacket; its RSA value is a placeholder.
    const Bytes hashedPart = {4, 0x00, 1, 8, 0, 6, 0x05, 0x02, 0x60, 0x00, 0x00, 0x00};
    Bytes trailer = hashedPart;
    trailer.push_back(4);
    trailer.push_back(0xFF);
    Put32(trailer, static_cast<uint32_t>(hashedPart.size()));
    const Bytes hash = Digest(EVP_sha256(), mainHeader, trailer);
    Bytes body = hashedPart;
    body.insert(body.end(), {0, 10, 9, 16});
    const Bytes issuer = IssuerBytes(issuerHex);
    body.insert(body.end(), issuer.begin(), issuer.end());
    body.insert(body.end(), {hash[0], hash[1], 0, 1, 1});
    Bytes signature = {0x89, static_cast<unsigned char>(body.size() >> 8),
                       static_cast<unsigned char>(body.size())};
    signature.insert(signature.end(), body.begin(), body.end());

    static const char kHex[] = "0123456789abcdef";
    std::string sha1Text;
    for (unsigned char c : Digest(EVP_sha1(), mainHeader)) {
        sha1Text += kHex[c >> 4];
        sha1Text += kHex[c & 15];
    }
    const Bytes md5 = Digest(EVP_md5(), mainHeader, payload);

    Bytes store(16, 0); // the region trailer's place (tag 62)
    const uint32_t sha1At = static_cast<uint32_t>(store.size());
    store.insert(store.end(), sha1Text.begin(), sha1Text.end());
    store.push_back(0);
    const uint32_t md5At = static_cast<uint32_t>(store.size());
    store.insert(store.end(), md5.begin(), md5.end());
    const uint32_t signatureAt = static_cast<uint32_t>(store.size());
    store.insert(store.end(), signature.begin(), signature.end());

    Bytes package(96, 0);
    const unsigned char lead[] = {0xED, 0xAB, 0xEE, 0xDB, 3, 0, 0, 0, 0, 1};
    std::memcpy(package.data(), lead, sizeof(lead));
    std::memcpy(package.data() + 10, "signing-host-probe", 18);
    package[77] = 1; // operating system
    package[79] = 5; // header-style signature
    package.insert(package.end(), {0x8E, 0xAD, 0xE8, 0x01, 0, 0, 0, 0});
    Put32(package, 4);
    Put32(package, static_cast<uint32_t>(store.size()));
    const uint32_t entries[4][4] = {{62, 7, 0, 16},
                                    {269, 6, sha1At, 1},
                                    {1004, 7, md5At, 16},
                                    {268, 7, signatureAt, static_cast<uint32_t>(signature.size())}};
    for (const auto& entry : entries) {
        for (uint32_t value : entry) {
            Put32(package, value);
        }
    }
    package.insert(package.end(), store.begin(), store.end());
    while (package.size() % 8 != 0) {
        package.push_back(0);
    }
    package.insert(package.end(), mainHeader.begin(), mainHeader.end());
    package.insert(package.end(), payload.begin(), payload.end());
    return package;
}

} // namespace

int KeyProbe::StatusFor(const std::string& keyPath, const std::string& issuer) {
    const std::string path = m_Folder + "/key-probe.rpm";
    const Bytes package = ProbePackage(issuer);
    {
        std::ofstream out(path, std::ios::binary | std::ios::trunc);
        out.write(reinterpret_cast<const char*>(package.data()),
                  static_cast<std::streamsize>(package.size()));
        if (!out) {
            throw SetupError("cannot write the key probe package '" + path + "'");
        }
    }
    int status = RPM_ERROR;
    try {
        RPM_RESULT result = m_Verify(path.c_str(), keyPath.c_str());
        status = static_cast<int>(result.status);
        std::free(result.message);
    } catch (const std::exception&) {
        status = RPM_ERROR;
    }
    std::remove(path.c_str());
    return status;
}

bool KeyProbe::Loads(const std::string& keyPath, const std::string& avoidKeyId) {
    const std::string unlikely = avoidKeyId == "0000000000000001" ? "0000000000000002" : "0000000000000001";
    return StatusFor(keyPath, unlikely) == RPM_INVALID_SIGNATURE;
}

bool KeyProbe::ChecksKeyId(const std::string& keyPath, const std::string& keyId) {
    return StatusFor(keyPath, keyId) == RPM_ERROR;
}

} // namespace host
