// Validating the host's package list: real packages and keys from the
// fixtures, verified through the reference host's session; the exact log,
// the progress values, the key fallback to the host's local key, and the
// warning and error entries recorded in the session.
#include "HostSession.h"
#include "signing.h"

#include "Exceptions.h"
#include "LoopbackServer.h"
#include "PluginLogLines.h"
#include "PluginSessionTest.h"
#include "TestSupport.h"
#include "ToolPath.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <sys/stat.h>
#include <vector>

using host::HostLog;
using namespace testsupport;

namespace {

using Lines = std::vector<std::string>;

const char kStarted[] = "signing_validate_package_list: started";
const char kFinished[] = "signing_validate_package_list: finished";
const char kIncorrectKey[] = "_signing_is_valid_key: public key contains incorrect value";
const char kNoKeyLocation[] = "signing_validate_package_list: unable to obtain public key location";
const char kKeyNotValid[] = "signing_validate_package_list: public key is not valid";
const char kWarningLine[] = "_signing_set_optional_prerequisite_status: ";

const char kErrShort[] = ";SIGNING_prereq_err_signing_check_short_desc";
const char kErrFull[] = ";SIGNING_prereq_err_signing_check_full_desc";
const char kValidateShort[] = ";SIGNING_prereq_war_signing_check_validate_short_desc";
const char kValidateFull[] = ";SIGNING_prereq_war_signing_check_validate_full_desc";
const char kDownloadShort[] = ";SIGNING_prereq_war_signing_check_download_short_desc";
const char kDownloadFull[] = ";SIGNING_prereq_war_signing_check_download_full_desc";
const char kFileShort[] = ";SIGNING_prereq_war_signing_check_file_short_desc";
const char kFileFull[] = ";SIGNING_prereq_war_signing_check_file_full_desc";

std::string NotAvailableLine(const std::string& name) {
    return "signing_validate_package_list: component '" + name +
           "' is not verified because it is not available";
}

class PackageListValidationTest : public testsupport::PluginSessionTest {
protected:
    PackageListValidationTest() : m_Path("PATH") {
        // Package folders are host operands: "${PACKAGES}" expands to the
        // fixture packages.
        m_Session.SetValue("PACKAGES", Fixture("rpm"));
        m_Session.SetValue("KEYS", Fixture("keys"));
    }
    void SetUp() override {
        REQUIRE_FIXTURE(Key());
        PluginSessionTest::SetUp();
    }

    static std::string Key(const std::string& name = "rsa2048") { return Fixture("keys/" + name + ".asc"); }
    static std::string Package(const std::string& file) { return Fixture("rpm/" + file); }

    void UseUserKey(const std::string& path) { m_Session.SetValue("signature", path); }

    // A PATH on which the shell finds neither `which` nor a download tool,
    // so that the download gives up without a command.
    void NoToolsOnPath() {
        std::string empty = m_Work.File("no-tools");
        mkdir(empty.c_str(), 0755);
        m_Path.Set(empty);
    }

    Product& AddProduct(const std::string& name) { return m_Session.Installation().AddProduct(name); }

    Component& AddPackage(Product& product, const std::string& name, const std::string& file,
                          const std::string& type = "rpm") {
        return m_Session.Installation().AddComponent(product, type, name, "${PACKAGES}", file);
    }

    int Validate() { return signing_validate_package_list(&m_Session); }
    static Lines Log() { return HostLog::Lines(); }

    // A key file whose third line holds the URL marker.
    std::string KeyWithUrlLine(const std::string& name) {
        std::string path = m_Work.File(name);
        WriteFile(path, "-----BEGIN PGP PUBLIC KEY BLOCK-----\n\nsee http://keys.example/ for the key\n"
                        "-----END PGP PUBLIC KEY BLOCK-----\n");
        return path;
    }

    void ExpectPrerequisitesUntouched() {
        EXPECT_TRUE(m_Session.Writes("SIGNIFICANCE").empty());
        EXPECT_TRUE(m_Session.Writes("SHORT_DESC").empty());
        EXPECT_TRUE(m_Session.Writes("FULL_DESC").empty());
    }

    testsupport::EnvironmentVariableGuard m_Path;
    testsupport::NoHttpProxy m_NoProxy;
};

} // namespace

// ------------------------------------------------------------ no packages

TEST_F(PackageListValidationTest, NoProductsReturnsZeroWithoutTouchingPrerequisites) {
    UseUserKey(Key());
    m_Session.SetValue("SIGNIFICANCE", ";1");
    m_Session.SetValue("SHORT_DESC", ";earlier_short");
    m_Session.SetValue("FULL_DESC", ";earlier_full");

    EXPECT_EQ(Validate(), 0);

    EXPECT_EQ(Log(), (Lines{kStarted, UserKeyLine(Key()), kFinished}));
    EXPECT_EQ(m_Session.Writes("operation_progress"), (Lines{"0"}));
    EXPECT_EQ(m_Session.Value("operation_progress"), "0");
    ExpectPrerequisitesUntouched();
    EXPECT_EQ(m_Session.Value("SIGNIFICANCE"), ";1");
    EXPECT_EQ(m_Session.Value("SHORT_DESC"), ";earlier_short");
    EXPECT_EQ(m_Session.Value("FULL_DESC"), ";earlier_full");
    EXPECT_TRUE(m_Session.Writes("signature").empty());
}

TEST_F(PackageListValidationTest, ProductsWithoutComponentsReturnZeroAndLeaveProgressAtZero) {
    UseUserKey(Key());
    AddProduct("first");
    AddProduct("second");

    EXPECT_EQ(Validate(), 0);

    EXPECT_EQ(Log(), (Lines{kStarted, UserKeyLine(Key()), kFinished}));
    EXPECT_EQ(m_Session.Writes("operation_progress"), (Lines{"0"}));
    ExpectPrerequisitesUntouched();
    EXPECT_FALSE(m_Session.HasValue("SIGNIFICANCE"));
}

// ---------------------------------------------------------------- progress

TEST_F(PackageListValidationTest, ThreeSignedComponentsReportProgressThirtyThreeSixtySixHundred) {
    UseUserKey(Key());
    Product& product = AddProduct("product");
    AddPackage(product, "one", "signed-rsa2048-sha1.rpm");
    AddPackage(product, "two", "signed-rsa2048-sha256.rpm");
    AddPackage(product, "three", "signed-rsa2048-sha512.rpm");

    EXPECT_EQ(Validate(), 0);

    EXPECT_EQ(m_Session.Writes("operation_progress"), (Lines{"0", "33", "66", "100"}));
    EXPECT_EQ(Log(), (Lines{kStarted, UserKeyLine(Key()), SignedLine(Package("signed-rsa2048-sha1.rpm")),
                            SignedLine(Package("signed-rsa2048-sha256.rpm")),
                            SignedLine(Package("signed-rsa2048-sha512.rpm")), kFinished}));
    ExpectPrerequisitesUntouched();
}

TEST_F(PackageListValidationTest, ProgressCountsComponentsOverAllProductsWithTruncatingDivision) {
    UseUserKey(Key());
    Product& first = AddProduct("first");
    AddProduct("empty");
    Product& third = AddProduct("third");
    for (int i = 0; i < 4; ++i) {
        AddPackage(first, "a" + std::to_string(i), "absent-" + std::to_string(i) + ".rpm");
    }
    for (int i = 0; i < 3; ++i) {
        AddPackage(third, "b" + std::to_string(i), "absent-b" + std::to_string(i) + ".rpm");
    }

    EXPECT_EQ(Validate(), 0);

    // 100 * k / 7 for k = 1..7, truncated.
    EXPECT_EQ(m_Session.Writes("operation_progress"),
              (Lines{"0", "14", "28", "42", "57", "71", "85", "100"}));
    Lines expected{kStarted, UserKeyLine(Key())};
    for (const char* name : {"a0", "a1", "a2", "a3", "b0", "b1", "b2"}) {
        expected.push_back(NotAvailableLine(name));
    }
    expected.push_back(kFinished);
    EXPECT_EQ(Log(), expected);
}

// -------------------------------------------------------- single packages

TEST_F(PackageListValidationTest, SignedPackageLogsItsPathAndMessage) {
    UseUserKey(Key());
    AddPackage(AddProduct("product"), "signed", "signed-rsa2048-sha256.rpm");

    EXPECT_EQ(Validate(), 0);

    const std::string path = Fixture("rpm") + "/signed-rsa2048-sha256.rpm";
    EXPECT_EQ(Log(), (Lines{kStarted, UserKeyLine(Key()),
                            "_signing_validate_file: signing validation result 0 (0 is success) for " + path +
                                " package [" + path + " is signed.]",
                            kFinished}));
    EXPECT_EQ(m_Session.Writes("operation_progress"), (Lines{"0", "100"}));
    ExpectPrerequisitesUntouched();
}

TEST_F(PackageListValidationTest, PackagePathIsTheExpandedFolderSlashFileName) {
    UseUserKey(Key());
    m_Session.SetValue("ROOT", Fixture(""));
    Product& product = AddProduct("product");
    m_Session.Installation().AddComponent(product, "rpm", "nested", "${ROOT}rpm", "signed-rsa2048-sha1.rpm");

    EXPECT_EQ(Validate(), 0);

    EXPECT_EQ(Log()[2], SignedLine(Fixture("") + "rpm/signed-rsa2048-sha1.rpm"));
}

TEST_F(PackageListValidationTest, MissingRpmFileIsNotAvailableAndNoFailure) {
    UseUserKey(Key());
    AddPackage(AddProduct("product"), "ghost", "no-such-package.rpm");

    EXPECT_EQ(Validate(), 0);

    EXPECT_EQ(Log(), (Lines{kStarted, UserKeyLine(Key()), NotAvailableLine("ghost"), kFinished}));
    EXPECT_EQ(m_Session.Writes("operation_progress"), (Lines{"0", "100"}));
    ExpectPrerequisitesUntouched();
}

TEST_F(PackageListValidationTest, ComponentOfAnotherTypeIsNotAvailableEvenWhenItsFileIsBroken) {
    UseUserKey(Key());
    Product& product = AddProduct("product");
    // Present files that would fail verification: they are never verified
    // because their type is not exactly "rpm".
    AddPackage(product, "debian", "tampered-payload.rpm", "deb");
    AddPackage(product, "capital", "notapackage.rpm", "RPM");
    Component& later = AddPackage(product, "retyped", "unsigned.rpm", "rpm");
    m_Session.Installation().SetComponentType(later, "msi");

    EXPECT_EQ(Validate(), 0);

    EXPECT_EQ(Log(), (Lines{kStarted, UserKeyLine(Key()), NotAvailableLine("debian"),
                            NotAvailableLine("capital"), NotAvailableLine("retyped"), kFinished}));
    ExpectPrerequisitesUntouched();
}

TEST_F(PackageListValidationTest, ComponentRetypedToRpmIsVerified) {
    UseUserKey(Key());
    Component& component = AddPackage(AddProduct("product"), "later", "signed-rsa2048-sha256.rpm", "tar");
    m_Session.Installation().SetComponentType(component, "rpm");

    EXPECT_EQ(Validate(), 0);

    EXPECT_EQ(Log()[2], SignedLine(Package("signed-rsa2048-sha256.rpm")));
}

// ------------------------------------------------------------ failures

TEST_F(PackageListValidationTest, OneTamperedPackageAmongSeveralIsOneErrorEntry) {
    UseUserKey(Key());
    Product& first = AddProduct("first");
    AddPackage(first, "good", "signed-rsa2048-sha256.rpm");
    AddPackage(first, "tampered", "tampered-payload.rpm");
    Product& second = AddProduct("second");
    AddPackage(second, "missing", "no-such-package.rpm");
    AddPackage(second, "also-good", "signed-rsa2048-sha512.rpm");

    EXPECT_EQ(Validate(), 1);

    const std::string tampered = Package("tampered-payload.rpm");
    EXPECT_EQ(Log(), (Lines{kStarted, UserKeyLine(Key()), SignedLine(Package("signed-rsa2048-sha256.rpm")),
                            ResultLine(3, tampered, tampered + " has invalid hash."),
                            NotAvailableLine("missing"), SignedLine(Package("signed-rsa2048-sha512.rpm")),
                            "signing_validate_package_list: ;1", kFinished}));
    EXPECT_EQ(m_Session.Writes("operation_progress"), (Lines{"0", "25", "50", "75", "100"}));
    EXPECT_EQ(m_Session.Writes("SIGNIFICANCE"), (Lines{";1"}));
    EXPECT_EQ(m_Session.Writes("SHORT_DESC"), (Lines{kErrShort}));
    EXPECT_EQ(m_Session.Writes("FULL_DESC"), (Lines{kErrFull}));
}

TEST_F(PackageListValidationTest, EveryFailureStatusSetsTheFlagButTheErrorIsRecordedOnce) {
    UseUserKey(Key());
    m_Session.SetValue("SIGNIFICANCE", ";0");
    m_Session.SetValue("SHORT_DESC", kDownloadShort);
    m_Session.SetValue("FULL_DESC", kDownloadFull);
    Product& product = AddProduct("product");
    AddPackage(product, "other-key", "signed-other2048-sha256.rpm");
    AddPackage(product, "header", "tampered-header.rpm");
    AddPackage(product, "unsigned", "unsigned.rpm");
    AddPackage(product, "text", "notapackage.rpm");
    AddPackage(product, "header-only", "headeronly-rsa2048-sha256.rpm");

    EXPECT_EQ(Validate(), 1);

    const std::string other = Package("signed-other2048-sha256.rpm");
    const std::string header = Package("tampered-header.rpm");
    const std::string text = Package("notapackage.rpm");
    EXPECT_EQ(Log(),
              (Lines{kStarted, UserKeyLine(Key()), ResultLine(2, other, other + " has invalid signature."),
                     ResultLine(3, header, header + " has invalid hash."),
                     ResultLine(5, Package("unsigned.rpm"),
                                "Internal error occured while verifying " + Package("unsigned.rpm")),
                     ResultLine(5, text, text + " is not an RPM file."),
                     ResultLine(5, Package("headeronly-rsa2048-sha256.rpm"), "Unknown error"),
                     "signing_validate_package_list: ;0;1", kFinished}));
    EXPECT_EQ(m_Session.Value("SIGNIFICANCE"), ";0;1");
    EXPECT_EQ(m_Session.Value("SHORT_DESC"), std::string(kDownloadShort) + kErrShort);
    EXPECT_EQ(m_Session.Value("FULL_DESC"), std::string(kDownloadFull) + kErrFull);
    EXPECT_EQ(m_Session.Writes("SIGNIFICANCE").size(), 1u);
}

TEST_F(PackageListValidationTest, PackagesOfAnotherSignerFailAgainstTheGivenKey) {
    UseUserKey(Key("rsa4096"));
    Product& product = AddProduct("product");
    AddPackage(product, "by-2048", "signed-rsa2048-sha256.rpm");
    AddPackage(product, "by-4096", "signed-rsa4096-sha256.rpm");

    EXPECT_EQ(Validate(), 1);

    const std::string by2048 = Package("signed-rsa2048-sha256.rpm");
    EXPECT_EQ(Log(), (Lines{kStarted, UserKeyLine(Key("rsa4096")),
                            ResultLine(2, by2048, by2048 + " has invalid signature."),
                            SignedLine(Package("signed-rsa4096-sha256.rpm")),
                            "signing_validate_package_list: ;1", kFinished}));
}

TEST_F(PackageListValidationTest, AHostFailureEndsTheWalkAsAFailureWithTheValuesWritten) {
    UseUserKey(Key());
    AddPackage(AddProduct("product"), "good", "signed-rsa2048-sha256.rpm");
    // Installation data the host does not know: asking it for its products
    // throws. Nothing leaves the C entry point: the run ends as a failure
    // and the error entries are still written.
    TSD foreign;
    m_Session.tsd = &foreign;

    EXPECT_EQ(Validate(), 1);

    EXPECT_EQ(Log(), (Lines{kStarted, UserKeyLine(Key()),
                            "signing_validate_package_list: validation ended early: TSD::products: the "
                            "installation data was not created by the host",
                            "signing_validate_package_list: ;1", kFinished}));
    EXPECT_EQ(m_Session.Writes("operation_progress"), (Lines{"0"}));
    EXPECT_EQ(m_Session.Value("SIGNIFICANCE"), ";1");
    EXPECT_EQ(m_Session.Value("SHORT_DESC"), kErrShort);
    EXPECT_EQ(m_Session.Value("FULL_DESC"), kErrFull);
}

// --------------------------------------------------------- key fallback

TEST_F(PackageListValidationTest, WithoutDownloadToolsTheLocalKeyIsUsed) {
    NoToolsOnPath();
    m_Session.SetValue("SIGNING_LOCAL_PUBLIC_KEY", "${KEYS}/rsa2048.asc");
    AddPackage(AddProduct("product"), "good", "signed-rsa2048-sha256.rpm");

    EXPECT_EQ(Validate(), 0);

    EXPECT_EQ(Log(), (Lines{kStarted, kDownloadingLine, RequestLine("?id="), UserKeyLine(Key()),
                            SignedLine(Package("signed-rsa2048-sha256.rpm")), kFinished}));
    EXPECT_EQ(m_Session.Writes("signature"), (Lines{Key()}));
    ExpectPrerequisitesUntouched();
}

TEST_F(PackageListValidationTest, RefusedDownloadFallsBackToTheLocalKey) {
    ASSERT_EQ(testsupport::Run("which wget").exitCode, 0) << "wget must be installed";
    // Nothing listens on the port: every download is refused at once.
    const std::string url = "http://127.0.0.1:" + std::to_string(testsupport::FreeLoopbackPort()) + "/key";
    m_Session.SetValue("signing_url", url);
    m_Session.SetValue("SIGNING_DEFAULT_URL", "http://127.0.0.1:9/unused");
    m_Session.SetValue("SIGNING_LOCAL_PUBLIC_KEY", "${KEYS}/rsa2048.asc");
    std::string token = m_Session.AddNestedEnvironment(Environment{{"VokUpdateId", "UPD-1"}});
    Product& product = m_Session.Installation().AddProduct("product", Environment{{"phonehome", token}});
    AddPackage(product, "good", "signed-rsa2048-sha256.rpm");

    EXPECT_EQ(Validate(), 0);

    const std::string request = url + "?id=UPD-1";
    const std::string command = WgetCommand(request, m_Temp + "/PUBLIC_KEY.PUB");
    // wget's exit code 4 (network failure) as a raw wait status.
    Lines expected{kStarted};
    const Lines download = FailedDownloadLines(request, command, kWgetProtocols, CallFailedLine(1024));
    expected.insert(expected.end(), download.begin(), download.end());
    expected.push_back(UserKeyLine(Key()));
    expected.push_back(SignedLine(Package("signed-rsa2048-sha256.rpm")));
    expected.push_back(kFinished);
    EXPECT_EQ(Log(), expected);
    EXPECT_EQ(m_Session.Value("signature"), Key());
}

TEST_F(PackageListValidationTest, SignatureStaysSetAfterTheFallbackSoTheNextCallUsesItAtOnce) {
    NoToolsOnPath();
    m_Session.SetValue("SIGNING_LOCAL_PUBLIC_KEY", "${KEYS}/rsa2048.asc");
    AddPackage(AddProduct("product"), "good", "signed-rsa2048-sha1.rpm");
    ASSERT_EQ(Validate(), 0);
    HostLog::Clear();

    EXPECT_EQ(Validate(), 0);

    EXPECT_EQ(Log(), (Lines{kStarted, UserKeyLine(Key()), SignedLine(Package("signed-rsa2048-sha1.rpm")),
                            kFinished}));
    EXPECT_EQ(m_Session.Writes("signature"), (Lines{Key()}));
}

TEST_F(PackageListValidationTest, KeyThatCannotBeLocatedIsADownloadWarning) {
    NoToolsOnPath();
    AddPackage(AddProduct("product"), "good", "signed-rsa2048-sha256.rpm");

    EXPECT_EQ(Validate(), 1);

    EXPECT_EQ(Log(), (Lines{kStarted, kDownloadingLine, RequestLine("?id="), kDownloadingLine,
                            RequestLine("?id="), kNoKeyLocation, std::string(kWarningLine) + ";0"}));
    EXPECT_EQ(m_Session.Value("SIGNIFICANCE"), ";0");
    EXPECT_EQ(m_Session.Value("SHORT_DESC"), kDownloadShort);
    EXPECT_EQ(m_Session.Value("FULL_DESC"), kDownloadFull);
    EXPECT_EQ(m_Session.Writes("operation_progress"), (Lines{"0"}));
    // The empty local key was handed to the second lookup.
    EXPECT_EQ(m_Session.Writes("signature"), (Lines{""}));
}

TEST_F(PackageListValidationTest, DownloadWarningIsAppendedToEarlierEntries) {
    NoToolsOnPath();
    m_Session.SetValue("SIGNIFICANCE", ";1");
    m_Session.SetValue("SHORT_DESC", ";first_short");
    m_Session.SetValue("FULL_DESC", ";first_full");

    EXPECT_EQ(Validate(), 1);

    EXPECT_EQ(m_Session.Value("SIGNIFICANCE"), ";1;0");
    EXPECT_EQ(m_Session.Value("SHORT_DESC"), std::string(";first_short") + kDownloadShort);
    EXPECT_EQ(m_Session.Value("FULL_DESC"), std::string(";first_full") + kDownloadFull);
    EXPECT_EQ(Log().back(), std::string(kWarningLine) + ";1;0");
}

TEST_F(PackageListValidationTest, UserKeyWithAUrlLineFallsBackToAValidLocalKey) {
    const std::string bad = KeyWithUrlLine("bad.asc");
    UseUserKey(bad);
    m_Session.SetValue("SIGNING_LOCAL_PUBLIC_KEY", "${KEYS}/rsa2048.asc");
    AddPackage(AddProduct("product"), "good", "signed-rsa2048-sha256.rpm");

    EXPECT_EQ(Validate(), 0);

    EXPECT_EQ(Log(), (Lines{kStarted, UserKeyLine(bad), kIncorrectKey, UserKeyLine(Key()),
                            SignedLine(Package("signed-rsa2048-sha256.rpm")), kFinished}));
    EXPECT_EQ(m_Session.Value("signature"), Key());
    ExpectPrerequisitesUntouched();
}

TEST_F(PackageListValidationTest, UserAndLocalKeysWithUrlLinesAreAValidateWarning) {
    const std::string bad = KeyWithUrlLine("bad.asc");
    const std::string alsoBad = KeyWithUrlLine("also-bad.asc");
    UseUserKey(bad);
    m_Session.SetValue("WORK", m_Work.Path());
    m_Session.SetValue("SIGNING_LOCAL_PUBLIC_KEY", "${WORK}/also-bad.asc");
    AddPackage(AddProduct("product"), "good", "signed-rsa2048-sha256.rpm");

    EXPECT_EQ(Validate(), 1);

    EXPECT_EQ(Log(), (Lines{kStarted, UserKeyLine(bad), kIncorrectKey, UserKeyLine(alsoBad), kIncorrectKey,
                            kKeyNotValid, std::string(kWarningLine) + ";0"}));
    EXPECT_EQ(m_Session.Value("SIGNIFICANCE"), ";0");
    EXPECT_EQ(m_Session.Value("SHORT_DESC"), kValidateShort);
    EXPECT_EQ(m_Session.Value("FULL_DESC"), kValidateFull);
    EXPECT_EQ(m_Session.Writes("operation_progress"), (Lines{"0"}));
}

TEST_F(PackageListValidationTest, MissingKeyFilesAreInvalidWithoutALogLine) {
    const std::string missing = m_Work.File("missing.asc");
    UseUserKey(missing);
    m_Session.SetValue("SIGNING_LOCAL_PUBLIC_KEY", missing);
    AddPackage(AddProduct("product"), "good", "signed-rsa2048-sha256.rpm");

    EXPECT_EQ(Validate(), 1);

    EXPECT_EQ(Log(), (Lines{kStarted, UserKeyLine(missing), UserKeyLine(missing), kKeyNotValid,
                            std::string(kWarningLine) + ";0"}));
    EXPECT_EQ(m_Session.Value("SHORT_DESC"), kValidateShort);
}

TEST_F(PackageListValidationTest, UrlMarkerInCapitalsDoesNotMakeTheKeyInvalid) {
    const std::string key = m_Work.File("capitals.asc");
    WriteFile(key, testsupport::ReadFile(Key()) + "HTTP://keys.example/\n");
    UseUserKey(key);
    AddPackage(AddProduct("product"), "good", "signed-rsa2048-sha256.rpm");

    EXPECT_EQ(Validate(), 0);

    EXPECT_EQ(Log(), (Lines{kStarted, UserKeyLine(key), SignedLine(Package("signed-rsa2048-sha256.rpm")),
                            kFinished}));
}

// ------------------------------------------------------- warning records

TEST_F(PackageListValidationTest, OptionalPrerequisiteStatusAppendsTheCategoryEntries) {
    m_Session.SetValue("SIGNIFICANCE", ";1");
    m_Session.SetValue("SHORT_DESC", ";a");
    m_Session.SetValue("FULL_DESC", ";b");

    _signing_set_optional_prerequisite_status(&m_Session, 3);
    _signing_set_optional_prerequisite_status(&m_Session, 4);
    _signing_set_optional_prerequisite_status(&m_Session, 5);

    EXPECT_EQ(m_Session.Writes("SIGNIFICANCE"), (Lines{";1;0", ";1;0;0", ";1;0;0;0"}));
    EXPECT_EQ(m_Session.Value("SHORT_DESC"),
              std::string(";a") + kValidateShort + kDownloadShort + kFileShort);
    EXPECT_EQ(m_Session.Value("FULL_DESC"), std::string(";b") + kValidateFull + kDownloadFull + kFileFull);
    EXPECT_EQ(Log(), (Lines{std::string(kWarningLine) + ";1;0", std::string(kWarningLine) + ";1;0;0",
                            std::string(kWarningLine) + ";1;0;0;0"}));
}

TEST_F(PackageListValidationTest, OptionalPrerequisiteStatusStartsFromAnUnsetValue) {
    _signing_set_optional_prerequisite_status(&m_Session, 5);

    EXPECT_EQ(m_Session.Value("SIGNIFICANCE"), ";0");
    EXPECT_EQ(m_Session.Value("SHORT_DESC"), kFileShort);
    EXPECT_EQ(m_Session.Value("FULL_DESC"), kFileFull);
}

TEST_F(PackageListValidationTest, UnknownCategoryThrowsBeforeWritingAnything) {
    for (int category : {-1, 0, 2, 6, 100}) {
        try {
            _signing_set_optional_prerequisite_status(&m_Session, category);
            ADD_FAILURE() << "no exception for category " << category;
        } catch (const ArgumentException& error) {
            EXPECT_EQ(std::string(error.what()),
                      "Invalid argument: unknown optional prerequisite category " + std::to_string(category));
        }
    }
    EXPECT_TRUE(Log().empty());
    ExpectPrerequisitesUntouched();
}

TEST(PackageListValidationSymbol, EntryPointIsExportedUnderItsPlainName) {
    const std::string plugin = testsupport::PluginPath();
    ASSERT_TRUE(testsupport::PathExists(plugin)) << plugin;

    testsupport::CommandResult defined = testsupport::Run("nm -D --defined-only '" + plugin + "'");

    ASSERT_EQ(defined.exitCode, 0);
    EXPECT_NE(defined.output.find(" T signing_validate_package_list\n"), std::string::npos) << defined.output;
}
