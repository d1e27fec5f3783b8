// Test fixtures for the plug-in's entry points called through the reference
// host's session: the plug-in's log is captured in memory and not written
// anywhere while a test runs.
#ifndef SIGNING_TEST_PLUGIN_SESSION_TEST_H
#define SIGNING_TEST_PLUGIN_SESSION_TEST_H

#include "HostLog.h"
#include "HostSession.h"
#include "TestSupport.h"

#include <gtest/gtest.h>

#include <string>
#include <sys/stat.h>

namespace testsupport {

// A test that reads back the plug-in's log lines through host::HostLog.
class CapturedHostLogTest : public ::testing::Test {
protected:
    void SetUp() override {
        host::HostLog::WriteNowhere();
        host::HostLog::Clear();
    }
    void TearDown() override {
        host::HostLog::WriteToStandardError();
        host::HostLog::Clear();
    }
};

// A session whose TEMP_FOLDER is a fresh folder inside the test's own
// temporary folder.
class PluginSessionTest : public CapturedHostLogTest {
protected:
    PluginSessionTest() {
        m_Temp = m_Work.File("temp");
        mkdir(m_Temp.c_str(), 0755);
        m_Session.SetValue("TEMP_FOLDER", m_Temp);
    }

    TempDir m_Work;
    std::string m_Temp;
    host::HostSession m_Session;
};

} // namespace testsupport

#endif
