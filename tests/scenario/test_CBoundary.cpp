// The exported C functions answer every failure with a status: a package
// path that names a FIFO, a socket or a device, a host whose products
// cannot be listed, and failures injected into close, read, malloc, popen
// and fork with libfiu (fiu-run) in a separate host process that loads the
// built plug-in.
#include "HostSession.h"
#include "rpmutil.h"
#include "signing.h"

#include "Fixtures.h"
#include "PluginLogLines.h"
#include "PluginSessionTest.h"
#include "RpmVerifyCall.h"
#include "Sanitizer.h"
#include "TestSupport.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <sstream>
#include <string>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>
#include <vector>

using host::HostLog;
using testsupport::ResultLine;
using testsupport::SignedLine;
using testsupport::UserKeyLine;

namespace {

using Lines = std::vector<std::string>;

using Result = testsupport::VerifyResult;
using testsupport::Verify;

std::string Key() {
    return fixtures::KeyArmored("rsa2048");
}

std::string Package(const std::string& name) {
    return fixtures::Package(name);
}

// A unix-domain socket bound at a path inside the folder; it stays while
// the descriptor is open.
class BoundSocket {
public:
    explicit BoundSocket(const std::string& path) : m_Path(path) {
        m_Descriptor = socket(AF_UNIX, SOCK_STREAM, 0);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        path.copy(address.sun_path, sizeof(address.sun_path) - 1);
        m_Bound = m_Descriptor != -1 &&
                  bind(m_Descriptor, reinterpret_cast<sockaddr*>(&address), sizeof(address)) == 0;
    }
    ~BoundSocket() {
        if (m_Descriptor != -1) {
            close(m_Descriptor);
        }
    }
    BoundSocket(const BoundSocket&) = delete;
    BoundSocket& operator=(const BoundSocket&) = delete;
    bool Bound() const { return m_Bound; }

private:
    std::string m_Path;
    int m_Descriptor = -1;
    bool m_Bound = false;
};

} // namespace

// ------------------------------------------------------- special files

TEST(RpmVerifyBoundary, FifoAsPackageIsAnErrorNotACrash) {
    REQUIRE_FIXTURE(Key());
    testsupport::TempDir folder;
    const std::string fifo = folder.File("package.rpm");
    ASSERT_EQ(0, mkfifo(fifo.c_str(), 0600));

    // Opening does not wait for a writer, and a FIFO cannot be positioned.
    Result result = Verify(fifo, Key());

    EXPECT_EQ(RPM_ERROR, result.status);
    EXPECT_EQ("File operation error: Error on positioning file '" + fifo + "': Illegal seek", result.message);
}

TEST(RpmVerifyBoundary, SocketAsPackageCannotBeOpened) {
    REQUIRE_FIXTURE(Key());
    testsupport::TempDir folder;
    const std::string path = folder.File("package.rpm");
    BoundSocket bound(path);
    ASSERT_TRUE(bound.Bound());

    Result result = Verify(path, Key());

    EXPECT_EQ(RPM_ERROR, result.status);
    EXPECT_EQ("File operation error: Cannot open file " + path + ": No such device or address",
              result.message);
}

TEST(RpmVerifyBoundary, DevicesAsPackageAreNotRpmFiles) {
    REQUIRE_FIXTURE(Key());
    for (const char* device : {"/dev/null", "/dev/zero", "/dev/urandom"}) {
        Result result = Verify(device, Key());
        EXPECT_EQ(RPM_ERROR, result.status) << device;
        EXPECT_EQ(std::string(device) + " is not an RPM file.", result.message);
    }
}

TEST(RpmVerifyBoundary, GoodPackageAfterAFifoIsStillSigned) {
    REQUIRE_FIXTURE(Key());
    testsupport::TempDir folder;
    const std::string fifo = folder.File("package.rpm");
    ASSERT_EQ(0, mkfifo(fifo.c_str(), 0600));
    EXPECT_EQ(RPM_ERROR, Verify(fifo, Key()).status);

    const std::string good = Package("signed-rsa2048-sha256.rpm");
    Result result = Verify(good, Key());
    EXPECT_EQ(RPM_SIGNED, result.status);
    EXPECT_EQ(good + " is signed.", result.message);
}

// ------------------------------------------------- the package-list walk

namespace {

class PackageListBoundaryTest : public testsupport::PluginSessionTest {
protected:
    void SetUp() override {
        REQUIRE_FIXTURE(Key());
        PluginSessionTest::SetUp();
        m_Session.SetValue("signature", Key());
    }
    Product& AddProduct() { return m_Session.Installation().AddProduct("product"); }
    void AddPackage(Product& product, const std::string& name, const std::string& folder,
                    const std::string& file) {
        m_Session.Installation().AddComponent(product, "rpm", name, folder, file);
    }
};

} // namespace

TEST_F(PackageListBoundaryTest, FifoAmongPackagesFailsOnlyItsOwnComponent) {
    const std::string fifoFolder = m_Work.File("fifo");
    ASSERT_EQ(0, mkdir(fifoFolder.c_str(), 0755));
    const std::string fifo = fifoFolder + "/pipe.rpm";
    ASSERT_EQ(0, mkfifo(fifo.c_str(), 0600));
    Product& product = AddProduct();
    AddPackage(product, "first", testsupport::Fixture("rpm"), "signed-rsa2048-sha256.rpm");
    AddPackage(product, "pipe", fifoFolder, "pipe.rpm");
    AddPackage(product, "last", testsupport::Fixture("rpm"), "signed-rsa2048-sha1.rpm");

    EXPECT_EQ(1, signing_validate_package_list(&m_Session));

    const std::string first = testsupport::Fixture("rpm") + "/signed-rsa2048-sha256.rpm";
    const std::string last = testsupport::Fixture("rpm") + "/signed-rsa2048-sha1.rpm";
    EXPECT_EQ(
        HostLog::Lines(),
        (Lines{"signing_validate_package_list: started", UserKeyLine(Key()), SignedLine(first),
               ResultLine(5, fifo,
                          "File operation error: Error on positioning file '" + fifo + "': Illegal seek"),
               SignedLine(last), "signing_validate_package_list: ;1",
               "signing_validate_package_list: finished"}));
    EXPECT_EQ(m_Session.Writes("operation_progress"), (Lines{"0", "33", "66", "100"}));
    EXPECT_EQ(m_Session.Value("SIGNIFICANCE"), ";1");
    EXPECT_EQ(m_Session.Value("SHORT_DESC"), ";SIGNING_prereq_err_signing_check_short_desc");
    EXPECT_EQ(m_Session.Value("FULL_DESC"), ";SIGNING_prereq_err_signing_check_full_desc");
}

// ------------------------------------------------------- injected faults

namespace {

struct HostRun {
    int exitCode;
    Lines lines;
};

Lines SplitLines(const std::string& text) {
    Lines lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(line);
    }
    return lines;
}

// Runs a program under fiu-run with the POSIX preload library (no remote
// control); its standard error is dropped.
HostRun UnderFiu(const std::string& options, const std::string& program) {
    testsupport::CommandResult result =
        testsupport::Run("fiu-run -x -f '' " + options + " " + program + " 2>/dev/null");
    return HostRun{result.exitCode, SplitLines(result.output)};
}

std::string FaultHost(const std::string& arguments) {
    return testsupport::ShellQuote(SIGNING_FAULT_HOST_PATH) + " " + arguments;
}

std::string Quoted(const std::string& text) {
    return testsupport::ShellQuote(text);
}

class FaultInjectionTest : public ::testing::Test {
protected:
    void SetUp() override {
        if (testsupport::kSanitized) {
            GTEST_SKIP() << "fiu-run preloads libfiu ahead of the AddressSanitizer runtime, which ASan "
                            "refuses; `make fault-injection` and the normal build run these";
        }
        if (testsupport::Run("command -v fiu-run").exitCode != 0) {
            FAIL() << "fiu-run is missing: run `make deps` (Debian package fiu-utils)";
        }
        REQUIRE_FIXTURE(Key());
    }
    static std::string Good() { return Package("signed-rsa2048-sha256.rpm"); }
    static std::string Tampered() { return Package("tampered-payload.rpm"); }
    static std::string Unsigned() { return Package("unsigned.rpm"); }
};

} // namespace

TEST_F(FaultInjectionTest, FailingCloseInsideRpmVerifyIsTheAnswerOfEveryPackage) {
    HostRun run =
        UnderFiu("", FaultHost("verify posix/io/oc/close 1 " + Quoted(Key()) + " " + Quoted(Good()) + " " +
                               Quoted(Tampered()) + " " + Quoted(fixtures::NotAPackage())));

    EXPECT_EQ(run.exitCode, 0);
    EXPECT_EQ(run.lines,
              (Lines{"5 File operation error: Cannot close file " + Good() + ": Input/output error",
                     "5 File operation error: Cannot close file " + Tampered() + ": Input/output error",
                     "5 File operation error: Cannot close file " + fixtures::NotAPackage() +
                         ": Input/output error"}));
}

TEST_F(FaultInjectionTest, FailingReadsNeverGiveASignedPackage) {
    // Both the plain and the positional read fail.
    HostRun run = UnderFiu("", FaultHost("verify posix/io/rw/read,posix/io/rw/pread 1 " + Quoted(Key()) +
                                         " " + Quoted(Good()) + " " + Quoted(Tampered())));

    EXPECT_EQ(run.exitCode, 0);
    ASSERT_EQ(run.lines.size(), 2u);
    EXPECT_EQ(run.lines[0].substr(0, 2), "5 ") << run.lines[0];
    EXPECT_EQ(run.lines[1].substr(0, 2), "5 ") << run.lines[1];
}

TEST_F(FaultInjectionTest, RandomAllocationFailuresNeverCrashNorPassABadPackage) {
    // Each run fails about three allocations in a thousand inside
    // rpm_verify: a verification makes some hundreds, so about half of the
    // calls meet a failure.
    const std::string packages = Quoted(Good()) + " " + Quoted(Tampered()) + " " + Quoted(Unsigned()) + " " +
                                 Quoted(Package("badsig-header.rpm")) + " " + Quoted(Good());
    int signedGood = 0;
    int errors = 0;
    for (int runIndex = 0; runIndex < 20; ++runIndex) {
        HostRun run =
            UnderFiu("", FaultHost("verify-warm libc/mm/malloc 0.003 " + Quoted(Key()) + " " + packages));
        ASSERT_EQ(run.exitCode, 0) << "run " << runIndex;
        ASSERT_EQ(run.lines.size(), 5u) << "run " << runIndex;
        for (size_t index = 0; index < run.lines.size(); ++index) {
            const std::string& line = run.lines[index];
            const bool good = index == 0 || index == 4;
            if (line.substr(0, 2) == "0 ") {
                EXPECT_TRUE(good) << line;
                EXPECT_EQ(line, "0 " + Good() + " is signed.");
                ++signedGood;
            } else if (line.substr(0, 2) == "5 ") {
                ++errors;
            }
        }
    }
    // Both outcomes occur: the failures are really injected, and some
    // calls still succeed.
    EXPECT_GT(signedGood, 0);
    EXPECT_GT(errors, 0);
}

TEST_F(FaultInjectionTest, FailingPopenFallsBackToTheLocalKey) {
    testsupport::TempDir folder;
    HostRun run = UnderFiu("", FaultHost("validate posix/stdio/oc/popen 1 " + Quoted(folder.Path()) + " " +
                                         Quoted(Key()) + " " + Quoted(Good())));

    EXPECT_EQ(run.exitCode, 0);
    EXPECT_EQ(run.lines,
              (Lines{"return 0", "log signing_validate_package_list: started",
                     "log signing_get_public_key: public key will be downloaded from QEL",
                     "log signing_get_public_key: request value [http://127.0.0.1:9/key?id=]",
                     "log _signing_get_command: unable to validate command to existance",
                     "log " + UserKeyLine(Key()), "log " + SignedLine(Good()),
                     "log signing_validate_package_list: finished", "SIGNIFICANCE ", "SHORT_DESC "}));
}

TEST_F(FaultInjectionTest, FailingForkIsADownloadThatCannotBeStarted) {
    if (testsupport::Run("command -v wget").exitCode != 0) {
        FAIL() << "wget must be installed";
    }
    testsupport::TempDir folder;
    HostRun run = UnderFiu("", FaultHost("validate posix/proc/fork 1 " + Quoted(folder.Path()) + " " +
                                         Quoted(Key()) + " " + Quoted(Good())));

    EXPECT_EQ(run.exitCode, 0);
    const std::string command = "export LD_LIBRARY_PATH=\"\"; wget --timeout=3 --tries=1 --quiet "
                                "http://127.0.0.1:9/key?id= -O " +
                                folder.Path() + "/PUBLIC_KEY.PUB 2>/dev/null";
    Lines expected{"return 0", "log signing_validate_package_list: started",
                   "log signing_get_public_key: public key will be downloaded from QEL",
                   "log signing_get_public_key: request value [http://127.0.0.1:9/key?id=]",
                   "log signing_get_public_key: command value [" + command + "]"};
    for (const char* protocol :
         {"--secure-protocol=SSLv3", "--secure-protocol=SSLv2", "--secure-protocol=TLSv1"}) {
        expected.push_back("log signing_get_public_key: secure command   [" + command + " " + protocol + "]");
        expected.push_back(std::string("log signing_get_public_key: secure protocols [") + protocol + "]");
        expected.push_back("log _signing_call_webservice: unable to execute command");
    }
    for (const std::string& line :
         Lines{"log " + UserKeyLine(Key()), "log " + SignedLine(Good()),
               "log signing_validate_package_list: finished", "SIGNIFICANCE ", "SHORT_DESC "}) {
        expected.push_back(line);
    }
    EXPECT_EQ(run.lines, expected);
}

TEST_F(FaultInjectionTest, RandomAllocationFailuresInAValidationRunNeverCrash) {
    // libcrypto is set up by one verification without failures first: its
    // own first use under failing allocations is a case of its own.
    testsupport::TempDir folder;
    int finished = 0;
    for (int runIndex = 0; runIndex < 20; ++runIndex) {
        HostRun run =
            UnderFiu("", FaultHost("validate-warm libc/mm/malloc 0.02 " + Quoted(folder.Path()) + " " +
                                   Quoted(Key()) + " " + Quoted(Good()) + " " + Quoted(Tampered())));
        ASSERT_EQ(run.exitCode, 0) << "run " << runIndex;
        ASSERT_FALSE(run.lines.empty());
        // The tampered package is never reported signed.
        for (const std::string& line : run.lines) {
            EXPECT_EQ(line.find("result 0 (0 is success) for " + Tampered()), std::string::npos) << line;
        }
        if (run.lines[0] == "return 0" || run.lines[0] == "return 1") {
            ++finished;
        }
    }
    EXPECT_EQ(finished, 20);
}
