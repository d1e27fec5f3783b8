// The process-wide store of public-key certificates. It keeps the path of
// the OpenPGP public-key file and loads the key from it on every request.
#ifndef SIGNING_CERTIFICATE_MANAGER_H
#define SIGNING_CERTIFICATE_MANAGER_H

#include "Base.h"
#include "Certificate.h"
#include "SharedPtr.h"
#include "Singleton.h"

#include <list>
#include <map>
#include <string>

class PgpCertificate;

namespace soapWrap {

// How a certificate file is encoded. Only the OpenPGP public key (armored
// or binary) is implemented.
enum CertificateFileFormat : int {
    PgpPublicKeyCertificate = 2,
};

} // namespace soapWrap

class CertificateManager : public Singleton<CertificateManager> {
public:
    CertificateManager();
    // Empties both maps without destroying what they point to: a certificate
    // once handed out stays valid for the life of the process.
    ~CertificateManager() override;

    CertificateManager(const CertificateManager&) = delete;
    CertificateManager& operator=(const CertificateManager&) = delete;

    // Only stores the path; the key is read when a signature is checked.
    void SetPgpPublicKeyFilePath(const std::string& path);
    const std::string& GetPgpPublicKeyFilePath() const { return _PgpPublicKeyFilePath; }

    // Reads and parses the key file anew on every call.
    Certificate* LoadPgpPublicKey();
    Certificate* LoadCertificateFromFile(std::string& path, soapWrap::CertificateFileFormat format);
    // The returned certificate stays owned by the store.
    Certificate* CreateCertificate(char* data, unsigned long size, soapWrap::CertificateFileFormat format);

    // The certificate last loaded for format, or null.
    Certificate* GetCertificate(soapWrap::CertificateFileFormat format) const;
    // Number of formats that have a certificate.
    unsigned long GetCertificateCount() const { return _Certificates.size(); }

private:
    std::string _PgpPublicKeyFilePath;
    std::map<soapWrap::CertificateFileFormat, Certificate*> _Certificates;
    std::map<soapWrap::CertificateFileFormat, soapWrap::Binary*> _CertificateData;
    // Certificates replaced in the map. They are never destroyed (callers may
    // still hold them) but stay reachable from the store.
    std::list<PgpCertificate*> _Replaced;
};

// Reached by no entry point: keys are OpenPGP, never DER.
// Wraps DER bytes into a PEM "CERTIFICATE" block (no terminating NUL).
cpp11::shared_ptr<binary> der_to_pem(cpp11::shared_ptr<binary> der);

#endif
