#include "ipc_object_stub.h"

#include "ipc_status.h"
#include "message_option.h"
#include "message_parcel.h"

namespace Tavik {

IRemoteObject::IRemoteObject(std::u16string descriptor) : descriptor_(std::move(descriptor)) {}

IRemoteObject::~IRemoteObject() = default;

void IRemoteObject::SendRequestAsync(uint32_t code, MessageParcel& data, MessageOption& option, ReplyHandler done)
{
    MessageParcel reply;
    int32_t status = SendRequest(code, data, reply, option);
    if (done) {
        done(status, reply);
    }
}

IPCObjectStub::IPCObjectStub(std::u16string descriptor) : IRemoteObject(std::move(descriptor)) {}

IPCObjectStub::~IPCObjectStub() = default;

int32_t IPCObjectStub::SendRequest(uint32_t code, MessageParcel& data, MessageParcel& reply, MessageOption& option)
{
    // The receiver sees the request from its start, as it would after a
    // transport delivered it.
    data.RewindRead(0);
    return OnRemoteRequest(code, data, reply, option);
}

int32_t IPCObjectStub::OnRemoteRequest(uint32_t /* code */, MessageParcel& /* data */, MessageParcel& /* reply */,
                                       MessageOption& /* option */)
{
    return IPC_ERR_UNKNOWN_TRANSACTION;
}

bool IPCObjectStub::AddDeathRecipient(const sptr<DeathRecipient>& /* recipient */)
{
    return false;
}

bool IPCObjectStub::RemoveDeathRecipient(const sptr<DeathRecipient>& /* recipient */)
{
    return false;
}

const char* IpcStatusToString(int32_t status)
{
    switch (status) {
        case IPC_OK:
            return "IPC_OK";
        case IPC_ERR_NO_MEMORY:
            return "IPC_ERR_NO_MEMORY";
        case IPC_ERR_PERMISSION_DENIED:
            return "IPC_ERR_PERMISSION_DENIED";
        case IPC_ERR_INVALID_DATA:
            return "IPC_ERR_INVALID_DATA";
        case IPC_ERR_DEAD_OBJECT:
            return "IPC_ERR_DEAD_OBJECT";
        case IPC_ERR_UNKNOWN_TRANSACTION:
            return "IPC_ERR_UNKNOWN_TRANSACTION";
        case IPC_ERR_TOO_LARGE:
            return "IPC_ERR_TOO_LARGE";
        case IPC_ERR_NOT_CONNECTED:
            return "IPC_ERR_NOT_CONNECTED";
        case IPC_ERR_TIMED_OUT:
            return "IPC_ERR_TIMED_OUT";
        default:
            return "UNKNOWN";
    }
}

}  // namespace Tavik
