// A devicedetectd of its own for each test, in a private runtime directory
// that this process and its client processes use.
#ifndef DD_TEST_SOAK_DAEMON_FIXTURE_H
#define DD_TEST_SOAK_DAEMON_FIXTURE_H

#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "control_client.h"
#include "device_detect_proxy.h"
#include "device_detect_request_code.h"
#include "process_util.h"
#include "socket_transport.h"

namespace DeviceDetectSoak {

class DaemonTest : public ::testing::Test {
protected:
    // Arguments after --runtime-dir; files the test writes go to RuntimeDir().
    virtual std::vector<std::string> DaemonArgs() { return {}; }
    virtual void BeforeDaemon() {}

    void SetUp() override
    {
        runtimeDir_ = DeviceDetectIntegration::MakeTempDir();
        ASSERT_FALSE(runtimeDir_.empty());
        setenv("TAVIK_RUNTIME_DIR", runtimeDir_.c_str(), 1);
        Tavik::Syntavo::DeviceDetectProxy::CleanupInstance();
        BeforeDaemon();
        daemon_ = std::make_unique<DeviceDetectIntegration::Daemon>(runtimeDir_);
        ASSERT_TRUE(daemon_->Start(DaemonArgs())) << daemon_->Output();
    }
    void TearDown() override
    {
        Tavik::Syntavo::DeviceDetectProxy::CleanupInstance();
        daemon_.reset();
        DeviceDetectIntegration::RemoveTree(runtimeDir_);
    }

    Tavik::Syntavo::Sim::ControlClient Control()
    {
        return Tavik::Syntavo::Sim::ControlClient(
            Tavik::ConnectSystemAbility(Tavik::Syntavo::SYNTAVO_DEVICE_DETECT_SA_ID));
    }
    const std::string& RuntimeDir() const { return runtimeDir_; }

    std::string runtimeDir_;
    std::unique_ptr<DeviceDetectIntegration::Daemon> daemon_;
};

}  // namespace DeviceDetectSoak

#endif  // DD_TEST_SOAK_DAEMON_FIXTURE_H
