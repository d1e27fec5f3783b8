// rpm_verify with hostile package bytes or hostile key-file bytes. Each
// input is written to one scratch file per process, whose path is reused.
#include "FuzzSupport.h"
#include "FuzzTargets.h"

int FuzzRpmPackage(const uint8_t* data, size_t size) {
    static const fuzzsupport::ScratchFile package("package");
    static const std::string key = fuzzsupport::Fixture("keys/rsa2048.asc");
    package.Write(data, size);
    fuzzsupport::VerifyAndCheck(package.Path(), key);
    return 0;
}

int FuzzRpmKey(const uint8_t* data, size_t size) {
    static const fuzzsupport::ScratchFile key("key");
    static const std::string package = fuzzsupport::Fixture("rpm/signed-rsa2048-sha256.rpm");
    key.Write(data, size);
    fuzzsupport::VerifyAndCheck(package, key.Path());
    return 0;
}
