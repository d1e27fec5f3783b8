// Every function that refuses a null argument says so in the same words,
// naming itself: "Invalid argument: Function <name> does not allow NULL
// value as an argument", byte for byte.
#include "CertificateManager.h"
#include "Exceptions.h"
#include "PgpCertificate.h"
#include "PgpPacket.h"
#include "PgpSignature.h"
#include "RpmSignature.h"
#include "RpmSignerCreator.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>

namespace {

// The text of the ArgumentException that call throws, or a note that it threw none.
std::string ArgumentText(const std::function<void()>& call) {
    try {
        call();
    } catch (const ArgumentException& error) {
        return error.what();
    }
    return "no ArgumentException";
}

} // namespace

TEST(NullArguments, EveryRefusalNamesItsFunction) {
    EXPECT_EQ(ArgumentText([] { RpmSignerCreator().IsMe(nullptr); }),
              "Invalid argument: Function RpmSignerCreator::IsMe does not allow NULL value as an argument");
    EXPECT_EQ(ArgumentText([] { RpmSignature::GetEntryStorageSize(RPM_STRING_TYPE, nullptr, 1); }),
              "Invalid argument: Function RpmSignature::GetEntryStorageSize does not allow NULL value as an "
              "argument");
    EXPECT_EQ(ArgumentText([] { der_to_pem(cpp11::shared_ptr<binary>()); }),
              "Invalid argument: Function der_to_pem does not allow NULL value as an argument");
    EXPECT_EQ(
        ArgumentText([] { PgpSignature signature(nullptr); }),
        "Invalid argument: Function PgpSignature::PgpSignature does not allow NULL value as an argument");
    EXPECT_EQ(ArgumentText([] {
                  PgpSignatureData data(PgpSignatureVersion4, nullptr, 2048, PgpSignatureBinary,
                                        PgpHashSha256);
              }),
              "Invalid argument: Function PgpSignatureData::PgpSignatureData does not allow NULL value as an "
              "argument");
    EXPECT_EQ(
        ArgumentText([] { PgpCertificate certificate(nullptr); }),
        "Invalid argument: Function PgpCertificate::PgpCertificate does not allow NULL value as an argument");
}

TEST(NullArguments, SignRefusesEitherBufferMissing) {
    const char issuer[8] = {1, 2, 3, 4, 5, 6, 7, 8};
    PgpSignatureData data(PgpSignatureVersion4, issuer, 2048, PgpSignatureBinary, PgpHashSha256);
    PgpSignature signature(&data);
    soapWrap::Binary buffer{};
    std::string message;
    const std::string expected =
        "Invalid argument: Function PgpSignature::Sign does not allow NULL value as an argument";
    EXPECT_EQ(ArgumentText([&] { signature.Sign(nullptr, &buffer, message); }), expected);
    EXPECT_EQ(ArgumentText([&] { signature.Sign(&buffer, nullptr, message); }), expected);
}
