// signing-host with no command, an unknown command or option, and its help
// and version texts.
#include "HostProgramTest.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using namespace hostprogram;

TEST_F(HostProgramTest, NoCommandIsAUsageError) {
    HostResult result = Host({});

    EXPECT_EQ(result.exitCode, 2);
    EXPECT_EQ(result.err, "signing-host: no command given\nTry 'signing-host --help'.\n");
    EXPECT_EQ(result.out, "");
}

TEST_F(HostProgramTest, UnknownCommandIsAUsageError) {
    HostResult result = Host({"install", "x.json"});

    EXPECT_EQ(result.exitCode, 2);
    EXPECT_EQ(result.err,
              "signing-host: unknown command 'install' (the commands are run, verify, explain and key)\n"
              "Try 'signing-host --help'.\n");
    EXPECT_EQ(result.out, "");
}

TEST_F(HostProgramTest, UnknownOptionIsAUsageError) {
    HostResult result = Host({"run", "--verbose", "x.json"});

    EXPECT_EQ(result.exitCode, 2);
    EXPECT_EQ(result.err, "signing-host run: unknown option '--verbose'\nTry 'signing-host run --help'.\n");
}

TEST_F(HostProgramTest, HelpAndVersion) {
    HostResult help = Host({"--help"});
    HostResult runHelp = Host({"run", "--help"});
    HostResult verifyHelp = Host({"verify", "-h"});
    HostResult version = Host({"--version"});
    HostResult runVersion = Host({"run", "--version"});

    EXPECT_EQ(help.exitCode, 0);
    EXPECT_EQ(help.out.rfind("Usage: signing-host COMMAND [OPTIONS] ARGUMENTS...\n", 0), 0u) << help.out;
    EXPECT_EQ(runHelp.exitCode, 0);
    EXPECT_EQ(
        runHelp.out.rfind("Usage: signing-host run [--key KEY] [--strict] [--plugin PATH] [--log FILE]\n"
                          "                        [--json | --json-lines] [--quiet] MANIFEST\n",
                          0),
        0u);
    EXPECT_TRUE(Contains(runHelp.out, "\"packageFolder\""));
    EXPECT_EQ(verifyHelp.exitCode, 0);
    EXPECT_EQ(verifyHelp.out.rfind("Usage: signing-host verify --key KEY", 0), 0u);
    EXPECT_EQ(version.exitCode, 0);
    EXPECT_EQ(version.out, "signing-host 1.0.0\n");
    EXPECT_EQ(runVersion.out, "signing-host 1.0.0\n");
}
