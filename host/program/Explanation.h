// Plain-words explanations of the plug-in's answers: each check of a
// package shown as a line (lead, signature tags, digests, signatures), what
// a key file holds and whether the plug-in can use it, and one line of
// advice per known failure. The plug-in's verdict is never changed; these
// lines only add detail, and decide the exit code's meaning.
#ifndef HOST_PROGRAM_EXPLANATION_H
#define HOST_PROGRAM_EXPLANATION_H

#include "KeyFile.h"
#include "KeyProbe.h"
#include "PackageFile.h"

#include <string>
#include <vector>

namespace host {

// What the host found out about a key file, with the plug-in's help.
struct KeyVerdict {
    KeyFile file;
    bool loaded = false;      // the plug-in reads the file as a key
    std::string checkedKeyId; // the key ID it compares signatures with
    bool usable = false;
    std::vector<std::string> details; // what the file holds, one line each
    std::vector<std::string> advice;  // one line per problem
};

// The plug-in's answer for one package.
struct PluginAnswer {
    int status = -1; // -1: an exception instead of an answer
    std::string statusName;
    std::string message;
};

class Explanation {
public:
    // Reads the key file and asks the plug-in (through probe) whether it
    // loads the key and which key ID it checks.
    static KeyVerdict JudgeKey(const std::string& keyPath, KeyProbe& probe);

    // The check lines of a package ("Header SHA-1 (tag 269): OK", ...).
    static std::vector<std::string> PackageDetails(const PackageFile& package);

    // Advice for a package's answer: one line per known cause.
    static std::vector<std::string> PackageAdvice(const PackageFile& package, const KeyVerdict& key,
                                                  const PluginAnswer& answer);

    // The exit-code class of one answer: 0 signed, 1 failed its check
    // (statuses 1 to 4, and the plug-in's error answer when the host finds the package at
    // fault: no signature, no header+payload signature, a signature that
    // does not verify), 3 could not be checked. package and key may be
    // null when they were not read.
    static int ExitClass(const PluginAnswer& answer, const PackageFile* package, const KeyVerdict* key);

    // Whether an answer needs the package and key read to get its class.
    static bool NeedsReading(const PluginAnswer& answer);
};

// Combines the classes of several answers: 1 when any failed, else 3 when
// any could not be checked, else 0.
int CombineExitClasses(int first, int second);

} // namespace host

#endif
