#include "Explanation.h"

#include "ContractTexts.h"
#include "ProgramError.h"

#include <set>

namespace host {
namespace {

constexpr char kExtractArmor[] =
    "sed -n '/^-----BEGIN PGP PUBLIC KEY BLOCK-----/,/^-----END PGP PUBLIC KEY BLOCK-----/p'";

bool StartsWith(const std::string& text, const char* prefix) {
    return text.compare(0, std::char_traits<char>::length(prefix), prefix) == 0;
}

std::string StateText(CheckState state) {
    switch (state) {
    case CheckState::Ok:
        return "OK";
    case CheckState::Bad:
        return "BAD";
    case CheckState::Missing:
        return "MISSING";
    case CheckState::NotChecked:
        break;
    }
    return "NOT CHECKED";
}

std::string KeyLine(const PgpKeyInfo& key) {
    std::string line = OpenPgpPackets::AlgorithmName(key.algorithm);
    if (!key.curve.empty()) {
        line += " " + key.curve;
    } else if (key.bits != 0) {
        line += " " + std::to_string(key.bits) + " bits";
    }
    line += ", key ID " + (key.keyId.empty() ? std::string("(unknown)") : key.keyId);
    if (!key.fingerprint.empty()) {
        line += ", fingerprint " + key.fingerprint;
    }
    line += ", created " + OpenPgpPackets::TimeText(key.created);
    if (key.version != 4) {
        line += ", version " + std::to_string(key.version);
    }
    return line;
}

std::string SignatureLine(const char* title, const PackageSignature& signature) {
    std::string line = std::string(title) + " (tag " + std::to_string(signature.tag) + "): ";
    if (signature.state == CheckState::Missing) {
        return line + "MISSING";
    }
    line += StateText(signature.state);
    if (!signature.parseError.empty()) {
        return line + " (" + signature.parseError + ")";
    }
    const PgpSignatureInfo& info = signature.info;
    line += " - V" + std::to_string(info.version) + " " + OpenPgpPackets::AlgorithmName(info.keyAlgorithm) +
            "/" + OpenPgpPackets::HashName(info.hashAlgorithm) + ", key ID " +
            (info.issuerKeyId.empty() ? std::string("(none)") : info.issuerKeyId) + ", created " +
            OpenPgpPackets::TimeText(info.created);
    if (!signature.note.empty()) {
        line += " (" + signature.note + ")";
    }
    return line;
}

void AddOnce(std::vector<std::string>& list, const std::string& line) {
    for (const std::string& existing : list) {
        if (existing == line) {
            return;
        }
    }
    list.push_back(line);
}

// What the key file holds, for its "File:" line.
std::string FileLine(const KeyFile& file) {
    switch (file.form) {
    case KeyFile::Form::Unreadable:
        return "cannot be read: " + file.readError;
    case KeyFile::Form::Empty:
        return "empty";
    case KeyFile::Form::RpmPackage:
        return "an RPM package (" + std::to_string(file.size) + " bytes), not a key";
    case KeyFile::Form::Keybox:
        return "a GnuPG keybox (pubring.kbx), not an exported key";
    case KeyFile::Form::Other:
        return std::to_string(file.size) + " bytes, neither armored (no -----BEGIN line) nor binary OpenPGP";
    case KeyFile::Form::Armored:
        return "armored (" + file.armorKind + "), " + std::to_string(file.armorBlocks) + " armor block" +
               (file.armorBlocks == 1 ? "" : "s") +
               (file.textBeforeArmor != 0
                    ? ", " + std::to_string(file.textBeforeArmor) + " bytes of text before it"
                    : std::string()) +
               (file.crlf ? ", CR LF line ends" : "");
    case KeyFile::Form::Binary:
        return "binary OpenPGP, " + std::to_string(file.size) + " bytes" +
               (file.trustPackets != 0
                    ? ", with " + std::to_string(file.trustPackets) + " trust packets (a keyring)"
                    : std::string());
    }
    return std::string();
}

} // namespace

KeyVerdict Explanation::JudgeKey(const std::string& keyPath, KeyProbe& probe) {
    KeyVerdict verdict;
    verdict.file = KeyFile::Read(keyPath);
    const KeyFile& file = verdict.file;

    if (file.form != KeyFile::Form::Unreadable) {
        verdict.loaded = probe.Loads(keyPath, file.lastSignatureIssuer);
    }
    if (verdict.loaded) {
        std::vector<std::string> candidates;
        if (!file.lastSignatureIssuer.empty()) {
            candidates.push_back(file.lastSignatureIssuer);
        }
        for (const KeyBlock& block : file.keys) {
            candidates.push_back(block.primary.keyId);
            for (const KeySubkey& subkey : block.subkeys) {
                candidates.push_back(subkey.key.keyId);
            }
        }
        std::set<std::string> tried;
        for (const std::string& candidate : candidates) {
            if (candidate.size() == 16 && tried.insert(candidate).second &&
                probe.ChecksKeyId(keyPath, candidate)) {
                verdict.checkedKeyId = candidate;
                break;
            }
        }
    }
    verdict.usable = verdict.loaded && !verdict.checkedKeyId.empty();

    verdict.details.push_back("File: " + FileLine(file));
    for (const KeyBlock& block : file.keys) {
        verdict.details.push_back("Key: " + KeyLine(block.primary));
        for (const std::string& userId : block.userIds) {
            verdict.details.push_back("  User ID: " + userId);
        }
        for (const KeySubkey& subkey : block.subkeys) {
            verdict.details.push_back("  Subkey: " + KeyLine(subkey.key) + (subkey.canSign ? ", signs" : ""));
        }
    }
    if (!file.packetError.empty()) {
        verdict.details.push_back("Packets: cannot all be read: " + file.packetError);
    }
    verdict.details.push_back(
        std::string("Plug-in: ") +
        (verdict.usable   ? "can use this key; it checks signatures of key ID " + verdict.checkedKeyId
         : verdict.loaded ? "reads this file but checks no key ID found in it"
                          : "cannot use this key file"));

    // Advice, the most specific first.
    const std::string& path = keyPath;
    switch (file.form) {
    case KeyFile::Form::Unreadable:
        verdict.advice.push_back("the key file cannot be read (" + file.readError + "): check the path");
        break;
    case KeyFile::Form::Empty:
        verdict.advice.emplace_back(
            "the key file is empty: export the public key with gpg --armor --export KEYID");
        break;
    case KeyFile::Form::RpmPackage:
        verdict.advice.emplace_back("the key file is an RPM package, not a public key: give the exported key "
                                    "(gpg --armor --export KEYID)");
        break;
    case KeyFile::Form::Keybox:
        verdict.advice.emplace_back(
            "the key file is a GnuPG keybox: export the key with gpg --armor --export KEYID "
            "> key.asc");
        break;
    case KeyFile::Form::Other:
        verdict.advice.emplace_back(
            "the key file holds no OpenPGP key: export it with gpg --armor --export KEYID");
        break;
    default:
        break;
    }
    if (file.textBeforeArmor != 0 && !verdict.usable) {
        verdict.advice.push_back(
            "the key file starts with text before -----BEGIN: the plug-in needs the armor "
            "first; extract it with " +
            std::string(kExtractArmor) + " " + path + " > key.asc");
    }
    if (file.armorBlocks > 1) {
        verdict.advice.push_back(
            "the key file holds " + std::to_string(file.armorBlocks) +
            " armor blocks: the plug-in reads one; keep only the block of the signing key");
    }
    if (file.trustPackets != 0 && !verdict.usable) {
        verdict.advice.emplace_back(
            "the key file is a binary keyring (it has trust packets): export the key with "
            "gpg --export KEYID > key.gpg");
    }
    if (file.keys.size() > 1) {
        verdict.advice.push_back(
            "the key file holds " + std::to_string(file.keys.size()) + " keys: the plug-in uses " +
            (verdict.usable ? "only the one with key ID " + verdict.checkedKeyId : std::string("only one")) +
            "; give a file with just the signing key");
    }
    for (const KeyBlock& block : file.keys) {
        if (!OpenPgpPackets::IsRsa(block.primary.algorithm) && block.primary.version == 4) {
            verdict.advice.push_back(
                OpenPgpPackets::AlgorithmName(block.primary.algorithm) + " key " + block.primary.keyId +
                ": the plug-in supports only RSA keys; sign the packages with an RSA key");
        }
        for (const KeySubkey& subkey : block.subkeys) {
            if (subkey.canSign) {
                verdict.advice.push_back(
                    "the key has the signing subkey " + subkey.key.keyId +
                    ": packages signed with it cannot be checked, the plug-in checks the "
                    "primary key's ID " +
                    block.primary.keyId +
                    "; sign with the primary key "
                    "(rpmsign --define '_gpg_name " +
                    block.primary.keyId + "!')");
            }
        }
    }
    const bool specificCause = file.textBeforeArmor != 0 || file.armorBlocks > 1 || file.trustPackets != 0;
    if (!verdict.loaded && !specificCause &&
        (file.form == KeyFile::Form::Armored || file.form == KeyFile::Form::Binary)) {
        verdict.advice.insert(
            verdict.advice.begin(),
            "the plug-in cannot read this key file: it needs a single RSA public key in "
            "old-format packets, as gpg --armor --export KEYID writes for an RSA key without "
            "a signing subkey");
    }
    if (file.newFormatPackets != 0 && !verdict.loaded) {
        verdict.advice.emplace_back(
            "the key uses new-format packet headers, which the plug-in does not read: export "
            "it again with gpg --export");
    }
    if (!verdict.usable && verdict.advice.empty()) {
        verdict.advice.emplace_back(
            verdict.loaded ? "the plug-in reads the key file but finds no key ID in it to check against"
                           : "the plug-in cannot read this key file: give a single RSA public key exported "
                             "with gpg --armor --export KEYID");
    }
    return verdict;
}

std::vector<std::string> Explanation::PackageDetails(const PackageFile& package) {
    std::vector<std::string> lines;
    if (!package.readError.empty()) {
        lines.push_back("File: cannot be read: " + package.readError);
        return lines;
    }
    if (!package.isRpm) {
        lines.push_back("Lead: " + (package.structureError.empty()
                                        ? std::string("no RPM lead (not an RPM package)")
                                        : package.structureError));
        return lines;
    }
    lines.push_back("Lead: RPM " + std::to_string(package.major) + "." + std::to_string(package.minor) +
                    ", " + (package.leadType == 1 ? "source" : "binary") + " package \"" + package.leadName +
                    "\", signature type " + std::to_string(package.signatureType) +
                    (package.signatureType == 5 ? " (header-style)" : " (not header-style)"));
    if (!package.tags.empty()) {
        std::string tags;
        for (const SignatureTag& tag : package.tags) {
            tags +=
                (tags.empty() ? "" : ", ") + std::to_string(tag.tag) + " " + PackageFile::TagName(tag.tag);
        }
        lines.push_back("Signature header: " + std::to_string(package.tags.size()) + " tags: " + tags);
    }
    if (!package.structureError.empty()) {
        lines.push_back("Structure: " + package.structureError);
        return lines;
    }
    lines.push_back("Header SHA-1 (tag 269): " + StateText(package.sha1) +
                    (package.sha1 == CheckState::Bad
                         ? " (stored " + package.sha1Stored + ", computed " + package.sha1Computed + ")"
                         : std::string()));
    lines.push_back("MD5 (tag 1004): " + StateText(package.md5) +
                    (package.md5 == CheckState::Bad
                         ? " (stored " + package.md5Stored + ", computed " + package.md5Computed + ")"
                         : std::string()));
    // A signature that is absent has no tag yet: name the one expected.
    PackageSignature header = package.header;
    if (header.tag == 0) {
        header.tag = 268;
    }
    lines.push_back(SignatureLine("Header signature", header));
    PackageSignature payload = package.payload;
    if (payload.tag == 0) {
        payload.tag = 1002;
    }
    lines.push_back(SignatureLine("Header+payload signature", payload));
    if (package.hasDsaTags) {
        lines.emplace_back("DSA/EdDSA signatures (tags 267/1005): present");
    }
    return lines;
}

std::vector<std::string> Explanation::PackageAdvice(const PackageFile& package, const KeyVerdict& key,
                                                    const PluginAnswer& answer) {
    std::vector<std::string> advice;
    if (!key.usable) {
        AddOnce(advice, "the key file " + key.file.path +
                            " cannot be used by the plug-in, so no package can pass: " +
                            (key.advice.empty() ? std::string("see signing-host key") : key.advice.front()));
    }
    if (!package.readError.empty()) {
        AddOnce(advice, "the package cannot be read (" + package.readError + "): check the path");
        return advice;
    }
    if (!package.isRpm) {
        AddOnce(advice, "the file is not an RPM package");
        return advice;
    }
    if (!package.structureError.empty()) {
        AddOnce(advice, "the package is damaged: " + package.structureError + "; get it again");
        return advice;
    }
    if (package.sha1 == CheckState::Bad || package.md5 == CheckState::Bad) {
        AddOnce(
            advice,
            "the package was changed after it was signed (a digest differs): get it again from its source");
    }
    const bool rsaHeader = package.header.tag != 0;
    const bool rsaPayload = package.payload.tag != 0;
    if (!rsaHeader && !rsaPayload) {
        if (package.hasDsaTags) {
            AddOnce(advice, "DSA/EdDSA signatures are not supported: re-sign with an RSA key "
                            "(rpmsign --addsign --rpmv3)");
        } else {
            AddOnce(advice, "no signature: the package is unsigned; sign it with rpmsign --addsign --rpmv3");
        }
        return advice;
    }
    if (rsaHeader && !rsaPayload) {
        AddOnce(advice, "payload signature missing: sign with rpmsign --addsign --rpmv3");
    }
    for (const PackageSignature* signature : {&package.header, &package.payload}) {
        if (signature->tag == 0 || !signature->parseError.empty()) {
            continue;
        }
        const std::string& issuer = signature->info.issuerKeyId;
        if (!OpenPgpPackets::IsRsa(signature->info.keyAlgorithm)) {
            AddOnce(advice, "DSA/EdDSA signatures are not supported: re-sign with an RSA key");
        } else if (const KeyBlock* block = key.file.BlockOfSubkey(issuer)) {
            AddOnce(advice, "signed by subkey " + issuer + ": the plug-in checks the primary key's ID " +
                                block->primary.keyId +
                                "; sign with the primary key (rpmsign --define '_gpg_name " +
                                block->primary.keyId + "!')");
        } else if (key.file.FindKey(issuer) == nullptr && !key.file.keys.empty()) {
            std::string held;
            for (const KeyBlock& keyBlock : key.file.keys) {
                held += (held.empty() ? "" : ", ") + keyBlock.primary.keyId;
            }
            std::string text = "signed by key ";
            text.append(issuer)
                .append(", but the key file holds ")
                .append(held)
                .append(": give the signer's public key, or re-sign the package with the expected key");
            AddOnce(advice, text);
        } else if (signature->state == CheckState::Bad && package.sha1 != CheckState::Bad &&
                   package.md5 != CheckState::Bad) {
            std::string text = "the ";
            text += signature->tag == 268 ? "header" : "header+payload";
            text.append(" signature does not verify with key ")
                .append(issuer)
                .append(": the package or its signature was altered");
            AddOnce(advice, text);
        } else if (key.usable && !key.checkedKeyId.empty() && issuer != key.checkedKeyId &&
                   key.file.FindKey(issuer) != nullptr) {
            AddOnce(advice, "signed by key " + issuer + ", but the plug-in checks key ID " +
                                key.checkedKeyId + ": give a file with just the signing key");
        }
    }
    if (advice.empty() && answer.status != 0) {
        advice.emplace_back("the host finds nothing wrong with the package; the plug-in's answer stands");
    }
    return advice;
}

bool Explanation::NeedsReading(const PluginAnswer& answer) {
    return answer.status == RPM_ERROR;
}

int Explanation::ExitClass(const PluginAnswer& answer, const PackageFile* package, const KeyVerdict* key) {
    switch (answer.status) {
    case RPM_SIGNED:
        return kExitSuccess;
    case RPM_NOT_SIGNED:
    case RPM_INVALID_SIGNATURE:
    case RPM_INVALID_HASH:
    case RPM_INVALID_STRUCTURE:
        return kExitFailure;
    case RPM_ERROR:
        break;
    default:
        return kExitNotChecked;
    }
    // The error answer: the package's fault only when the host can tell.
    if (answer.message == contract::kVerifyUnknownError) {
        return kExitFailure; // a header signature without the header+payload one
    }
    if (key != nullptr && !key->usable) {
        return kExitNotChecked;
    }
    if (package == nullptr || !StartsWith(answer.message, contract::kVerifyInternalError) ||
        !package->isRpm || !package->structureError.empty() || !package->readError.empty()) {
        return kExitNotChecked;
    }
    const bool unsignedPackage =
        package->header.tag == 0 && package->payload.tag == 0 && !package->hasDsaTags;
    const bool badValue =
        package->header.state == CheckState::Bad || package->payload.state == CheckState::Bad;
    return unsignedPackage || badValue ? kExitFailure : kExitNotChecked;
}

int CombineExitClasses(int first, int second) {
    if (first == kExitFailure || second == kExitFailure) {
        return kExitFailure;
    }
    if (first == kExitNotChecked || second == kExitNotChecked) {
        return kExitNotChecked;
    }
    return first > second ? first : second;
}

} // namespace host
