// Fixture of the service tests: an embedded service published in process.
#ifndef DD_TEST_SERVICE_TEST_UTIL_H
#define DD_TEST_SERVICE_TEST_UTIL_H

#include <gtest/gtest.h>

#include <string>

#include "device_detect_proxy.h"
#include "embedded_service.h"
#include "recording_callbacks.h"

namespace Tavik {
namespace Syntavo {
namespace Sim {
namespace Test {

// The built-in world, published as system ability 70635 for the test.
class EmbeddedServiceTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(service_.Publish());
        proxy_ = DeviceDetectProxy::GetInstance();
        ASSERT_NE(proxy_, nullptr);
    }
    void TearDown() override
    {
        proxy_ = nullptr;
        service_.Unpublish();
    }

    Simulator& Sim() { return *service_.GetSimulator(); }

    EmbeddedService service_;
    sptr<DeviceDetectProxy> proxy_;
    std::string detail_;
};

using ::Tavik::Test::DeviceChangedRecorder;
using ::Tavik::Test::DeviceDetectRecorder;
using ::Tavik::Test::DialogEventRecorder;
using ::Tavik::Test::ServiceChangedRecorder;
using ::Tavik::Test::ServiceDeliverRecorder;
using ::Tavik::Test::ServicePublishRecorder;

}  // namespace Test
}  // namespace Sim
}  // namespace Syntavo
}  // namespace Tavik

#endif  // DD_TEST_SERVICE_TEST_UTIL_H
