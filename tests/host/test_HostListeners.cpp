// The host session library's listeners: the log listener and the session
// write listener the host program uses for its progress and JSON output.
#include "HostLog.h"
#include "HostSession.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

TEST(HostListeners, LogListenerSeesEveryLineInOrderAndMayLogItself) {
    host::HostLog::WriteNowhere();
    host::HostLog::Clear();
    std::vector<std::string> seen;
    host::HostLog::SetListener([&seen](const std::string& line) {
        seen.push_back(line);
        if (line == "first 1") {
            // The listener runs outside the log's lock.
            print_log("echo of %s", line.c_str());
        }
    });

    print_log("first %d", 1);
    print_log("second %s", "line\n");
    host::HostLog::SetListener(nullptr);
    print_log("after removal");

    EXPECT_EQ(seen, (std::vector<std::string>{"first 1", "echo of first 1", "second line\n"}));
    EXPECT_EQ(host::HostLog::TakeLines(),
              (std::vector<std::string>{"first 1", "echo of first 1", "second line\n", "after removal"}));
    host::HostLog::WriteToStandardError();
}

TEST(HostListeners, WriteListenerSeesThePluginsWritesButNotTheHostsPresets) {
    host::HostSession session;
    std::vector<std::string> seen;
    session.SetWriteListener([&seen, &session](const std::string& key, const std::string& value) {
        // Called after the value is stored.
        seen.push_back(key + "=" + value + (session.Value(key) == value ? "" : " (not stored yet)"));
    });

    session.SetValue("TEMP_FOLDER", "/tmp");
    env_set_string(&session, "operation_progress", "0");
    env_set_string(&session, std::string("SIGNIFICANCE"), std::string(";1"));
    session.SetWriteListener(nullptr);
    env_set_string(&session, "operation_progress", "100");

    EXPECT_EQ(seen, (std::vector<std::string>{"operation_progress=0", "SIGNIFICANCE=;1"}));
    EXPECT_EQ(session.Writes("operation_progress"), (std::vector<std::string>{"0", "100"}));
}
