// stub_fuzzer: the six callback stubs over hostile requests.
//
// Input layout:
//   byte 0    bits 0-2 pick the stub (modulo six); bit 3 puts the stub's own
//             interface token in front of the data, so half the inputs get
//             past the token check; bit 4 makes the call one-way
//   byte 1    the request code: the value itself below 0xF8, else one of
//             eight codes at the edges of the 32-bit range
//   the rest  the request data
//
// Whatever the request, a stub must return: DD_ERR_WRONG_TOKEN when the
// data does not start with its token, IPC_ERR_UNKNOWN_TRANSACTION for a
// code it does not know, and neither of the two for a known code.
#include <cstdint>
#include <initializer_list>
#include <string>
#include <vector>

#include "device_changed_callback_stub.h"
#include "device_detect_callback_stub.h"
#include "device_detect_request_code.h"
#include "device_detect_status.h"
#include "dialog_event_callback_stub.h"
#include "fuzz_common.h"
#include "ipc_status.h"
#include "message_option.h"
#include "service_changed_callback_stub.h"
#include "service_deliver_callback_stub.h"
#include "service_publish_callback_stub.h"

namespace {

using namespace Tavik;
using namespace Tavik::Syntavo;

constexpr uint8_t STUB_MASK = 0x07;
constexpr uint8_t WITH_TOKEN = 0x08;
constexpr uint8_t ONE_WAY = 0x10;
constexpr uint8_t EDGE_CODE_BASE = 0xF8;
constexpr uint32_t EDGE_CODES[] = {0xFFFFFFFFu, 0xFFFFFFFEu, 0x80000000u, 0x7FFFFFFFu,
                                   0x00FFFFFFu, 0x00010000u, 0x00000100u, 0x000000FFu};

struct StubKind {
    const char* name;
    sptr<IPCObjectStub> stub;
    std::u16string descriptor;
    std::vector<uint32_t> codes;
};

const std::vector<StubKind>& Stubs()
{
    const uint32_t onEvent = ToCode(SingleEventCallbackCode::ON_EVENT);
    static const std::vector<StubKind> stubs{
        {"DeviceChangedCallbackStub",
         new DeviceChangedCallbackStub(),
         IDeviceChangedCallback::GetDescriptor(),
         {ToCode(DeviceChangedCallbackCode::ON_DEVICE_ONLINE), ToCode(DeviceChangedCallbackCode::ON_DEVICE_OFFLINE),
          ToCode(DeviceChangedCallbackCode::ON_DEVICE_READY)}},
        {"ServiceChangedCallbackStub",
         new ServiceChangedCallbackStub(),
         IServiceChangedCallback::GetDescriptor(),
         {onEvent}},
        {"DeviceDetectCallbackStub", new DeviceDetectCallbackStub(), IDeviceDetectCallback::GetDescriptor(), {onEvent}},
        {"ServiceDeliverCallbackStub",
         new ServiceDeliverCallbackStub(),
         IServiceDeliverCallback::GetDescriptor(),
         {onEvent}},
        {"DialogEventCallbackStub", new DialogEventCallbackStub(), IDialogEventCallback::GetDescriptor(), {onEvent}},
        {"ServicePublishCallbackStub",
         new ServicePublishCallbackStub(),
         IServicePublishCallback::GetDescriptor(),
         {onEvent}},
    };
    return stubs;
}

bool Knows(const StubKind& kind, uint32_t code)
{
    for (uint32_t known : kind.codes) {
        if (known == code) {
            return true;
        }
    }
    return false;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/)
{
    DdFuzz::QuietLog();
    Stubs();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    constexpr size_t HEADER_SIZE = 2;
    if (size < HEADER_SIZE || size > DdFuzz::MAX_INPUT_SIZE) {
        return 0;
    }
    const StubKind& kind = Stubs()[(data[0] & STUB_MASK) % Stubs().size()];
    DdFuzz::g_context = kind.name;
    uint32_t code = data[1] < EDGE_CODE_BASE ? data[1] : EDGE_CODES[data[1] - EDGE_CODE_BASE];

    MessageParcel request;
    if ((data[0] & WITH_TOKEN) != 0) {
        FUZZ_CHECK(request.WriteInterfaceToken(kind.descriptor));
    }
    FUZZ_CHECK(request.WriteBuffer(data + HEADER_SIZE, size - HEADER_SIZE));
    bool tokenOk = request.ReadInterfaceToken() == kind.descriptor;

    MessageParcel reply;
    MessageOption option((data[0] & ONE_WAY) != 0 ? MessageOption::TF_ASYNC : MessageOption::TF_SYNC);
    int32_t status = kind.stub->SendRequest(code, request, reply, option);
    if (!tokenOk) {
        FUZZ_CHECK(status == DD_ERR_WRONG_TOKEN);
    } else if (!Knows(kind, code)) {
        FUZZ_CHECK(status == IPC_ERR_UNKNOWN_TRANSACTION);
    } else {
        FUZZ_CHECK(status != DD_ERR_WRONG_TOKEN && status != IPC_ERR_UNKNOWN_TRANSACTION);
    }
    FUZZ_CHECK(request.GetReadPosition() <= request.GetDataSize());
    return 0;
}
