# Read by CTest after the discovered test lists: gives every test its labels.
#   unit      a test of one class or layer (tests/unit/<layer>/)
#   scenario  an end-to-end suite (tests/scenario/)
#   host      a suite of the reference host program (tests/host/)
#   tools     needs gpg, rpmbuild, rpmsign or rpmkeys (the fixtures, or its own keys)
#   upstream  needs rpm's own test data in ../shared/rpm-upstream
#   slow      takes more than a few seconds
# Select with `ctest -L unit`, `ctest -LE slow` and so on; `ctest -LE tools
# -FA packages` runs without the tools (-FA leaves out the fixture setup).

# Tests whose names match these expressions get the label; the names are
# <Suite>.<Test>, with an instantiation prefix and parameters around them.
# The tools list is what fails when the fixtures and gpg, rpmbuild, rpmsign
# and rpmkeys are missing (ctest -FA packages with them hidden): whole
# suites, then the tests of mixed suites by name.
set(SIGNING_LABEL_UPSTREAM "^RpmVerifyUpstream\\.|^PgpMessageRealKeys\\.Upstream")
set(SIGNING_LABEL_SLOW_LIST
    "^HostileInput\\."
    "^HostileBase64\\."
    "^LeakCheck\\."
    "^RpmVerifyMemory\\."
    "^HostProgramTest\\.DemoRunsEndToEnd$"
    "^RpmVerifyFiles\\.DamagedSignatureHeaders$"
    "^DownloadDeadline\\.")
set(SIGNING_LABEL_TOOLS_LIST
    "^DownloadDeadline\\."
    "^DownloadGuardTest\\."
    "^FaultInjectionTest\\."
    "^HostProgramTest\\."
    "^HostJsonLinesTest\\."
    "^HostMirrorTest\\."
    "^HostSafeTextTest\\."
    "^Widths/HostTerminalTest\\."
    "^HostileInput\\."
    "^KeyFileBoundsRunTest\\."
    "^KeyFileBoundsStore\\."
    "^PackageListBoundaryTest\\."
    "^RpmVerifyBoundary\\."
    "^LeakCheck\\."
    "^PackageListValidationTest\\."
    "^PgpCertificateRealKeys\\."
    "^PgpSignatureFixtures\\."
    "^PgpSignaturePacketReal\\."
    "^RpmVerifyMemory\\."
    "^RpmVerifyOracle\\."
    "^RpmVerifyRealComparisons\\."
    "^Targets/FuzzKeptFindings\\."
    "^Targets/FuzzReplay\\."
    "^CertificateManagerTest\\.(BrokenKeyFilesLeaveTheStoreAlone|CertificateFromMemory|DestroyingTheStoreKeepsItsCertificates|EveryFixtureKeyLoadsInEveryEncoding|KeyFileIsReadAnewOnEveryRequest|LoadFromFileWithExplicitPath|LoadingTwiceKeepsOneEntryAndTheFirstStaysUsable|OtherFormatsAreNotImplemented)$"
    "^DlopenRpmVerify\\.(FailuresThroughThePlugin|SignedPackageIsSigned)$"
    "^Fixtures\\.(ArmoredExportsMatchTheBinaryOnes|BadSignaturesFailOnlyTheirRsaCheck|BinaryDataUsesOldFormatPacketHeaders|ChangedPackagesDifferInOneByteOfTheirRegion|DetachedSignatureFailsOnChangedData|DetachedSignaturesVerifyWithTheirKeyAndDigest|EveryLayoutFileExistsAndIsNotEmpty|KeyIdsAreThePrimaryKeysOfTheExports|KeysHaveTheIntendedSubkeys|LeadingZeroSignatureIsAtLeastEightBitsShort|NotAPackageIsPlainText|PackagesCarryTheSignatureTagsOfTheirKind|PackagesHaveAVersion3LeadWithHeaderStyleSignature|RerunWithMatchingStampChangesNothing|RpmDbHoldsExactlyTheTwoImportedKeys|RpmkeysAcceptsTheIntactPackagesSignedWithImportedKeys|RpmkeysRejectsTamperedPackagesAndTheUnknownKey|SignDetachedMakesSignaturesThatVerify|SignedPackagesListNamesSignerAndDigest|SubkeySignatureIsIssuedByTheSigningSubkey|UnsignedPackageHasMatchingDigestsOnly)$"
    "^HostileBase64\\.(HugeArmoredKeyFileIsRefusedInBoundedMemory)$"
    "^KeyValidityTest\\.(RealArmoredKeysAreValid)$"
    "^PgpCertificateConstruction\\.(MessageWithoutPublicKeyIsRefused)$"
    "^PgpMessageArmor\\.(CorruptedChecksumLineIsNotNoticed|CrLfLineEndsParseWithTheCarriageReturnInTheBody|DamagedBodyFailsInTheDecoder|MissingFinalLineEndIsNotFound|TextOrBlankLinesBeforeTheMarkerAreNotFound|UnixLineEndsParse)$"
    "^PgpMessageDeArmor\\.(ArmorWithOneHeaderLineGivesTheRadix64Text|EveryPrefixStaysInsideTheInput)$"
    "^PgpMessagePackets\\.(SignatureAloneAsInAnRpmHeader)$"
    "^PgpMessageRealKeys\\.(DefaultLayoutInEveryForm|EveryByteChangeGivesAResultOrAnException|EveryPacketPrefixOfTheArmoredBodyGivesAResultOrAnException|EveryPrefixGivesAResultOrAnException|SigningSubkeyIsRefused)$"
    "^PgpMessageSkipHeader\\.(EveryPrefixStaysInsideTheInput)$"
    "^PgpPublicKeyPacket\\.(RealGpgKeys)$"
    "^PgpSignatureHash\\.(PacketAlgorithmOfEachFixtureSignature)$"
    "^Radix64Decode\\.(RealGpgArmorBodiesDecodeToTheBinaryExport)$"
    "^RpmSignerCreatorTest\\.(FixturePackagesAreRecognised|WrongMagicIsRejected)$"
    "^RpmSignerTest\\.(FixturePackageAgainstItsOwnOtherKey|FixturePackages)$"
    "^RpmVerifyFiles\\.(DamagedSignatureHeaders|HugeCountsInTheSignatureHeader|OtherLeadVersionsAreNotRpmFiles|ShortFilesAreNotRpmFiles|TruncatedPackages)$"
    "^RpmVerifyFixtures\\.(AnotherKeyGivesInvalidSignature|BinaryAndCrlfKeysToo|EmptyTextsArePassedOn|FailedRsaCheckIsAnInternalError|FileNameIsUsedAsGiven|HeaderOnlySignatureIsAnUnknownError|MissingOrBrokenKeyFile|NotAPackage|SignedPackagesAreSigned|TamperedPackagesHaveInvalidHashes|UnsignedPackageIsAnInternalError)$"
)

# CMake's expressions allow few groups, so each is matched on its own.
function(signing_matches_any test out)
    set(${out} FALSE PARENT_SCOPE)
    foreach(expression ${ARGN})
        if(test MATCHES "${expression}")
            set(${out} TRUE PARENT_SCOPE)
            return()
        endif()
    endforeach()
endfunction()

foreach(entry ${SIGNING_TEST_PROGRAMS})
    string(REPLACE "=" ";" pair "${entry}")
    list(GET pair 0 program)
    list(GET pair 1 folder_label)
    foreach(test ${SIGNING_TESTS_${program}})
        set(labels ${folder_label})
        signing_matches_any("${test}" tools ${SIGNING_LABEL_TOOLS_LIST})
        if(tools)
            list(APPEND labels tools)
        endif()
        if(test MATCHES "${SIGNING_LABEL_UPSTREAM}")
            list(APPEND labels upstream)
        endif()
        signing_matches_any("${test}" slow ${SIGNING_LABEL_SLOW_LIST})
        if(slow)
            list(APPEND labels slow)
        endif()
        set_tests_properties("${test}" PROPERTIES LABELS "${labels}")
    endforeach()
endforeach()
