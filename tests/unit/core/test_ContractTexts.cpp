// Every text that crosses the plug-in's boundary, written out again here so
// that changing any of them, by a single byte, fails a test. The texts with
// backslashes are written as raw literals, independently of the escapes in
// the header.
#include "Base.h"
#include "ContractTexts.h"
#include "DigestBase.h"
#include "Exceptions.h"
#include "RpmSignerCreator.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

namespace {

// The whole array, not only up to its first NUL, so that an embedded NUL or
// a lost character at the end cannot pass.
template <size_t N> std::string Bytes(const char (&text)[N]) {
    return std::string(text, N - 1);
}

#define EXPECT_CONTRACT_TEXT(constant, literal)                                                              \
    EXPECT_EQ(Bytes(contract::constant), Bytes(literal)) << #constant

} // namespace

// ---------------------------------------------------------------------------
// Host plug-in interface

TEST(ContractTexts, PackageListSessionKeysAndValues) {
    EXPECT_CONTRACT_TEXT(kSessionOperationProgress, "operation_progress");
    EXPECT_CONTRACT_TEXT(kSessionLocalPublicKey, "SIGNING_LOCAL_PUBLIC_KEY");
    EXPECT_CONTRACT_TEXT(kSessionSignature, "signature");
    EXPECT_CONTRACT_TEXT(kSessionSignificance, "SIGNIFICANCE");
    EXPECT_CONTRACT_TEXT(kSessionShortDescription, "SHORT_DESC");
    EXPECT_CONTRACT_TEXT(kSessionFullDescription, "FULL_DESC");
    EXPECT_CONTRACT_TEXT(kProgressStart, "0");
    EXPECT_CONTRACT_TEXT(kPackageType, "rpm");
    EXPECT_CONTRACT_TEXT(kPackagePathSeparator, "/");
    EXPECT_CONTRACT_TEXT(kSignificanceWarning, ";0");
    EXPECT_CONTRACT_TEXT(kSignificanceError, ";1");
}

TEST(ContractTexts, MessageIdentifiers) {
    EXPECT_CONTRACT_TEXT(kErrorCheckShortDescription, ";SIGNING_prereq_err_signing_check_short_desc");
    EXPECT_CONTRACT_TEXT(kErrorCheckFullDescription, ";SIGNING_prereq_err_signing_check_full_desc");
    EXPECT_CONTRACT_TEXT(kWarningValidateShortDescription,
                         ";SIGNING_prereq_war_signing_check_validate_short_desc");
    EXPECT_CONTRACT_TEXT(kWarningValidateFullDescription,
                         ";SIGNING_prereq_war_signing_check_validate_full_desc");
    EXPECT_CONTRACT_TEXT(kWarningDownloadShortDescription,
                         ";SIGNING_prereq_war_signing_check_download_short_desc");
    EXPECT_CONTRACT_TEXT(kWarningDownloadFullDescription,
                         ";SIGNING_prereq_war_signing_check_download_full_desc");
    EXPECT_CONTRACT_TEXT(kWarningFileShortDescription, ";SIGNING_prereq_war_signing_check_file_short_desc");
    EXPECT_CONTRACT_TEXT(kWarningFileFullDescription, ";SIGNING_prereq_war_signing_check_file_full_desc");
}

TEST(ContractTexts, PackageListLogFormats) {
    EXPECT_CONTRACT_TEXT(kLogValidationStarted, "signing_validate_package_list: started");
    EXPECT_CONTRACT_TEXT(kLogValidationNoKeyLocation,
                         "signing_validate_package_list: unable to obtain public key location");
    EXPECT_CONTRACT_TEXT(kLogValidationKeyNotValid, "signing_validate_package_list: public key is not valid");
    EXPECT_CONTRACT_TEXT(
        kLogValidationResult,
        "_signing_validate_file: signing validation result %d (0 is success) for %s package [%s]");
    EXPECT_CONTRACT_TEXT(
        kLogValidationNotAvailable,
        "signing_validate_package_list: component '%s' is not verified because it is not available");
    EXPECT_CONTRACT_TEXT(kLogValidationSignificance, "signing_validate_package_list: %s");
    EXPECT_CONTRACT_TEXT(kLogValidationFinished, "signing_validate_package_list: finished");
    EXPECT_CONTRACT_TEXT(kLogOptionalPrerequisiteStatus, "_signing_set_optional_prerequisite_status: %s");
}

TEST(ContractTexts, KeyAcquisitionSessionKeysAndFiles) {
    EXPECT_CONTRACT_TEXT(kSessionDefaultUrl, "SIGNING_DEFAULT_URL");
    EXPECT_CONTRACT_TEXT(kSessionSigningUrl, "signing_url");
    EXPECT_CONTRACT_TEXT(kSessionTempFolder, "TEMP_FOLDER");
    EXPECT_CONTRACT_TEXT(kEnvironmentPhonehome, "phonehome");
    EXPECT_CONTRACT_TEXT(kEnvironmentUpdateId, "VokUpdateId");
    EXPECT_CONTRACT_TEXT(kRequestSuffix, "?id=");
    EXPECT_CONTRACT_TEXT(kPublicKeyFileName, "/PUBLIC_KEY.PUB");
    EXPECT_CONTRACT_TEXT(kInvalidKeyMarker, "http://");
}

TEST(ContractTexts, DownloadToolsAndCommandTemplates) {
    EXPECT_CONTRACT_TEXT(kToolWget, "wget");
    EXPECT_CONTRACT_TEXT(kToolCurl, "curl");
    EXPECT_CONTRACT_TEXT(kProbeWget, "which wget 2>/dev/null");
    EXPECT_CONTRACT_TEXT(kProbeCurl, "which curl 2>/dev/null");
    EXPECT_CONTRACT_TEXT(
        kCommandTemplateWget,
        R"(export LD_LIBRARY_PATH=""; wget --timeout=%d --tries=%d --quiet %s -O %s 2>/dev/null)");
    EXPECT_CONTRACT_TEXT(
        kCommandTemplateCurl,
        R"(export LD_LIBRARY_PATH=""; curl --max-time %d --retry %d --location --silent %s -o %s 2>/dev/null)");
    EXPECT_CONTRACT_TEXT(kPipeMode, "r");
    EXPECT_CONTRACT_TEXT(kWgetSecureProtocol1, "--secure-protocol=SSLv3");
    EXPECT_CONTRACT_TEXT(kWgetSecureProtocol2, "--secure-protocol=SSLv2");
    EXPECT_CONTRACT_TEXT(kWgetSecureProtocol3, "--secure-protocol=TLSv1");
    EXPECT_CONTRACT_TEXT(kCurlSecureProtocol1, "--sslv3");
    EXPECT_CONTRACT_TEXT(kCurlSecureProtocol2, "--sslv2");
    EXPECT_CONTRACT_TEXT(kCurlSecureProtocol3, "--tlsv1");
    EXPECT_CONTRACT_TEXT(kSecureCommandJoint, " ");
}

TEST(ContractTexts, KeyAcquisitionLogFormats) {
    EXPECT_CONTRACT_TEXT(kLogKeySpecifiedByUser, "signing_get_public_key: public key specified by user %s");
    EXPECT_CONTRACT_TEXT(kLogKeyWillBeDownloaded,
                         "signing_get_public_key: public key will be downloaded from QEL");
    EXPECT_CONTRACT_TEXT(kLogKeyRequest, "signing_get_public_key: request value [%s]");
    EXPECT_CONTRACT_TEXT(kLogKeyCommand, "signing_get_public_key: command value [%s]");
    EXPECT_CONTRACT_TEXT(kLogKeySecureCommand, "signing_get_public_key: secure command   [%s]");
    EXPECT_CONTRACT_TEXT(kLogKeySecureProtocols, "signing_get_public_key: secure protocols [%s]");
    EXPECT_CONTRACT_TEXT(kLogKeyObtained, "signing_get_public_key: public key obtained successfully [%s]");
    EXPECT_CONTRACT_TEXT(kLogWebServiceNoMemory, "_signing_call_webservice: unable to allocate memory");
    EXPECT_CONTRACT_TEXT(kLogWebServiceNotExecuted, "_signing_call_webservice: unable to execute command");
    EXPECT_CONTRACT_TEXT(kLogWebServiceSignal,
                         "_signing_call_webservice: signing web service call failed by signal %d - %s.\n");
    EXPECT_CONTRACT_TEXT(kLogWebServiceStatus,
                         "_signing_call_webservice: web service call failed with status %d");
    EXPECT_CONTRACT_TEXT(kLogCommandNotValidated,
                         "_signing_get_command: unable to validate command to existance");
    EXPECT_CONTRACT_TEXT(kLogCommandSignal,
                         "_signing_get_command: signing command check failed by signal %d - %s.\n");
    EXPECT_CONTRACT_TEXT(kLogKeyIncorrectValue, "_signing_is_valid_key: public key contains incorrect value");
}

TEST(ContractTexts, RpmVerifyMessagePieces) {
    EXPECT_CONTRACT_TEXT(kVerifySigned, " is signed.");
    EXPECT_CONTRACT_TEXT(kVerifyNotSigned, " is not signed.");
    EXPECT_CONTRACT_TEXT(kVerifyInvalidSignature, " has invalid signature.");
    EXPECT_CONTRACT_TEXT(kVerifyInvalidHash, " has invalid hash.");
    EXPECT_CONTRACT_TEXT(kVerifyInvalidStructure, " has invalid structure.");
    EXPECT_CONTRACT_TEXT(kVerifyNotAnRpmFile, " is not an RPM file.");
    EXPECT_CONTRACT_TEXT(kVerifyInternalError, "Internal error occured while verifying ");
    EXPECT_CONTRACT_TEXT(kVerifyUnknownError, "Unknown error");
    EXPECT_CONTRACT_TEXT(kVerifyOutOfMemory, "Internal error.");
    EXPECT_CONTRACT_TEXT(kVerifyCouldNotVerify, "Could not verify ");
    EXPECT_CONTRACT_TEXT(kVerifyWithKey, " with key ");
    EXPECT_CONTRACT_TEXT(kVerifyErrorJoint, " - ");
}

// ---------------------------------------------------------------------------
// RPM signature engine

TEST(ContractTexts, SignerSelectionAndCertificateStore) {
    EXPECT_CONTRACT_TEXT(kRpmFileExtensions, "rpm;srpm");
    EXPECT_CONTRACT_TEXT(kSignerBuildContentInfoWithHash,
                         "BuildContentInfo method with hash algorithm specification");
    EXPECT_CONTRACT_TEXT(kRpmSignerBuildContentInfo, "RpmSigner::BuildContentInfo() is not implemented");
    EXPECT_CONTRACT_TEXT(kCertificateFormatNotImplemented, "Not implemented certificate format");
    EXPECT_CONTRACT_TEXT(kPemBegin, "-----BEGIN CERTIFICATE-----\n");
    EXPECT_CONTRACT_TEXT(kPemEnd, "-----END CERTIFICATE-----\n");
    EXPECT_CONTRACT_TEXT(kPemLineEnd, "\n");
}

TEST(ContractTexts, RpmLayoutFaults) {
    EXPECT_CONTRACT_TEXT(kRpmFileTooSmall, "File is too small to have RPM format");
    EXPECT_CONTRACT_TEXT(kRpmUnsupportedSignatureType, "Unsupported signature type");
    EXPECT_CONTRACT_TEXT(kRpmSignatureHeaderMagic,
                         "Signature section: RPM header magic number is not found.");
    EXPECT_CONTRACT_TEXT(kRpmSignatureNotFirst, "RPM signature is expected to be the first header");
    EXPECT_CONTRACT_TEXT(kRpmMainHeaderMagic, "Header section: RPM header magic number is not found.");
    EXPECT_CONTRACT_TEXT(kRpmEntryStorageSize, "GetEntryStorageSize() is not implemented for data type = ");
}

TEST(ContractTexts, PackageVerdictMessages) {
    EXPECT_CONTRACT_TEXT(kVerdictSha1HeaderHash, "Invalid value of SHA1 header hash");
    EXPECT_CONTRACT_TEXT(kVerdictMd5Hash, "Invalid value of MD5 hash");
    EXPECT_CONTRACT_TEXT(kVerdictNoPayloadSignature,
                         "The package does not contain PGP signature over its header and payload.");
    EXPECT_CONTRACT_TEXT(kVerdictPgpSignatureNotValid, "PGP signature is not valid: ");
    EXPECT_CONTRACT_TEXT(kVerdictRsaSignatureNotValid, "RSA signature is not valid. ");
    EXPECT_CONTRACT_TEXT(kVerdictNoPgpSignatures, "There are no PGP signatures.");
    EXPECT_CONTRACT_TEXT(kSignedHashSizeNotImplemented, "");
}

// ---------------------------------------------------------------------------
// OpenPGP

TEST(ContractTexts, Base64AndRadix64) {
    EXPECT_CONTRACT_TEXT(kBase64Alphabet, "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/");
    EXPECT_CONTRACT_TEXT(kBase64BadCharacter, "Base64 data decoding error: bad character in input");
    EXPECT_CONTRACT_TEXT(kBase64WrongLength, "Base64 data decoding error: wrong data length");
    EXPECT_CONTRACT_TEXT(kRadix64Expected, "Expected data in Radix-64 format");
    EXPECT_CONTRACT_TEXT(kRadix64CrcMismatch,
                         "Calculated CRC does not equal to stored CRC of the Radix-64 message");
}

TEST(ContractTexts, ArmoredMessageAndCertificate) {
    EXPECT_CONTRACT_TEXT(kArmorBegin, "-----BEGIN PGP PUBLIC KEY BLOCK-----");
    EXPECT_CONTRACT_TEXT(kArmorEnd, "-----END PGP PUBLIC KEY BLOCK-----");
    EXPECT_CONTRACT_TEXT(kPublicKeyNotFound, "PGP public key is not found");
    EXPECT_CONTRACT_TEXT(kPublicKeyBase64Corrupted, "base64 encoding of PGP public key is corrupted");
    EXPECT_CONTRACT_TEXT(kNewPacketFormat, "New OpenPGP packet format is not supported");
    EXPECT_CONTRACT_TEXT(kUnsupportedPacketTag, "Unsupported packet tag");
    EXPECT_CONTRACT_TEXT(kCertificateWithoutMessage,
                         "Function PgpCertificate::PgpCertificate does not allow NULL value as an argument");
    // The same words as every other null-argument detail.
    EXPECT_EQ(exception_text::NullArgument("PgpCertificate::PgpCertificate"),
              contract::kCertificateWithoutMessage);
}

TEST(ContractTexts, OpenPgpPackets) {
    EXPECT_CONTRACT_TEXT(kIndeterminateLength, "OpenPGP packets with indeterminate length are not supported");
    EXPECT_CONTRACT_TEXT(kOnlyRsa, "Only RSA algorithm is supported");
    EXPECT_CONTRACT_TEXT(kPublicKeyVersion, "This version of OpenPGP public key is not supported");
    EXPECT_CONTRACT_TEXT(kWrongIssuerIdSize, "Wrong size of IssuerID");
    EXPECT_CONTRACT_TEXT(kSignatureVersionBegin, "Version ");
    EXPECT_CONTRACT_TEXT(kSignatureVersionEnd, " of signature packets is not supported");
    EXPECT_CONTRACT_TEXT(kBuildSignatureVersion, "Not supported version of PGP certificate");
    EXPECT_CONTRACT_TEXT(kMpiTooLong,
                         "Size of the multi-precision integers is greater than the buffer length");
}

TEST(ContractTexts, PgpSignatureVerification) {
    EXPECT_CONTRACT_TEXT(kUnsupportedPgpHash, "Not supported hash algorithm in PGP signature");
    EXPECT_CONTRACT_TEXT(kSignatureSizeNotImplemented, "Cannot get size of PGP signature.");
    EXPECT_CONTRACT_TEXT(kSignedSizeNotImplemented, "PgpSignature::GetSignedSize() is not implemented");
    EXPECT_CONTRACT_TEXT(kDigestDoesNotCorrespond, " Digest does not correspond to the signature");
    EXPECT_CONTRACT_TEXT(kDifferentCertificate, " The file was signed with a different PGP certificate");
    EXPECT_CONTRACT_TEXT(kSignatureNotValid, "Signature is not valid: ");
    EXPECT_CONTRACT_TEXT(kFailedRsaCheckLogicError, "basic_string::_S_construct NULL not valid");
}

// ---------------------------------------------------------------------------
// Message digests

TEST(ContractTexts, DigestNamesAndObjectIdentifiers) {
    EXPECT_CONTRACT_TEXT(kDigestNameSha1, "SHA1");
    EXPECT_CONTRACT_TEXT(kDigestNameMd5, "MD5");
    EXPECT_CONTRACT_TEXT(kDigestNameSha224, "SHA224");
    EXPECT_CONTRACT_TEXT(kDigestNameSha256, "SHA256");
    EXPECT_CONTRACT_TEXT(kDigestNameSha384, "SHA384");
    EXPECT_CONTRACT_TEXT(kDigestNameSha512, "SHA512");
    EXPECT_CONTRACT_TEXT(kDigestNamePeHeaderHash, "PE Header Hash");
    EXPECT_CONTRACT_TEXT(kDigestOidSha1, "1.3.14.3.2.26");
    EXPECT_CONTRACT_TEXT(kDigestOidMd5, "1.2.840.113549.2.5");
    EXPECT_CONTRACT_TEXT(kDigestOidSha224, "2.16.840.1.101.3.4.2.4");
    EXPECT_CONTRACT_TEXT(kDigestOidSha256, "2.16.840.1.101.3.4.2.1");
    EXPECT_CONTRACT_TEXT(kDigestOidSha384, "2.16.840.1.101.3.4.2.2");
    EXPECT_CONTRACT_TEXT(kDigestOidSha512, "2.16.840.1.101.3.4.2.3");
}

TEST(ContractTexts, DigestFailures) {
    EXPECT_CONTRACT_TEXT(kDigestCannotCreate, "Cannot create ");
    EXPECT_CONTRACT_TEXT(kDigestCannotInitialize, "Cannot initialize ");
    EXPECT_CONTRACT_TEXT(kDigestCannotCopy, "Cannot copy ");
    EXPECT_CONTRACT_TEXT(kDigestErrorWhile, "Error while ");
    EXPECT_CONTRACT_TEXT(kDigestCannotGetValue, "Cannot get value of ");
    EXPECT_CONTRACT_TEXT(kDigestTypeEnd, " digest type");
    EXPECT_CONTRACT_TEXT(kDigestContextEnd, " digest context");
    EXPECT_CONTRACT_TEXT(kDigestStateEnd, " digest state");
    EXPECT_CONTRACT_TEXT(kDigestUpdateEnd, " digest update");
    EXPECT_CONTRACT_TEXT(kDigestEnd, " digest");
    EXPECT_CONTRACT_TEXT(kDigestWrongContext, "Wrong digest context");
    EXPECT_CONTRACT_TEXT(kDigestNotInitialized, "Using digest within not initialized context");
    EXPECT_CONTRACT_TEXT(kDigestWrongLength, "Wrong length of the digest value. Expected: ");
    EXPECT_CONTRACT_TEXT(kDigestWrongLengthGot, ", got: ");
    EXPECT_CONTRACT_TEXT(kDigestUndefinedType, "Undefined type of digest");
    EXPECT_CONTRACT_TEXT(kDigestNidNotSupported,
                         "The signature is built on a digest calculated with not supported hash algorithm");
    EXPECT_CONTRACT_TEXT(kDigestUnknownNid, "Unknown object Numerical Identifier (NID) for hash algorithm");
    EXPECT_CONTRACT_TEXT(kDigestUnknownOid, "Unknown object identifier for hash algorithm");
    EXPECT_CONTRACT_TEXT(kDigestUnknownAlgorithm, "unknown hash algorithm");
}

// ---------------------------------------------------------------------------
// Foundation utilities

TEST(ContractTexts, ExceptionTitles) {
    EXPECT_CONTRACT_TEXT(kTitleFileIo, "File operation error");
    EXPECT_CONTRACT_TEXT(kTitleFileNotFound, "File not found");
    EXPECT_CONTRACT_TEXT(kTitleInvalidFileStructure, "Invalid structure of the file");
    EXPECT_CONTRACT_TEXT(kTitleNotSupportedFileFormat, "File format is not supported");
    EXPECT_CONTRACT_TEXT(kTitleNotImplemented, "Not implemented");
    EXPECT_CONTRACT_TEXT(kTitleArgument, "Invalid argument");
    EXPECT_CONTRACT_TEXT(kTitleDataFormat, "Invalid format of data");
    EXPECT_CONTRACT_TEXT(kTitleDigest, "Digest calculation error");
    EXPECT_CONTRACT_TEXT(kTitlePkcs7Inner, "Error during processing PKCS7 structure");
    EXPECT_CONTRACT_TEXT(kTitleNone, "");
    EXPECT_CONTRACT_TEXT(kTitleSeparator, ": ");
    EXPECT_CONTRACT_TEXT(kNullArgumentBegin, "Function ");
    EXPECT_CONTRACT_TEXT(kNullArgumentEnd, " does not allow NULL value as an argument");
}

TEST(ContractTexts, BaseUtilities) {
    EXPECT_CONTRACT_TEXT(kFilePattern, R"(^[a-zA-Z0-9()+._ \/\-\[\]\\]*$)");
    EXPECT_CONTRACT_TEXT(kRoundUpPower, "Not supported value to round up to a power of 2.");
    EXPECT_CONTRACT_TEXT(kUtcTimeFailed, "Failed to obtain UTC time");
}

TEST(ContractTexts, FileAccess) {
    EXPECT_CONTRACT_TEXT(kErrorJoint, ": ");
    EXPECT_CONTRACT_TEXT(kQuotedErrorJoint, "': ");
    EXPECT_CONTRACT_TEXT(kQuotedErrorJointNoBlank, "':");
    EXPECT_CONTRACT_TEXT(kFileCannotGetStatus, "Cannot get status for '");
    EXPECT_CONTRACT_TEXT(kFileCannotOpen, "Cannot open file ");
    EXPECT_CONTRACT_TEXT(kFileCannotReadFolderPermissions, "Cannot read permissions of folder '");
    EXPECT_CONTRACT_TEXT(kFileCannotClose, "Cannot close file ");
    EXPECT_CONTRACT_TEXT(kFileNotOpenBegin, "File '");
    EXPECT_CONTRACT_TEXT(kFileNotOpenEnd, "' was not open");
    EXPECT_CONTRACT_TEXT(kFileCannotPosition, "Error on positioning file '");
    EXPECT_CONTRACT_TEXT(kFileCannotWrite, "Error on writing to file: ");
    EXPECT_CONTRACT_TEXT(kFileCannotRemove, "Cannot remove file ");
    EXPECT_CONTRACT_TEXT(kFileCannotRename, "Cannot rename file ");
    EXPECT_CONTRACT_TEXT(kFileCannotLstatBegin, R"(Cannot lstat path: ")");
    EXPECT_CONTRACT_TEXT(kFileCannotLstatEnd, R"(")");
    EXPECT_CONTRACT_TEXT(kFileCannotGetSymlink, "Cannot get symlink path: ");
    EXPECT_CONTRACT_TEXT(kFileCannotGetSize, "Cannot get size of '");
    EXPECT_CONTRACT_TEXT(kFileCannotGetModificationTime, "Cannot get modification time of '");
    EXPECT_CONTRACT_TEXT(kCurrentFolder, ".");
    EXPECT_CONTRACT_TEXT(kExecutableLink, "/proc/self/exe");
}

TEST(ContractTexts, FoldersAndWildcards) {
    EXPECT_CONTRACT_TEXT(kFolderCannotCreate, "Cannot create directory ");
    EXPECT_CONTRACT_TEXT(kFolderCannotDelete, "Cannot delete directory ");
    EXPECT_CONTRACT_TEXT(kFolderCannotRename, "Cannot rename folder ");
    EXPECT_CONTRACT_TEXT(kWildcardCharacters, "*?");
    EXPECT_CONTRACT_TEXT(kWildcardDeep, "**");
    EXPECT_CONTRACT_TEXT(kWildcardDeepExpression, ".*");
    EXPECT_CONTRACT_TEXT(kWildcardAnyExpression, R"([A-Za-z0-9-^&'@{}\]\[,\$=!#\(\)%\.\+~_]*)");
    EXPECT_CONTRACT_TEXT(kWildcardOneExpression, R"([A-Za-z0-9-^&'@{}\]\[,\$=!#\(\)%\.\+~_])");
    EXPECT_CONTRACT_TEXT(kWildcardMarkedCharacters, R"(\.())");
}

TEST(ContractTexts, PermissionsAndExtendedAttributes) {
    EXPECT_CONTRACT_TEXT(kPermissionsCannotRead, "Cannot read permissions of file: ");
    EXPECT_CONTRACT_TEXT(kPermissionsCannotRestore, "Cannot restore permissions in file: ");
    EXPECT_CONTRACT_TEXT(kGroupCannotRead, "Cannot read the group of file: ");
    EXPECT_CONTRACT_TEXT(kGroupCannotRestore, "Cannot restore group in file: ");
    EXPECT_CONTRACT_TEXT(kPermissionsCannotInherit, "Cannot restore permissions for file '");
    EXPECT_CONTRACT_TEXT(kXAttrCannotList, "Cannot read xattr list of '");
    EXPECT_CONTRACT_TEXT(kXAttrCannotRead, "Cannot read xattr '");
    EXPECT_CONTRACT_TEXT(kXAttrOfPath, "' of '");
    EXPECT_CONTRACT_TEXT(kXAttrCannotWrite, "Cannot write ");
    EXPECT_CONTRACT_TEXT(kXAttrBytesInto, " bytes into ");
    EXPECT_CONTRACT_TEXT(kXAttrXAttrOfPath, "' xattr of '");
    EXPECT_CONTRACT_TEXT(kXAttrCannotRemove, "Cannot remove '");
}

TEST(ContractTexts, RegularExpressionMatcher) {
    EXPECT_CONTRACT_TEXT(kRegexMetacharacters, R"(^$().[]*+?|\Ssdbfnrtv)");
    EXPECT_CONTRACT_TEXT(kRegexNotMatched, "Not matched");
}

// ---------------------------------------------------------------------------
// The odd spellings and spacings, each pinned on its own so that nobody
// "corrects" one by accident.

TEST(ContractTexts, DeliberateOddities) {
    using std::string;
    // Misspellings.
    EXPECT_NE(string(contract::kVerifyInternalError).find("occured"), string::npos);
    EXPECT_NE(string(contract::kLogCommandNotValidated).find("existance"), string::npos);
    // Three blanks after "command", one after "protocols": the brackets line up.
    EXPECT_NE(string(contract::kLogKeySecureCommand).find("secure command   ["), string::npos);
    EXPECT_EQ(string(contract::kLogKeySecureCommand).find("    "), string::npos);
    EXPECT_EQ(std::strchr(contract::kLogKeySecureCommand, '[') - contract::kLogKeySecureCommand,
              std::strchr(contract::kLogKeySecureProtocols, '[') - contract::kLogKeySecureProtocols);
    // Signal messages end in a full stop and a line feed; no other log line does.
    EXPECT_EQ(string(contract::kLogWebServiceSignal).substr(sizeof(contract::kLogWebServiceSignal) - 3),
              ".\n");
    EXPECT_EQ(string(contract::kLogCommandSignal).substr(sizeof(contract::kLogCommandSignal) - 3), ".\n");
    // Trailing blanks where a value follows.
    EXPECT_EQ(contract::kVerifyInternalError[sizeof(contract::kVerifyInternalError) - 2], ' ');
    EXPECT_EQ(contract::kVerdictRsaSignatureNotValid[sizeof(contract::kVerdictRsaSignatureNotValid) - 2],
              ' ');
    EXPECT_EQ(contract::kRpmEntryStorageSize[sizeof(contract::kRpmEntryStorageSize) - 2], ' ');
    // Leading blanks of the appended check messages.
    EXPECT_EQ(contract::kDigestDoesNotCorrespond[0], ' ');
    EXPECT_EQ(contract::kDifferentCertificate[0], ' ');
    // The xattr write message closes a quote it never opened.
    const string write = string(contract::kXAttrCannotWrite) + "8" + contract::kXAttrBytesInto + "user.x" +
                         contract::kXAttrXAttrOfPath + "/f" + contract::kQuotedErrorJointNoBlank;
    EXPECT_EQ(write, "Cannot write 8 bytes into user.x' xattr of '/f':");
    // Both double quotes of the wget command are there: LD_LIBRARY_PATH is
    // set to the empty string.
    EXPECT_NE(string(contract::kCommandTemplateWget).find("LD_LIBRARY_PATH=\"\"; "), string::npos);
    EXPECT_NE(string(contract::kCommandTemplateCurl).find("LD_LIBRARY_PATH=\"\"; "), string::npos);
    // The lower-case "unknown" beside the upper-case "Unknown".
    EXPECT_EQ(contract::kDigestUnknownAlgorithm[0], 'u');
    EXPECT_EQ(contract::kDigestUnknownOid[0], 'U');
    // A signature packet built in an unsupported version is called a certificate.
    EXPECT_NE(string(contract::kBuildSignatureVersion).find("certificate"), string::npos);
    // Lengths the readers rely on.
    EXPECT_EQ(sizeof(contract::kArmorBegin) - 1, 36u);
    EXPECT_EQ(sizeof(contract::kArmorEnd) - 1, 34u);
    EXPECT_EQ(sizeof(contract::kPemBegin) - 1, 28u);
    EXPECT_EQ(sizeof(contract::kPemEnd) - 1, 26u);
    EXPECT_EQ(sizeof(contract::kWildcardAnyExpression) - 1, 40u);
    EXPECT_EQ(sizeof(contract::kWildcardOneExpression) - 1, 39u);
    EXPECT_EQ(sizeof(contract::kBase64Alphabet) - 1, 64u);
    EXPECT_EQ(sizeof(contract::kRegexMetacharacters) - 1, 21u);
}

// ---------------------------------------------------------------------------
// The tables and exported data that hold the texts use these constants.

TEST(ContractTexts, ExceptionsComposeTheirTitles) {
    using std::string;
    EXPECT_EQ(string(FileNotFoundException("D").what()),
              string(contract::kTitleFileIo) + contract::kTitleSeparator + contract::kTitleFileNotFound +
                  contract::kTitleSeparator + "D");
    EXPECT_EQ(string(DigestException("D").what()),
              string(contract::kTitleDigest) + contract::kTitleSeparator + "D");
    EXPECT_EQ(string(NotDefinedException("D").what()), "D");
}

TEST(ContractTexts, ExportedDataAndTablesShareTheTexts) {
    EXPECT_STREQ(FILE_PATTERN, contract::kFilePattern);
    RpmSignerCreator creator;
    EXPECT_STREQ(creator.GetFileExtensions(), contract::kRpmFileExtensions);
    const char* const names[] = {contract::kDigestNameSha1,        contract::kDigestNameMd5,
                                 contract::kDigestNameSha224,      contract::kDigestNameSha256,
                                 contract::kDigestNameSha384,      contract::kDigestNameSha512,
                                 contract::kDigestNamePeHeaderHash};
    const char* const oids[] = {contract::kDigestOidSha1,   contract::kDigestOidMd5,
                                contract::kDigestOidSha224, contract::kDigestOidSha256,
                                contract::kDigestOidSha384, contract::kDigestOidSha512};
    ASSERT_EQ(soapWrap::NAMED_ALGORITHM_COUNT, sizeof(names) / sizeof(names[0]));
    for (unsigned int i = 0; i < soapWrap::NAMED_ALGORITHM_COUNT; ++i) {
        EXPECT_STREQ(soapWrap::HASH_ALGORITHMS[i].Name, names[i]) << i;
    }
    for (unsigned int i = 0; i < soapWrap::DIGEST_ALGORITHM_COUNT; ++i) {
        EXPECT_STREQ(soapWrap::HASH_ALGORITHMS[i].Oid, oids[i]) << i;
    }
}
