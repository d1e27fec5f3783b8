// The reference host's session library: values and their write history,
// operand expansion, the log capture, text files, products and components,
// and nested environments behind token texts.
#include "HostSession.h"

#include "TestSupport.h"

#include <gtest/gtest.h>

#include <climits>
#include <stdexcept>

using host::HostInstallation;
using host::HostLog;
using host::HostSession;
using testsupport::TempDir;
using testsupport::WriteFile;

namespace {

std::vector<std::string> AsVector(const std::list<std::string>& lines) {
    return std::vector<std::string>(lines.begin(), lines.end());
}

class HostSessionTest : public ::testing::Test {
protected:
    void SetUp() override { HostLog::Clear(); }
    void TearDown() override {
        HostLog::WriteToStandardError();
        HostLog::Clear();
    }
};

} // namespace

TEST_F(HostSessionTest, UnsetValueReadsAsEmpty) {
    HostSession session;
    EXPECT_EQ(env_get_string(&session, "TEMP_FOLDER"), "");
    EXPECT_FALSE(session.HasValue("TEMP_FOLDER"));
}

TEST_F(HostSessionTest, BothSetFormsStoreAndRecordTheirWrites) {
    HostSession session;
    env_set_string(&session, "operation_progress", "0");
    env_set_string(&session, std::string("operation_progress"), std::string("33"));
    env_set_string(&session, "operation_progress", "66");
    env_set_string(&session, std::string("operation_progress"), std::string("100"));
    EXPECT_EQ(env_get_string(&session, "operation_progress"), "100");
    EXPECT_EQ(session.Writes("operation_progress"), (std::vector<std::string>{"0", "33", "66", "100"}));
    EXPECT_TRUE(session.Writes("SIGNIFICANCE").empty());

    session.ClearWrites();
    EXPECT_TRUE(session.Writes("operation_progress").empty());
    EXPECT_EQ(env_get_string(&session, "operation_progress"), "100");
}

TEST_F(HostSessionTest, HostPresetValuesAreReadableButNotWrites) {
    HostSession session;
    session.SetValue("SIGNIFICANCE", ";1");
    EXPECT_EQ(env_get_string(&session, "SIGNIFICANCE"), ";1");
    EXPECT_TRUE(session.Writes("SIGNIFICANCE").empty());

    env_set_string(&session, "SIGNIFICANCE", ";1;0");
    EXPECT_EQ(session.Value("SIGNIFICANCE"), ";1;0");
    EXPECT_EQ(session.Writes("SIGNIFICANCE"), (std::vector<std::string>{";1;0"}));

    session.EraseValue("SIGNIFICANCE");
    EXPECT_FALSE(session.HasValue("SIGNIFICANCE"));
    EXPECT_EQ(env_get_string(&session, "SIGNIFICANCE"), "");
}

TEST_F(HostSessionTest, EmptyValueIsStoredAsSet) {
    HostSession session;
    env_set_string(&session, "signature", "");
    EXPECT_TRUE(session.HasValue("signature"));
    EXPECT_EQ(env_get_string(&session, "signature"), "");
    EXPECT_EQ(session.Writes("signature"), (std::vector<std::string>{""}));
}

TEST_F(HostSessionTest, NullTextsReadAsEmpty) {
    HostSession session;
    env_set_string(&session, "key", nullptr);
    EXPECT_EQ(session.Writes("key"), (std::vector<std::string>{""}));
    EXPECT_EQ(env_get_string(&session, nullptr), "");
    EXPECT_EQ(expand_operand(&session, static_cast<const char*>(nullptr), true), "");
}

TEST_F(HostSessionTest, ExpandOperand) {
    HostSession session;
    session.SetValue("PACKAGES", "/opt/packages");
    session.SetValue("ARCH", "x86_64");
    session.SetValue("A", "a");
    session.SetValue("LOOP", "${A}");
    struct Case {
        const char* operand;
        bool flag;
        const char* expanded;
    };
    const Case cases[] = {
        // Named values are replaced.
        {"${PACKAGES}/${ARCH}/rpm", true, "/opt/packages/x86_64/rpm"},
        {"${PACKAGES}${ARCH}", false, "/opt/packagesx86_64"},
        {"plain text", true, "plain text"},
        {"", true, ""},
        // Unknown names become empty.
        {"x${UNKNOWN}y", true, "xy"},
        {"${}", true, ""},
        {"${UNKNOWN}", true, ""},
        // What is not a reference is kept.
        {"$A/${A", true, "$A/${A"},
        {"${A}${A", true, "a${A"},
        {"cost: 5$", true, "cost: 5$"},
        // A value is inserted as it is, never expanded again.
        {"${LOOP}", true, "${A}"},
    };
    for (const Case& row : cases) {
        EXPECT_EQ(expand_operand(&session, row.operand, row.flag), row.expanded) << row.operand;
    }
    EXPECT_EQ(expand_operand(&session, std::string("${PACKAGES}/${ARCH}/rpm"), true),
              "/opt/packages/x86_64/rpm");
}

TEST_F(HostSessionTest, IntToStr) {
    EXPECT_EQ(inttostr(0), "0");
    EXPECT_EQ(inttostr(33), "33");
    EXPECT_EQ(inttostr(-7), "-7");
    EXPECT_EQ(inttostr(LLONG_MAX), "9223372036854775807");
    EXPECT_EQ(inttostr(LLONG_MIN), "-9223372036854775808");
}

TEST_F(HostSessionTest, FileExists) {
    TempDir dir;
    WriteFile(dir.File("present.rpm"), "x");
    EXPECT_NE(file_exists(dir.File("present.rpm"), false), 0);
    EXPECT_NE(file_exists(dir.File("present.rpm"), true), 0);
    EXPECT_EQ(file_exists(dir.File("absent.rpm"), false), 0);
    EXPECT_EQ(file_exists("", false), 0);
}

TEST_F(HostSessionTest, ReadContentOfTextFileStripsLineEnds) {
    TempDir dir;
    WriteFile(dir.File("unix"), "first\nsecond\n\nfourth\n");
    WriteFile(dir.File("dos"), "first\r\nsecond\r\n\r\nfourth\r\n");
    WriteFile(dir.File("open"), "first\nlast without end");
    WriteFile(dir.File("empty"), "");
    WriteFile(dir.File("blank"), "\n");
    WriteFile(dir.File("cr"), "a\rb\r\n");
    std::vector<std::string> four{"first", "second", "", "fourth"};
    EXPECT_EQ(AsVector(readContentOfTextFile(dir.File("unix"))), four);
    EXPECT_EQ(AsVector(readContentOfTextFile(dir.File("dos"))), four);
    EXPECT_EQ(AsVector(readContentOfTextFile(dir.File("open"))),
              (std::vector<std::string>{"first", "last without end"}));
    EXPECT_TRUE(readContentOfTextFile(dir.File("empty")).empty());
    EXPECT_EQ(AsVector(readContentOfTextFile(dir.File("blank"))), (std::vector<std::string>{""}));
    // Only the carriage return of a line end goes.
    EXPECT_EQ(AsVector(readContentOfTextFile(dir.File("cr"))), (std::vector<std::string>{"a\rb"}));
    EXPECT_TRUE(readContentOfTextFile(dir.File("absent")).empty());
}

TEST_F(HostSessionTest, PrintLogFormatsAndCapturesEveryLine) {
    HostLog::WriteNowhere();
    print_log("signing_validate_package_list: started");
    print_log("_signing_validate_file: signing validation result %d (0 is success) for %s package [%s]", 0,
              "/p/a.rpm", "/p/a.rpm is signed.");
    print_log("_signing_call_webservice: signing web service call failed by signal %d - %s.\n", 9, "Killed");
    print_log("%s", "");
    EXPECT_EQ(HostLog::Lines(),
              (std::vector<std::string>{
                  "signing_validate_package_list: started",
                  "_signing_validate_file: signing validation result 0 (0 is success) for /p/a.rpm package "
                  "[/p/a.rpm is signed.]",
                  "_signing_call_webservice: signing web service call failed by signal 9 - Killed.\n", ""}));
    EXPECT_EQ(HostLog::TakeLines().size(), 4u);
    EXPECT_TRUE(HostLog::Lines().empty());
}

TEST_F(HostSessionTest, PrintLogKeepsLongLinesWhole) {
    HostLog::WriteNowhere();
    std::string path(10000, 'p');
    print_log("signing_get_public_key: public key specified by user %s", path.c_str());
    std::vector<std::string> lines = HostLog::TakeLines();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0], "signing_get_public_key: public key specified by user " + path);
}

TEST_F(HostSessionTest, PrintLogWritesToTheLogFileOneLineEach) {
    TempDir dir;
    WriteFile(dir.File("host.log"), "earlier\n");
    HostLog::WriteToFile(dir.File("host.log"));
    print_log("first %d", 1);
    print_log("second ends in a line feed.\n");
    print_log("third");
    HostLog::WriteToStandardError();
    print_log("not in the file");
    EXPECT_EQ(testsupport::ReadFile(dir.File("host.log")),
              "earlier\nfirst 1\nsecond ends in a line feed.\nthird\n");
    EXPECT_EQ(HostLog::Lines().size(), 4u);
    HostLog::Clear();
    EXPECT_TRUE(HostLog::Lines().empty());
}

TEST_F(HostSessionTest, UnwritableLogFileIsRefused) {
    TempDir dir;
    EXPECT_THROW(HostLog::WriteToFile(dir.File("missing/host.log")), std::runtime_error);
}

TEST_F(HostSessionTest, ProductsAndComponentsInOrder) {
    HostSession session;
    ASSERT_EQ(session.tsd, static_cast<TSD*>(&session.Installation()));
    EXPECT_TRUE(session.tsd->products().empty());

    HostInstallation& installation = session.Installation();
    Product& first = installation.AddProduct("first", Environment{{"k", "v"}});
    Product& second = installation.AddProduct("second");
    Component& a = installation.AddComponent(first, "rpm", "a", "${PACKAGES}", "a.rpm");
    Component& b = installation.AddComponent(first, "deb", "b", "/p", "b.deb", Environment{{"x", "y"}});
    Component& c = installation.AddComponent(second, "RPM", "c", "/p", "c.rpm");

    std::list<Product*>& products = session.tsd->products();
    ASSERT_EQ(products.size(), 2u);
    EXPECT_EQ(products.front(), &first);
    EXPECT_EQ(products.back(), &second);
    EXPECT_EQ(first.name, "first");
    EXPECT_EQ(first.environment.at("k"), "v");
    ASSERT_EQ(first.components.size(), 2u);
    EXPECT_EQ(first.components.front(), &a);
    EXPECT_EQ(first.components.back(), &b);
    EXPECT_EQ(a.name, "a");
    EXPECT_EQ(a.packageFolder, "${PACKAGES}");
    EXPECT_EQ(a.packageFile, "a.rpm");
    EXPECT_EQ(b.environment.at("x"), "y");
    EXPECT_EQ(a.type(), "rpm");
    EXPECT_EQ(b.type(), "deb");
    EXPECT_EQ(c.type(), "RPM");

    installation.SetComponentType(c, "rpm");
    EXPECT_EQ(c.type(), "rpm");
}

TEST_F(HostSessionTest, ForeignProductsAndComponentsAreRefused) {
    HostSession one;
    HostSession other;
    Product& theirs = other.Installation().AddProduct("theirs");
    Component& theirComponent = other.Installation().AddComponent(theirs, "rpm", "c", "/p", "c.rpm");
    EXPECT_THROW(one.Installation().AddComponent(theirs, "rpm", "x", "/p", "x.rpm"), std::invalid_argument);
    EXPECT_THROW(one.Installation().SetComponentType(theirComponent, "deb"), std::invalid_argument);
    EXPECT_EQ(theirComponent.type(), "rpm");
    EXPECT_TRUE(theirs.components.size() == 1u);
}

TEST_F(HostSessionTest, ObjectsTheHostDidNotCreate) {
    Component plain;
    EXPECT_EQ(plain.type(), "");
    TSD stray;
    EXPECT_THROW(stray.products(), std::logic_error);

    session_t foreign{nullptr};
    EXPECT_EQ(HostSession::Find(&foreign), nullptr);
    EXPECT_EQ(HostSession::Find(nullptr), nullptr);
    EXPECT_THROW(env_get_string(&foreign, "x"), std::invalid_argument);
    EXPECT_THROW(env_set_string(&foreign, "x", "y"), std::invalid_argument);
    EXPECT_THROW(expand_operand(nullptr, "x", true), std::invalid_argument);
}

TEST_F(HostSessionTest, ComponentCopiesHaveNoType) {
    HostSession session;
    Product& product = session.Installation().AddProduct("p");
    Component& component = session.Installation().AddComponent(product, "rpm", "c", "/p", "c.rpm");
    Component copy = component;
    EXPECT_EQ(component.type(), "rpm");
    EXPECT_EQ(copy.type(), "");
}

TEST_F(HostSessionTest, NestedEnvironmentsResolveFromTheirTokens) {
    HostSession session;
    std::string first = session.AddNestedEnvironment(Environment{{"VokUpdateId", "UPD-1"}});
    std::string second = session.AddNestedEnvironment(Environment{});
    EXPECT_EQ(first.rfind("env:", 0), 0u);
    EXPECT_NE(first, second);

    Environment* resolved = castStringToEnvPointer(first);
    ASSERT_NE(resolved, nullptr);
    EXPECT_EQ(env_get_string_internal(resolved, "VokUpdateId"), "UPD-1");
    EXPECT_EQ(env_get_string_internal(resolved, "other"), "");
    ASSERT_NE(castStringToEnvPointer(second), nullptr);
    EXPECT_NE(castStringToEnvPointer(second), resolved);
    EXPECT_EQ(castStringToEnvPointer(first), resolved);

    // The environment is the session's own object: changes are seen.
    (*resolved)["VokUpdateId"] = "UPD-2";
    EXPECT_EQ(env_get_string_internal(castStringToEnvPointer(first), "VokUpdateId"), "UPD-2");
}

TEST_F(HostSessionTest, UnknownOrMalformedTokensGiveNull) {
    HostSession session;
    std::string token = session.AddNestedEnvironment(Environment{{"VokUpdateId", "UPD-1"}});
    EXPECT_EQ(castStringToEnvPointer(""), nullptr);
    EXPECT_EQ(castStringToEnvPointer("env:"), nullptr);
    EXPECT_EQ(castStringToEnvPointer("env:0"), nullptr);
    EXPECT_EQ(castStringToEnvPointer("env:999999999999"), nullptr);
    EXPECT_EQ(castStringToEnvPointer(" " + token), nullptr);
    EXPECT_EQ(castStringToEnvPointer(token + " "), nullptr);
    EXPECT_EQ(castStringToEnvPointer(token + "0"), nullptr);
    EXPECT_EQ(castStringToEnvPointer("ENV:" + token.substr(4)), nullptr);
    EXPECT_EQ(castStringToEnvPointer("0x7fffdeadbeef"), nullptr);
    EXPECT_EQ(castStringToEnvPointer("UPD-1"), nullptr);
}

TEST_F(HostSessionTest, TokensEndWithTheirSession) {
    std::string token;
    {
        HostSession session;
        token = session.AddNestedEnvironment(Environment{{"VokUpdateId", "UPD-1"}});
        ASSERT_NE(castStringToEnvPointer(token), nullptr);
    }
    EXPECT_EQ(castStringToEnvPointer(token), nullptr);
    // A later session never receives an earlier token.
    HostSession later;
    std::string next = later.AddNestedEnvironment(Environment{});
    EXPECT_NE(next, token);
    EXPECT_EQ(castStringToEnvPointer(token), nullptr);
}

TEST_F(HostSessionTest, EnvGetStringInternal) {
    Environment environment{{"phonehome", "env:1"}, {"empty", ""}};
    EXPECT_EQ(env_get_string_internal(&environment, "phonehome"), "env:1");
    EXPECT_EQ(env_get_string_internal(&environment, "empty"), "");
    EXPECT_EQ(env_get_string_internal(&environment, "absent"), "");
    EXPECT_EQ(env_get_string_internal(nullptr, "phonehome"), "");
}

TEST_F(HostSessionTest, SessionsAreFoundUntilTheyEnd) {
    session_t* handle = nullptr;
    {
        HostSession session;
        handle = &session;
        EXPECT_EQ(HostSession::Find(handle), &session);
    }
    EXPECT_EQ(HostSession::Find(handle), nullptr);
}
