// signing-host explain / verify -v and signing-host key: every check of a
// package in plain words, what a key file holds and whether the plug-in can
// use it, advice per known failure, and the exit codes that follow from
// them. Packages come from rpmbuild and rpmsign (with and without --rpmv3,
// by another key, by a signing subkey, with EdDSA); keys are exported by
// gpg in the forms published key files take. rpm and gpg are the oracles
// for digests, key IDs, fingerprints and times.
#include "HostProgramTest.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <sstream>
#include <string>
#include <vector>

using namespace hostprogram;

namespace {

std::string Upper(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
    return text;
}

std::string KeyFixture(const std::string& name) {
    return Fixture("keys/" + name);
}

std::string Trimmed(std::string text) {
    while (!text.empty() && (text.back() == '\n' || text.back() == ' ')) {
        text.pop_back();
    }
    return text;
}

// rpm's own reading of a signature tag: "RSA/SHA256, <UTC time>, Key ID <id>".
std::string RpmSignatureText(const std::string& package, const std::string& tag) {
    return Trimmed(testsupport::Run("TZ=UTC LC_ALL=C rpm -qp --qf '%{" + tag + ":pgpsig}' " +
                                    ShellQuote(package) + " 2>/dev/null")
                       .output);
}

// The line signing-host prints for a signature that rpm reads as
// "ALGO/HASH, Mon Nov 23 12:50:10 2026, Key ID abcd...".
std::string ExpectedSignatureLine(const std::string& title, const std::string& tag,
                                  const std::string& package, const std::string& state,
                                  const std::string& note) {
    const std::string text = RpmSignatureText(package, tag == "268" ? "RSAHEADER" : "SIGPGP");
    const size_t firstComma = text.find(", ");
    const size_t keyAt = text.find(", Key ID ");
    const std::string algorithm = text.substr(0, firstComma);
    const std::string when = text.substr(firstComma + 2, keyAt - firstComma - 2);
    const std::string keyId = Upper(text.substr(keyAt + 9));
    const std::string created = Trimmed(
        testsupport::Run("TZ=UTC date -u -d " + ShellQuote(when) + " '+%Y-%m-%d %H:%M:%S UTC'").output);
    return "    " + title + " (tag " + tag + "): " + state + " - V4 " + algorithm + ", key ID " + keyId +
           ", created " + created + " (" + note + ")";
}

// gpg's fingerprints of a key file: primary first, then subkeys.
std::vector<std::string> GpgFingerprints(const std::string& keyFile) {
    std::vector<std::string> fingerprints;
    TempDir home;
    const std::string listing =
        testsupport::Run("chmod 700 " + ShellQuote(home.Path()) + " && gpg --homedir " +
                         ShellQuote(home.Path()) + " --batch --with-colons --show-keys " +
                         ShellQuote(keyFile) + " 2>/dev/null")
            .output;
    for (const std::string& line : LinesOf(listing)) {
        if (line.compare(0, 4, "fpr:") == 0) {
            // "fpr:::::::::<fingerprint>:": the tenth field.
            std::vector<std::string> fields;
            std::istringstream in(line);
            for (std::string field; std::getline(in, field, ':');) {
                fields.push_back(field);
            }
            fingerprints.push_back(fields.size() > 9 ? fields[9] : std::string());
        }
    }
    return fingerprints;
}

// rpmkeys' own MD5 verdict line for a package, e.g.
// "MD5 digest: BAD (Expected X != Y)".
std::string RpmkeysMd5Line(const std::string& package) {
    const std::string output =
        testsupport::Run("LC_ALL=C rpmkeys -Kv --nosignature " + ShellQuote(package) + " 2>&1").output;
    for (std::string line : LinesOf(output)) {
        line.erase(0, line.find_first_not_of(" \t"));
        if (line.compare(0, 11, "MD5 digest:") == 0) {
            return line;
        }
    }
    return std::string();
}

// The advice line that follows a finding in the explained output.
void ExpectAdvice(const std::string& output, const std::string& advice) {
    EXPECT_TRUE(HasLine(output, "    advice: " + advice)) << output;
}

class HostExplainTest : public HostProgramTest {
protected:
    std::string Copy(const std::string& text, const std::string& name) {
        const std::string path = m_Work.File(name);
        WriteFile(path, text);
        return path;
    }
};

} // namespace

TEST_F(HostExplainTest, GoodPackageShowsEveryCheckAndTheKey) {
    const std::string package = Package("signed-rsa2048-sha256.rpm");
    HostResult result = Host({"verify", "-v", "--key", Key(), package});

    ASSERT_EQ(result.exitCode, 0) << result.err;
    const std::vector<std::string> fingerprints = GpgFingerprints(Key());
    ASSERT_EQ(fingerprints.size(), 2u);
    const std::string keyId = Upper(fixtures::KeyId("rsa2048"));
    ASSERT_EQ(fingerprints[0].substr(24), keyId);
    const std::string checked = "checked with key " + keyId;
    std::vector<std::string> lines = LinesOf(result.out);
    ASSERT_GE(lines.size(), 10u) << result.out;
    EXPECT_EQ(lines[0], "Key file " + Key() + ":");
    EXPECT_EQ(lines[1], "    File: armored (PGP PUBLIC KEY BLOCK), 1 armor block");
    EXPECT_EQ(lines[2].rfind("    Key: RSA 2048 bits, key ID " + keyId + ", fingerprint " + fingerprints[0] +
                                 ", created ",
                             0),
              0u)
        << lines[2];
    EXPECT_EQ(lines[3], "      User ID: Signing Fixture rsa2048 <rsa2048@fixtures.invalid>");
    EXPECT_EQ(lines[4].rfind("      Subkey: RSA 2048 bits, key ID " + fingerprints[1].substr(24) +
                                 ", fingerprint " + fingerprints[1],
                             0),
              0u)
        << lines[4];
    EXPECT_EQ(lines[5], "    Plug-in: can use this key; it checks signatures of key ID " + keyId);
    EXPECT_EQ(lines[6], package + ": RPM_SIGNED (0) " + package + " is signed.");
    EXPECT_EQ(lines[7],
              "    Lead: RPM 3.0, binary package \"signing-fixture-1.0-1\", signature type 5 (header-style)");
    EXPECT_EQ(
        lines[8].rfind("    Signature header: 9 tags: 62 header signatures region, 268 RSA header signature, "
                       "269 header SHA-1, ",
                       0),
        0u)
        << lines[8];
    EXPECT_EQ(lines[9], "    Header SHA-1 (tag 269): OK");
    EXPECT_EQ(lines[10], "    MD5 (tag 1004): OK");
    EXPECT_EQ(lines[11], ExpectedSignatureLine("Header signature", "268", package, "OK", checked));
    EXPECT_EQ(lines[12], ExpectedSignatureLine("Header+payload signature", "1002", package, "OK", checked));
    EXPECT_EQ(lines.size(), 13u) << result.out;
}

TEST_F(HostExplainTest, TamperedPackageShowsTheDigestRpmkeysReportsAndExitsOne) {
    const std::string package = Package("tampered-payload.rpm");
    HostResult result = Host({"explain", "--key", Key(), package});

    EXPECT_EQ(result.exitCode, 1) << result.err;
    // rpmkeys: "MD5 digest: BAD (Expected X != Y)"
    const std::string rpmkeys = RpmkeysMd5Line(package);
    const size_t expected = rpmkeys.find("Expected ");
    const size_t differs = rpmkeys.find(" != ");
    ASSERT_NE(expected, std::string::npos) << rpmkeys;
    const std::string stored = rpmkeys.substr(expected + 9, differs - expected - 9);
    const std::string computed = rpmkeys.substr(differs + 4, rpmkeys.size() - differs - 5);
    EXPECT_TRUE(
        HasLine(result.out, "    MD5 (tag 1004): BAD (stored " + stored + ", computed " + computed + ")"))
        << result.out;
    EXPECT_TRUE(HasLine(result.out, "    Header SHA-1 (tag 269): OK")) << result.out;
    EXPECT_TRUE(HasLine(result.out, package + ": RPM_INVALID_HASH (3) " + package + " has invalid hash."));
    ExpectAdvice(result.out, "the package was changed after it was signed (a digest differs): "
                             "get it again from its source");
}

TEST_F(HostExplainTest, PackageSignedWithoutRpmv3SaysThePayloadSignatureIsMissing) {
    const std::string package = Package("headeronly-rsa2048-sha256.rpm");
    HostResult verbose = Host({"verify", "-v", "--key", Key(), package});
    HostResult plain = Host({"verify", "--key", Key(), package});

    EXPECT_EQ(verbose.exitCode, 1) << verbose.err;
    EXPECT_TRUE(HasLine(verbose.out, package + ": RPM_ERROR (5) Unknown error")) << verbose.out;
    EXPECT_TRUE(HasLine(verbose.out, "    Header+payload signature (tag 1002): MISSING")) << verbose.out;
    EXPECT_TRUE(
        HasLine(verbose.out, ExpectedSignatureLine("Header signature", "268", package, "OK",
                                                   "checked with key " + Upper(fixtures::KeyId("rsa2048")))))
        << verbose.out;
    ExpectAdvice(verbose.out, "payload signature missing: sign with rpmsign --addsign --rpmv3");
    // Without -v the verdict line stays alone on standard output and the
    // advice goes to standard error.
    EXPECT_EQ(plain.exitCode, 1);
    EXPECT_EQ(plain.out, package + ": RPM_ERROR (5) Unknown error\n");
    EXPECT_EQ(plain.err, package + ": payload signature missing: sign with rpmsign --addsign --rpmv3\n");
}

TEST_F(HostExplainTest, PackageSignedByAnotherKeyNamesBothKeys) {
    const std::string package = Package("signed-other2048-sha256.rpm");
    HostResult result = Host({"explain", "--key", Key(), package});

    EXPECT_EQ(result.exitCode, 1) << result.err;
    const std::string other = Upper(fixtures::KeyId("other2048"));
    const std::string mine = Upper(fixtures::KeyId("rsa2048"));
    EXPECT_TRUE(HasLine(result.out, ExpectedSignatureLine("Header signature", "268", package, "NOT CHECKED",
                                                          "the key file has no key " + other)))
        << result.out;
    ExpectAdvice(result.out,
                 "signed by key " + other + ", but the key file holds " + mine +
                     ": give the signer's public key, or re-sign the package with the expected key");
}

TEST_F(HostExplainTest, UnsignedPackageSaysNoSignatureAndExitsOne) {
    const std::string package = Package("unsigned.rpm");
    HostResult result = Host({"verify", "--key", Key(), package});

    EXPECT_EQ(result.exitCode, 1) << result.err;
    EXPECT_EQ(result.out,
              package + ": RPM_ERROR (5) Internal error occured while verifying " + package + "\n");
    EXPECT_EQ(result.err,
              package + ": no signature: the package is unsigned; sign it with rpmsign --addsign --rpmv3\n");
}

TEST_F(HostExplainTest, AlteredSignatureValueIsAFailure) {
    const std::string package = Package("badsig-payload.rpm");
    HostResult result = Host({"explain", "--key", Key(), package});

    EXPECT_EQ(result.exitCode, 1) << result.err;
    EXPECT_TRUE(
        HasLine(result.out, ExpectedSignatureLine("Header+payload signature", "1002", package, "BAD",
                                                  "checked with key " + Upper(fixtures::KeyId("rsa2048")))))
        << result.out;
    ExpectAdvice(result.out, "the header+payload signature does not verify with key " +
                                 Upper(fixtures::KeyId("rsa2048")) +
                                 ": the package or its signature was altered");
}

TEST_F(HostExplainTest, EmptyKeyOrPackageAsKeyIsUnusableAndExitsThree) {
    const std::string empty = Copy("", "empty.asc");
    const std::string package = Package("signed-rsa2048-sha256.rpm");
    HostResult emptyKey = Host({"verify", "--key", empty, package});
    HostResult rpmKey = Host({"verify", "--key", Package("unsigned.rpm"), package});

    // The verdict stays the plug-in's; the advice blames the key, not the package.
    EXPECT_EQ(emptyKey.exitCode, 3);
    EXPECT_EQ(emptyKey.out,
              package + ": RPM_ERROR (5) Internal error occured while verifying " + package + "\n");
    EXPECT_EQ(emptyKey.err,
              package + ": the key file " + empty +
                  " cannot be used by the plug-in, so no package can pass: the key file is empty: "
                  "export the public key with gpg --armor --export KEYID\n");
    EXPECT_EQ(rpmKey.exitCode, 3);
    EXPECT_EQ(rpmKey.err,
              package + ": the key file " + Package("unsigned.rpm") +
                  " cannot be used by the plug-in, so no package can pass: the key file is an RPM "
                  "package, not a public key: give the exported key (gpg --armor --export KEYID)\n");
}

TEST_F(HostExplainTest, KeyCommandOnAGoodKeyInEveryEncoding) {
    for (const std::string& key :
         {Key(), fixtures::KeyBinary("rsa2048"), fixtures::KeyArmoredCrlf("rsa2048")}) {
        HostResult result = Host({"key", key});
        EXPECT_EQ(result.exitCode, 0) << key << "\n" << result.out;
        EXPECT_EQ(LinesOf(result.out).back(),
                  "    Plug-in: can use this key; it checks signatures of key ID " +
                      Upper(fixtures::KeyId("rsa2048")));
        EXPECT_EQ(result.out.find("advice"), std::string::npos) << result.out;
    }
}

TEST_F(HostExplainTest, KeyWithTextBeforeTheArmor) {
    const std::string key =
        Copy("Release key of Example Corp, fingerprint below.\n\n" + ReadFile(Key()), "text.asc");
    HostResult result = Host({"key", key});
    HostResult verify = Host({"verify", "--key", key, Package("signed-rsa2048-sha256.rpm")});

    EXPECT_EQ(result.exitCode, 3) << result.out;
    EXPECT_TRUE(HasLine(result.out,
                        "    File: armored (PGP PUBLIC KEY BLOCK), 1 armor block, 49 bytes of text "
                        "before it"))
        << result.out;
    EXPECT_TRUE(HasLine(result.out, "    Plug-in: cannot use this key file"));
    ExpectAdvice(result.out, "the key file starts with text before -----BEGIN: the plug-in needs "
                             "the armor first; extract it with sed -n '/^-----BEGIN PGP PUBLIC KEY "
                             "BLOCK-----/,/^-----END PGP PUBLIC KEY BLOCK-----/p' " +
                                 key + " > key.asc");
    // The plug-in agrees: the key does not verify the package it signed.
    EXPECT_EQ(verify.exitCode, 3);
    // The extraction the advice gives makes a key the plug-in uses.
    testsupport::Run(
        "cd " + ShellQuote(m_Work.Path()) +
        " && sed -n '/^-----BEGIN PGP PUBLIC KEY BLOCK-----/,/^-----END PGP PUBLIC KEY BLOCK-----/p' " +
        ShellQuote(key) + " > key.asc");
    EXPECT_EQ(
        Host({"verify", "--key", m_Work.File("key.asc"), Package("signed-rsa2048-sha256.rpm")}).exitCode, 0);
}

TEST_F(HostExplainTest, SeveralKeysInOneFile) {
    const std::string both = KeyFixture("rsa2048+other2048.asc");
    REQUIRE_FIXTURE(both);
    const std::string other = Upper(fixtures::KeyId("other2048"));
    HostResult result = Host({"key", both});
    HostResult otherPackage = Host({"verify", "--key", both, Package("signed-other2048-sha256.rpm")});
    HostResult rsaPackage = Host({"verify", "--key", both, Package("signed-rsa2048-sha256.rpm")});

    EXPECT_EQ(result.exitCode, 0) << result.out;
    ExpectAdvice(result.out, "the key file holds 2 keys: the plug-in uses only the one with key "
                             "ID " +
                                 other + "; give a file with just the signing key");
    // What the key command says is what rpm_verify does.
    EXPECT_EQ(otherPackage.exitCode, 0);
    EXPECT_EQ(rsaPackage.exitCode, 1);
    EXPECT_TRUE(Contains(rsaPackage.out, "RPM_INVALID_SIGNATURE (2)"));

    const std::string twoBlocks = Copy(ReadFile(Key()) + ReadFile(Key("other2048")), "two.asc");
    HostResult blocks = Host({"key", twoBlocks});
    EXPECT_EQ(blocks.exitCode, 3);
    ExpectAdvice(blocks.out, "the key file holds 2 armor blocks: the plug-in reads one; keep only "
                             "the block of the signing key");
}

TEST_F(HostExplainTest, BinaryKeyringIsNotAKey) {
    const std::string keyring = KeyFixture("rsa2048.keyring.gpg");
    REQUIRE_FIXTURE(keyring);
    HostResult result = Host({"key", keyring});

    EXPECT_EQ(result.exitCode, 3) << result.out;
    EXPECT_TRUE(Contains(result.out, "    File: binary OpenPGP, ")) << result.out;
    EXPECT_TRUE(Contains(result.out, " trust packets (a keyring)\n")) << result.out;
    ExpectAdvice(result.out, "the key file is a binary keyring (it has trust packets): export the "
                             "key with gpg --export KEYID > key.gpg");
    EXPECT_EQ(Host({"verify", "--key", keyring, Package("signed-rsa2048-sha256.rpm")}).exitCode, 3);
}

TEST_F(HostExplainTest, SigningSubkey) {
    const std::string package = Package("signed-signsub-sha256.rpm");
    REQUIRE_FIXTURE(package);
    const std::vector<std::string> fingerprints = GpgFingerprints(Key("signsub"));
    ASSERT_EQ(fingerprints.size(), 3u);
    const std::string primary = fingerprints[0].substr(24);
    const std::string signingSubkey = fingerprints[2].substr(24);
    HostResult key = Host({"key", Key("signsub")});
    HostResult explain = Host({"explain", "--key", Key("signsub"), package});

    EXPECT_EQ(key.exitCode, 3);
    EXPECT_TRUE(Contains(key.out, "      Subkey: RSA 2048 bits, key ID " + signingSubkey)) << key.out;
    EXPECT_TRUE(Contains(key.out, ", signs\n")) << key.out;
    ExpectAdvice(key.out, "the key has the signing subkey " + signingSubkey +
                              ": packages signed with it cannot be checked, the plug-in checks the primary "
                              "key's ID " +
                              primary + "; sign with the primary key (rpmsign --define '_gpg_name " +
                              primary + "!')");
    EXPECT_TRUE(
        HasLine(explain.out, ExpectedSignatureLine("Header signature", "268", package, "OK",
                                                   "checked with key " + signingSubkey + " (a subkey)")))
        << explain.out;
    ExpectAdvice(explain.out,
                 "signed by subkey " + signingSubkey + ": the plug-in checks the primary key's ID " +
                     primary + "; sign with the primary key (rpmsign --define '_gpg_name " + primary + "!')");
}

TEST_F(HostExplainTest, EdDsaKeyAndSignatureAreNotSupported) {
    const std::string package = Package("eddsa-signed.rpm");
    const std::string key = KeyFixture("eddsa.asc");
    REQUIRE_FIXTURE(package);
    HostResult keyResult = Host({"key", key});
    HostResult explain = Host({"explain", "--key", Key(), package});

    EXPECT_EQ(keyResult.exitCode, 3);
    const std::string keyId = GpgFingerprints(key).at(0).substr(24);
    EXPECT_TRUE(Contains(keyResult.out, "    Key: EdDSA Ed25519, key ID " + keyId)) << keyResult.out;
    ExpectAdvice(keyResult.out,
                 "EdDSA key " + keyId +
                     ": the plug-in supports only RSA keys; sign the packages with an RSA key");
    EXPECT_EQ(explain.exitCode, 3);
    EXPECT_TRUE(HasLine(explain.out, "    DSA/EdDSA signatures (tags 267/1005): present")) << explain.out;
    ExpectAdvice(explain.out, "DSA/EdDSA signatures are not supported: re-sign with an RSA key "
                              "(rpmsign --addsign --rpmv3)");
}

TEST_F(HostExplainTest, KeyCommandAsJson) {
    HostResult result = Host({"key", "--json", Key()});

    ASSERT_EQ(result.exitCode, 0) << result.err;
    json document = json::parse(result.out);
    EXPECT_EQ(document["usable"], true);
    EXPECT_EQ(document["checkedKeyId"], Upper(fixtures::KeyId("rsa2048")));
    EXPECT_EQ(document["keys"][0]["fingerprint"], GpgFingerprints(Key()).at(0));
    EXPECT_EQ(document["keys"][0]["bits"], 2048);
    EXPECT_EQ(document["keys"][0]["userIds"],
              json::array({"Signing Fixture rsa2048 <rsa2048@fixtures.invalid>"}));
}
