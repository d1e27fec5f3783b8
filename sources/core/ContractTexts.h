// Every text that crosses the plug-in's boundary or that its users rely on
// byte for byte: exception details, log formats, the messages of rpm_verify,
// session keys and message identifiers, command templates, markers and
// patterns. They are kept here, in one place, exactly as the host and the
// tools around the plug-in expect them: misspellings, odd blanks and
// unbalanced quotes included. Do not "correct" any of them.
//
// Texts that only describe a guard the library adds against malformed input
// or misuse (bounds checks, null arguments) are worded where they are raised.
//
// Texts made of pieces around a value (a path, a name, a number) are given
// as their pieces, in the order in which they are joined.
#ifndef SIGNING_CONTRACTTEXTS_H
#define SIGNING_CONTRACTTEXTS_H

namespace contract {

// ===========================================================================
// Host plug-in interface

// ---------------------------------------------------------------------------
// Package-list validation: session keys and values.
inline constexpr char kSessionOperationProgress[] = "operation_progress";
inline constexpr char kSessionLocalPublicKey[] = "SIGNING_LOCAL_PUBLIC_KEY";
inline constexpr char kSessionSignature[] = "signature";
inline constexpr char kSessionSignificance[] = "SIGNIFICANCE";
inline constexpr char kSessionShortDescription[] = "SHORT_DESC";
inline constexpr char kSessionFullDescription[] = "FULL_DESC";
// The progress before the first component.
inline constexpr char kProgressStart[] = "0";
// Only components of this package type are verified (compared exactly).
inline constexpr char kPackageType[] = "rpm";
// Joins a component's expanded package folder and its package file name.
inline constexpr char kPackagePathSeparator[] = "/";

// Entries appended to "SIGNIFICANCE": a warning, an error.
inline constexpr char kSignificanceWarning[] = ";0";
inline constexpr char kSignificanceError[] = ";1";

// Message identifiers of the host's catalogue, each with the list separator
// in front of it. A failed package is an error; a key that could not be
// validated, downloaded or read is an optional-prerequisite warning.
inline constexpr char kErrorCheckShortDescription[] = ";SIGNING_prereq_err_signing_check_short_desc";
inline constexpr char kErrorCheckFullDescription[] = ";SIGNING_prereq_err_signing_check_full_desc";
inline constexpr char kWarningValidateShortDescription[] =
    ";SIGNING_prereq_war_signing_check_validate_short_desc";
inline constexpr char kWarningValidateFullDescription[] =
    ";SIGNING_prereq_war_signing_check_validate_full_desc";
inline constexpr char kWarningDownloadShortDescription[] =
    ";SIGNING_prereq_war_signing_check_download_short_desc";
inline constexpr char kWarningDownloadFullDescription[] =
    ";SIGNING_prereq_war_signing_check_download_full_desc";
inline constexpr char kWarningFileShortDescription[] = ";SIGNING_prereq_war_signing_check_file_short_desc";
inline constexpr char kWarningFileFullDescription[] = ";SIGNING_prereq_war_signing_check_file_full_desc";

// Package-list validation: log formats (printf-style).
inline constexpr char kLogValidationStarted[] = "signing_validate_package_list: started";
inline constexpr char kLogValidationNoKeyLocation[] =
    "signing_validate_package_list: unable to obtain public key location";
inline constexpr char kLogValidationKeyNotValid[] = "signing_validate_package_list: public key is not valid";
inline constexpr char kLogValidationResult[] =
    "_signing_validate_file: signing validation result %d (0 is success) for %s package [%s]";
inline constexpr char kLogValidationNotAvailable[] =
    "signing_validate_package_list: component '%s' is not verified because it is not available";
inline constexpr char kLogValidationSignificance[] = "signing_validate_package_list: %s";
inline constexpr char kLogValidationFinished[] = "signing_validate_package_list: finished";
inline constexpr char kLogOptionalPrerequisiteStatus[] = "_signing_set_optional_prerequisite_status: %s";

// ---------------------------------------------------------------------------
// Public key acquisition: session keys, read from the session and from the
// nested environments of products and components.
inline constexpr char kSessionDefaultUrl[] = "SIGNING_DEFAULT_URL";
inline constexpr char kSessionSigningUrl[] = "signing_url";
inline constexpr char kSessionTempFolder[] = "TEMP_FOLDER";
inline constexpr char kEnvironmentPhonehome[] = "phonehome";
inline constexpr char kEnvironmentUpdateId[] = "VokUpdateId";

// The key service is asked for the key of an update: the update identifier
// follows this suffix. The key is downloaded into this file of the
// temporary folder.
inline constexpr char kRequestSuffix[] = "?id=";
inline constexpr char kPublicKeyFileName[] = "/PUBLIC_KEY.PUB";

// The download tools, the commands that find them, and their command
// templates (time-out, tries, request, output file). LD_LIBRARY_PATH is
// set to the empty string so that the tool does not pick up the host's
// libraries.
inline constexpr char kToolWget[] = "wget";
inline constexpr char kToolCurl[] = "curl";
inline constexpr char kProbeWget[] = "which wget 2>/dev/null";
inline constexpr char kProbeCurl[] = "which curl 2>/dev/null";
inline constexpr char kCommandTemplateWget[] =
    "export LD_LIBRARY_PATH=\"\"; wget --timeout=%d --tries=%d --quiet %s -O %s 2>/dev/null";
inline constexpr char kCommandTemplateCurl[] =
    "export LD_LIBRARY_PATH=\"\"; curl --max-time %d --retry %d --location --silent %s -o %s 2>/dev/null";
// Probes and downloads are read through a pipe opened in this mode.
inline constexpr char kPipeMode[] = "r";

// The secure-protocol option of each download attempt, in attempt order,
// and the blank that joins it to the command in the log.
inline constexpr char kWgetSecureProtocol1[] = "--secure-protocol=SSLv3";
inline constexpr char kWgetSecureProtocol2[] = "--secure-protocol=SSLv2";
inline constexpr char kWgetSecureProtocol3[] = "--secure-protocol=TLSv1";
inline constexpr char kCurlSecureProtocol1[] = "--sslv3";
inline constexpr char kCurlSecureProtocol2[] = "--sslv2";
inline constexpr char kCurlSecureProtocol3[] = "--tlsv1";
inline constexpr char kSecureCommandJoint[] = " ";

// A key service that cannot find a key answers with a page that links
// elsewhere; a key file with this text on any line is not a key.
inline constexpr char kInvalidKeyMarker[] = "http://";

// Public key acquisition: log formats (printf-style). Two of them end in a
// full stop and a line feed, and the secure command has three blanks
// before its bracket.
inline constexpr char kLogKeySpecifiedByUser[] = "signing_get_public_key: public key specified by user %s";
inline constexpr char kLogKeyWillBeDownloaded[] =
    "signing_get_public_key: public key will be downloaded from QEL";
inline constexpr char kLogKeyRequest[] = "signing_get_public_key: request value [%s]";
inline constexpr char kLogKeyCommand[] = "signing_get_public_key: command value [%s]";
inline constexpr char kLogKeySecureCommand[] = "signing_get_public_key: secure command   [%s]";
inline constexpr char kLogKeySecureProtocols[] = "signing_get_public_key: secure protocols [%s]";
inline constexpr char kLogKeyObtained[] = "signing_get_public_key: public key obtained successfully [%s]";
inline constexpr char kLogWebServiceNoMemory[] = "_signing_call_webservice: unable to allocate memory";
inline constexpr char kLogWebServiceNotExecuted[] = "_signing_call_webservice: unable to execute command";
inline constexpr char kLogWebServiceSignal[] =
    "_signing_call_webservice: signing web service call failed by signal %d - %s.\n";
inline constexpr char kLogWebServiceStatus[] =
    "_signing_call_webservice: web service call failed with status %d";
inline constexpr char kLogCommandNotValidated[] =
    "_signing_get_command: unable to validate command to existance";
inline constexpr char kLogCommandSignal[] =
    "_signing_get_command: signing command check failed by signal %d - %s.\n";
inline constexpr char kLogKeyIncorrectValue[] = "_signing_is_valid_key: public key contains incorrect value";

// ---------------------------------------------------------------------------
// Single-package verification: the message of each status follows the
// package path; an error while verifying names the path after its text.
inline constexpr char kVerifySigned[] = " is signed.";
inline constexpr char kVerifyNotSigned[] = " is not signed.";
inline constexpr char kVerifyInvalidSignature[] = " has invalid signature.";
inline constexpr char kVerifyInvalidHash[] = " has invalid hash.";
inline constexpr char kVerifyInvalidStructure[] = " has invalid structure.";
inline constexpr char kVerifyNotAnRpmFile[] = " is not an RPM file.";
inline constexpr char kVerifyInternalError[] = "Internal error occured while verifying ";
inline constexpr char kVerifyUnknownError[] = "Unknown error";
// The message when no message could be allocated.
inline constexpr char kVerifyOutOfMemory[] = "Internal error.";
// "Could not verify " + package + " with key " + key + " - " + exception text.
inline constexpr char kVerifyCouldNotVerify[] = "Could not verify ";
inline constexpr char kVerifyWithKey[] = " with key ";
inline constexpr char kVerifyErrorJoint[] = " - ";

// ===========================================================================
// RPM signature engine

// ---------------------------------------------------------------------------
// Signer selection and certificate store.
inline constexpr char kRpmFileExtensions[] = "rpm;srpm";
// The detail of the overload that takes a hash algorithm as its argument;
// the host shows these words exactly as they are.
inline constexpr char kSignerBuildContentInfoWithHash[] =
    "BuildContentInfo method with hash algorithm specification";
inline constexpr char kRpmSignerBuildContentInfo[] = "RpmSigner::BuildContentInfo() is not implemented";
inline constexpr char kCertificateFormatNotImplemented[] = "Not implemented certificate format";
// The PEM block that wraps DER bytes, 64 Base64 characters to a line.
inline constexpr char kPemBegin[] = "-----BEGIN CERTIFICATE-----\n";
inline constexpr char kPemEnd[] = "-----END CERTIFICATE-----\n";
inline constexpr char kPemLineEnd[] = "\n";

// ---------------------------------------------------------------------------
// RPM layout: the details of the structural faults of a package.
inline constexpr char kRpmFileTooSmall[] = "File is too small to have RPM format";
inline constexpr char kRpmUnsupportedSignatureType[] = "Unsupported signature type";
inline constexpr char kRpmSignatureHeaderMagic[] = "Signature section: RPM header magic number is not found.";
inline constexpr char kRpmSignatureNotFirst[] = "RPM signature is expected to be the first header";
inline constexpr char kRpmMainHeaderMagic[] = "Header section: RPM header magic number is not found.";
// Followed by the type's decimal number.
inline constexpr char kRpmEntryStorageSize[] = "GetEntryStorageSize() is not implemented for data type = ";

// ---------------------------------------------------------------------------
// Signature container and package verdict.
inline constexpr char kVerdictSha1HeaderHash[] = "Invalid value of SHA1 header hash";
inline constexpr char kVerdictMd5Hash[] = "Invalid value of MD5 hash";
inline constexpr char kVerdictNoPayloadSignature[] =
    "The package does not contain PGP signature over its header and payload.";
// Put in front of the message of the last payload signature checked.
inline constexpr char kVerdictPgpSignatureNotValid[] = "PGP signature is not valid: ";
// Put in front of the message of a signature that did not verify.
inline constexpr char kVerdictRsaSignatureNotValid[] = "RSA signature is not valid. ";
inline constexpr char kVerdictNoPgpSignatures[] = "There are no PGP signatures.";
// Only RSA has a signed-hash size: any other algorithm's text is the
// exception's title and its separator alone.
inline constexpr char kSignedHashSizeNotImplemented[] = "";

// ===========================================================================
// OpenPGP

// ---------------------------------------------------------------------------
// Radix-64 and Base64 codecs.
inline constexpr char kBase64Alphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
inline constexpr char kBase64BadCharacter[] = "Base64 data decoding error: bad character in input";
inline constexpr char kBase64WrongLength[] = "Base64 data decoding error: wrong data length";
inline constexpr char kRadix64Expected[] = "Expected data in Radix-64 format";
inline constexpr char kRadix64CrcMismatch[] =
    "Calculated CRC does not equal to stored CRC of the Radix-64 message";

// ---------------------------------------------------------------------------
// Armored message and public-key certificate.
inline constexpr char kArmorBegin[] = "-----BEGIN PGP PUBLIC KEY BLOCK-----";
inline constexpr char kArmorEnd[] = "-----END PGP PUBLIC KEY BLOCK-----";
inline constexpr char kPublicKeyNotFound[] = "PGP public key is not found";
inline constexpr char kPublicKeyBase64Corrupted[] = "base64 encoding of PGP public key is corrupted";
inline constexpr char kNewPacketFormat[] = "New OpenPGP packet format is not supported";
inline constexpr char kUnsupportedPacketTag[] = "Unsupported packet tag";
// A certificate made without a message: the null-argument detail (see
// kNullArgumentBegin), kept whole because it is exported as it is.
inline constexpr char kCertificateWithoutMessage[] =
    "Function PgpCertificate::PgpCertificate does not allow NULL value as an argument";

// ---------------------------------------------------------------------------
// OpenPGP packets.
inline constexpr char kIndeterminateLength[] = "OpenPGP packets with indeterminate length are not supported";
inline constexpr char kOnlyRsa[] = "Only RSA algorithm is supported";
inline constexpr char kPublicKeyVersion[] = "This version of OpenPGP public key is not supported";
inline constexpr char kWrongIssuerIdSize[] = "Wrong size of IssuerID";
// "Version " + the version octet as a character + " of signature ...".
inline constexpr char kSignatureVersionBegin[] = "Version ";
inline constexpr char kSignatureVersionEnd[] = " of signature packets is not supported";
// The wording says certificate although a signature packet is built.
inline constexpr char kBuildSignatureVersion[] = "Not supported version of PGP certificate";
inline constexpr char kMpiTooLong[] =
    "Size of the multi-precision integers is greater than the buffer length";

// ---------------------------------------------------------------------------
// PGP signature verification. The two check messages are appended with
// their leading blank.
inline constexpr char kUnsupportedPgpHash[] = "Not supported hash algorithm in PGP signature";
inline constexpr char kSignatureSizeNotImplemented[] = "Cannot get size of PGP signature.";
inline constexpr char kSignedSizeNotImplemented[] = "PgpSignature::GetSignedSize() is not implemented";
inline constexpr char kDigestDoesNotCorrespond[] = " Digest does not correspond to the signature";
inline constexpr char kDifferentCertificate[] = " The file was signed with a different PGP certificate";
// Followed by the RSA provider's last error text.
inline constexpr char kSignatureNotValid[] = "Signature is not valid: ";
// The logic error that a failed RSA check raises: the host knows a failed
// check by this text of the standard library the plug-in was first built with.
inline constexpr char kFailedRsaCheckLogicError[] = "basic_string::_S_construct NULL not valid";

// ===========================================================================
// Cryptographic primitives: message digests.

// Display names and dotted object identifiers of the hash algorithms.
inline constexpr char kDigestNameSha1[] = "SHA1";
inline constexpr char kDigestNameMd5[] = "MD5";
inline constexpr char kDigestNameSha224[] = "SHA224";
inline constexpr char kDigestNameSha256[] = "SHA256";
inline constexpr char kDigestNameSha384[] = "SHA384";
inline constexpr char kDigestNameSha512[] = "SHA512";
inline constexpr char kDigestNamePeHeaderHash[] = "PE Header Hash";
inline constexpr char kDigestOidSha1[] = "1.3.14.3.2.26";
inline constexpr char kDigestOidMd5[] = "1.2.840.113549.2.5";
inline constexpr char kDigestOidSha224[] = "2.16.840.1.101.3.4.2.4";
inline constexpr char kDigestOidSha256[] = "2.16.840.1.101.3.4.2.1";
inline constexpr char kDigestOidSha384[] = "2.16.840.1.101.3.4.2.2";
inline constexpr char kDigestOidSha512[] = "2.16.840.1.101.3.4.2.3";

// Digest failures; the pieces go around the algorithm's display name.
inline constexpr char kDigestCannotCreate[] = "Cannot create ";
inline constexpr char kDigestCannotInitialize[] = "Cannot initialize ";
inline constexpr char kDigestCannotCopy[] = "Cannot copy ";
inline constexpr char kDigestErrorWhile[] = "Error while ";
inline constexpr char kDigestCannotGetValue[] = "Cannot get value of ";
inline constexpr char kDigestTypeEnd[] = " digest type";
inline constexpr char kDigestContextEnd[] = " digest context";
inline constexpr char kDigestStateEnd[] = " digest state";
inline constexpr char kDigestUpdateEnd[] = " digest update";
inline constexpr char kDigestEnd[] = " digest";
inline constexpr char kDigestWrongContext[] = "Wrong digest context";
inline constexpr char kDigestNotInitialized[] = "Using digest within not initialized context";
// "...Expected: " + expected length + ", got: " + length written.
inline constexpr char kDigestWrongLength[] = "Wrong length of the digest value. Expected: ";
inline constexpr char kDigestWrongLengthGot[] = ", got: ";
inline constexpr char kDigestUndefinedType[] = "Undefined type of digest";
inline constexpr char kDigestNidNotSupported[] =
    "The signature is built on a digest calculated with not supported hash algorithm";
inline constexpr char kDigestUnknownNid[] = "Unknown object Numerical Identifier (NID) for hash algorithm";
inline constexpr char kDigestUnknownOid[] = "Unknown object identifier for hash algorithm";
inline constexpr char kDigestUnknownAlgorithm[] = "unknown hash algorithm";

// ===========================================================================
// Foundation utilities

// ---------------------------------------------------------------------------
// Exception titles; an empty title makes what() the detail alone.
inline constexpr char kTitleFileIo[] = "File operation error";
inline constexpr char kTitleFileNotFound[] = "File not found";
inline constexpr char kTitleInvalidFileStructure[] = "Invalid structure of the file";
inline constexpr char kTitleNotSupportedFileFormat[] = "File format is not supported";
inline constexpr char kTitleNotImplemented[] = "Not implemented";
inline constexpr char kTitleArgument[] = "Invalid argument";
inline constexpr char kTitleDataFormat[] = "Invalid format of data";
inline constexpr char kTitleDigest[] = "Digest calculation error";
inline constexpr char kTitlePkcs7Inner[] = "Error during processing PKCS7 structure";
inline constexpr char kTitleNone[] = "";
inline constexpr char kTitleSeparator[] = ": ";
// The detail of an ArgumentException for a null argument: "Function " +
// the function's name + " does not allow NULL value as an argument"
// (exception_text::NullArgument joins them). Hidden, unlike the texts
// above: they are no part of what the plug-in exports.
__attribute__((visibility("hidden"))) inline constexpr char kNullArgumentBegin[] = "Function ";
__attribute__((visibility("hidden"))) inline constexpr char kNullArgumentEnd[] =
    " does not allow NULL value as an argument";

// ---------------------------------------------------------------------------
// Base utilities.
inline constexpr char kFilePattern[] = "^[a-zA-Z0-9()+._ \\/\\-\\[\\]\\\\]*$";
inline constexpr char kRoundUpPower[] = "Not supported value to round up to a power of 2.";
inline constexpr char kUtcTimeFailed[] = "Failed to obtain UTC time";

// ---------------------------------------------------------------------------
// File access. Each detail is its pieces around the path (and the system's
// error text where there is one). The joints before the error text are
// colon and blank, quote, colon and blank, or quote and colon without a
// blank, as each message has it.
inline constexpr char kErrorJoint[] = ": ";
inline constexpr char kQuotedErrorJoint[] = "': ";
inline constexpr char kQuotedErrorJointNoBlank[] = "':";
inline constexpr char kFileCannotGetStatus[] = "Cannot get status for '";
inline constexpr char kFileCannotOpen[] = "Cannot open file ";
inline constexpr char kFileCannotReadFolderPermissions[] = "Cannot read permissions of folder '";
inline constexpr char kFileCannotClose[] = "Cannot close file ";
inline constexpr char kFileNotOpenBegin[] = "File '";
inline constexpr char kFileNotOpenEnd[] = "' was not open";
inline constexpr char kFileCannotPosition[] = "Error on positioning file '";
inline constexpr char kFileCannotWrite[] = "Error on writing to file: ";
inline constexpr char kFileCannotRemove[] = "Cannot remove file ";
inline constexpr char kFileCannotRename[] = "Cannot rename file ";
inline constexpr char kFileCannotLstatBegin[] = "Cannot lstat path: \"";
inline constexpr char kFileCannotLstatEnd[] = "\"";
inline constexpr char kFileCannotGetSymlink[] = "Cannot get symlink path: ";
inline constexpr char kFileCannotGetSize[] = "Cannot get size of '";
inline constexpr char kFileCannotGetModificationTime[] = "Cannot get modification time of '";
// The folder of a path that names no folder.
inline constexpr char kCurrentFolder[] = ".";
// The link through which the running executable is found.
inline constexpr char kExecutableLink[] = "/proc/self/exe";

// ---------------------------------------------------------------------------
// Folders, wildcards, permissions and extended attributes.
inline constexpr char kFolderCannotCreate[] = "Cannot create directory ";
inline constexpr char kFolderCannotDelete[] = "Cannot delete directory ";
inline constexpr char kFolderCannotRename[] = "Cannot rename folder ";

// Wildcards: the characters that make a path a pattern, and their
// translation into matcher expressions. Before translating, a slash is put
// in front of every one of the marked characters.
inline constexpr char kWildcardCharacters[] = "*?";
inline constexpr char kWildcardDeep[] = "**";
inline constexpr char kWildcardDeepExpression[] = ".*";
inline constexpr char kWildcardAnyExpression[] = "[A-Za-z0-9-^&'@{}\\]\\[,\\$=!#\\(\\)%\\.\\+~_]*";
inline constexpr char kWildcardOneExpression[] = "[A-Za-z0-9-^&'@{}\\]\\[,\\$=!#\\(\\)%\\.\\+~_]";
inline constexpr char kWildcardMarkedCharacters[] = "\\.()";

// Permissions and group: these messages carry no error text.
inline constexpr char kPermissionsCannotRead[] = "Cannot read permissions of file: ";
inline constexpr char kPermissionsCannotRestore[] = "Cannot restore permissions in file: ";
inline constexpr char kGroupCannotRead[] = "Cannot read the group of file: ";
inline constexpr char kGroupCannotRestore[] = "Cannot restore group in file: ";
inline constexpr char kPermissionsCannotInherit[] = "Cannot restore permissions for file '";

// Extended attributes; no blank follows the colon before the error text.
// The write message closes a quote after the name that it never opened.
inline constexpr char kXAttrCannotList[] = "Cannot read xattr list of '";
inline constexpr char kXAttrCannotRead[] = "Cannot read xattr '";
inline constexpr char kXAttrOfPath[] = "' of '";
inline constexpr char kXAttrCannotWrite[] = "Cannot write ";
inline constexpr char kXAttrBytesInto[] = " bytes into ";
inline constexpr char kXAttrXAttrOfPath[] = "' xattr of '";
inline constexpr char kXAttrCannotRemove[] = "Cannot remove '";

// ---------------------------------------------------------------------------
// Small regular-expression matcher: the characters a backslash may precede
// (the first eleven stand for themselves, the rest are the named escapes),
// and the convenience form's answer for no match and for a bad expression.
inline constexpr char kRegexMetacharacters[] = "^$().[]*+?|\\Ssdbfnrtv";
inline constexpr char kRegexNotMatched[] = "Not matched";

} // namespace contract

#endif
