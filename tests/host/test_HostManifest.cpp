// The manifest of signing-host run: a missing, unreadable or malformed
// manifest stops before the plug-in with the field named; the README's
// example is accepted.
#include "HostProgramTest.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using namespace hostprogram;

TEST_F(HostProgramTest, RunWithoutManifestIsAUsageError) {
    HostResult result = Host({"run"});

    EXPECT_EQ(result.exitCode, 2);
    EXPECT_EQ(result.err, "signing-host run: the manifest is missing: give the path of a JSON manifest\n"
                          "Try 'signing-host run --help'.\n");
}

TEST_F(HostProgramTest, MissingManifestFileStopsBeforeThePlugin) {
    HostResult result = Host({"run", m_Work.File("absent.json")});

    EXPECT_EQ(result.exitCode, 2);
    EXPECT_EQ(result.err, "signing-host run: cannot read the manifest '" + m_Work.File("absent.json") +
                              "': No such file or directory\n");
    EXPECT_EQ(result.out, "");
}

TEST_F(HostProgramTest, ManifestThatIsNotJsonIsRejectedWithThePosition) {
    std::string path = m_Work.File("broken.json");
    WriteFile(path, "{ \"products\": [ }\n");

    HostResult result = Host({"run", path});

    EXPECT_EQ(result.exitCode, 2);
    EXPECT_EQ(result.err.rfind("signing-host run: the manifest '" + path +
                                   "' is not valid JSON: parse error at line 1, column 17: ",
                               0),
              0u)
        << result.err;
    EXPECT_FALSE(Contains(result.err, "signing_validate_package_list")) << result.err;
    EXPECT_EQ(result.out, "");
}

TEST_F(HostProgramTest, ManifestWithoutProductsNamesTheField) {
    std::string path = WriteManifest(json{{"session", {{"signature", Key()}}}});

    HostResult result = Host({"run", path});

    EXPECT_EQ(result.exitCode, 2);
    EXPECT_EQ(result.err,
              "signing-host run: the manifest '" + path + "' is missing the required field \"products\"\n");
}

TEST_F(HostProgramTest, ManifestComponentWithoutPackageFileNamesTheField) {
    json manifest =
        Manifest(json::array({Component("good", "signed-rsa2048-sha256.rpm"),
                              json{{"name", "half"}, {"type", "rpm"}, {"packageFolder", "/tmp"}}}),
                 json{{"signature", Key()}});
    std::string path = WriteManifest(manifest);

    HostResult result = Host({"run", path});

    EXPECT_EQ(result.exitCode, 2);
    EXPECT_EQ(result.err, "signing-host run: the manifest '" + path +
                              "' is missing the required field \"products[0].components[1].packageFile\"\n");
    EXPECT_EQ(result.out, "");
}

TEST_F(HostProgramTest, ManifestFieldsOfTheWrongKindOrUnknownAreNamed) {
    struct Case {
        json manifest;
        std::string problem;
    };
    std::vector<Case> cases{
        {json{{"products", json::object()}}, "has a field \"products\" that must be an array"},
        {json{{"products", json::array({json{{"name", 7}}})}},
         "has a field \"products[0].name\" that must be a text"},
        {json{{"session", {{"TEMP_FOLDER", 1}}}, {"products", json::array()}},
         "has a field \"session.TEMP_FOLDER\" that must be a text"},
        {json{{"products", json::array({json{{"name", "p"}, {"environment", {{"phonehome", 5}}}}})}},
         "has a field \"products[0].environment.phonehome\" that must be a text or an object (a nested "
         "environment)"},
        {json{{"products", json::array()}, {"prodcuts", json::array()}},
         "has an unknown field \"prodcuts\" (known here: \"description\", \"session\", \"variables\", "
         "\"products\")"},
        {json{{"session", {{"X", "a"}}}, {"variables", {{"X", "b"}}}, {"products", json::array()}},
         "gives \"X\" both in \"session\" and in \"variables\""},
        {json::array(), "must hold a JSON object at its top level"},
    };
    for (const Case& item : cases) {
        std::string path = WriteManifest(item.manifest);
        HostResult result = Host({"run", path});
        EXPECT_EQ(result.exitCode, 2) << item.problem;
        EXPECT_EQ(result.err, "signing-host run: the manifest '" + path + "' " + item.problem + "\n");
    }
}

TEST_F(HostProgramTest, ManifestExampleOfTheReadmeIsAccepted) {
    std::string readme = ReadFile(testsupport::SourceDir() + "/README.md");
    const std::string start = "### The manifest\n\n```json\n";
    size_t begin = readme.find(start);
    ASSERT_NE(begin, std::string::npos);
    begin += start.size();
    size_t end = readme.find("```", begin);
    ASSERT_NE(end, std::string::npos);
    std::string path = m_Work.File("readme.json");
    WriteFile(path, readme.substr(begin, end - begin));

    // No download tools: the example's local key (missing here) is the
    // fallback, so the run ends with the validate warning.
    HostResult result = Host({"run", "--json", path}, "PATH=" + ShellQuote(ToolsOnly({})));

    ASSERT_EQ(result.exitCode, 3) << result.err;
    json document = json::parse(result.out);
    EXPECT_EQ(document["components"].size(), 3u);
    EXPECT_EQ(document["session"]["signature"], m_Work.Path() + "/release.asc");
    EXPECT_EQ(document["session"]["SHORT_DESC"], ";SIGNING_prereq_war_signing_check_validate_short_desc");
}
