// Shared pieces of the transport tests: the test service, a callback stub,
// a death counter and helper processes.
#ifndef TAVIK_TEST_TRANSPORT_TEST_UTIL_H
#define TAVIK_TEST_TRANSPORT_TEST_UTIL_H

#include <sys/types.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "child_process.h"
#include "ipc_object_stub.h"
#include "message_option.h"
#include "message_parcel.h"
#include "socket_transport.h"

namespace Tavik {
namespace TransportTest {

using Test::ScopedRuntimeDir;
using Test::WaitUntil;

enum TestCode : uint32_t {
    // int32 in -> the same int32 and the server's pid out.
    ECHO = 1,
    // object, int32 in -> calls object with ECHO(int32); out: its status and
    // the int32 it replied.
    CALL_BACK = 2,
    // object in -> kept by the service; out: the number kept.
    HOLD = 3,
    // drops every kept object.
    DROP = 4,
    // out: objects the server's process exports on all its connections.
    EXPORT_COUNT = 5,
    // out: one object, the same on every call.
    GET_OBJECT = 6,
    // never answers.
    BLOCK = 7,
    // one-way: int32 in, appended to a list.
    RECORD = 8,
    // int32 n in -> waits (up to 2 s) until n values are recorded; out: the
    // list.
    GET_RECORDED = 9,
    // int32 in -> the same int32, after 100 ms.
    SLOW = 10,
    // int32 n in -> n bytes out.
    BIG_REPLY = 11,
    // out: the calling pid, uid, and 1 when the call came over a connection.
    CALLER = 12,
};

// The object the tests publish, in this process or in a helper.
class TestService : public IPCObjectStub {
public:
    TestService();
    int32_t OnRemoteRequest(uint32_t code, MessageParcel& data, MessageParcel& reply, MessageOption& option) override;

private:
    std::mutex mutex_;
    std::condition_variable recordedChanged_;
    std::vector<sptr<IRemoteObject>> held_;
    std::vector<int32_t> recorded_;
    sptr<IRemoteObject> sameObject_;
};

// Answers ECHO(v) with v * 10, or, when it has a server, with what the
// server's ECHO(v + 1) returns (a call back into the peer from inside a
// callback). Records the threads it ran on.
class CallbackStub : public IPCObjectStub {
public:
    explicit CallbackStub(sptr<IRemoteObject> server = nullptr, bool* destroyed = nullptr)
        : server_(std::move(server)), destroyed_(destroyed)
    {
    }
    ~CallbackStub() override
    {
        if (destroyed_ != nullptr) {
            *destroyed_ = true;
        }
    }
    int32_t OnRemoteRequest(uint32_t code, MessageParcel& data, MessageParcel& reply, MessageOption& option) override;

    int Calls() const { return calls_.load(); }
    std::thread::id LastThread() const { return lastThread_.load(); }

private:
    sptr<IRemoteObject> server_;
    bool* destroyed_;
    std::atomic<int> calls_{0};
    std::atomic<std::thread::id> lastThread_{};
};

class DeathCounter : public IRemoteObject::DeathRecipient {
public:
    void OnRemoteDied(const wptr<IRemoteObject>& object) override
    {
        last_ = object.GetRefPtr();
        ++count_;
    }
    int Count() const { return count_.load(); }
    IRemoteObject* LastObject() const { return last_.load(); }

private:
    std::atomic<int> count_{0};
    std::atomic<IRemoteObject*> last_{nullptr};
};

// A copy of this test binary started in a helper role (see
// transport_helper_main.cpp). The process is killed when the object goes.
class HelperProcess : public Test::ChildProcess {
public:
    // Starts the role and waits until it reports ready.
    bool Start(const std::string& role, int32_t systemAbilityId);
};

// A system ability id no other test of this run uses, so that no connection
// cached by an earlier test is found.
int32_t NextSystemAbilityId();

// A synchronous call of `code` with `value` (and `object` first, if any) as
// its data; the status.
int32_t Call(const sptr<IRemoteObject>& remote, uint32_t code, int32_t value, MessageParcel& reply,
             int waitSeconds = MessageOption::TF_WAIT_TIME, const sptr<IRemoteObject>& object = nullptr);
// ECHO(value): the status; the echoed value and the server's pid when asked.
int32_t Echo(const sptr<IRemoteObject>& remote, int32_t value, int32_t* answer = nullptr, int32_t* pid = nullptr,
             int waitSeconds = MessageOption::TF_WAIT_TIME);

// A stream socket bound to (listen) or connected to (!listen) `path`; -1 on
// failure. For peers that speak frames by hand.
int RawSocket(const std::string& path, bool listen);
bool RawSend(int fd, const void* data, size_t size);

// A TestService published under a fresh id in a fresh runtime directory for
// the length of one test.
class PublishedServiceTest : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(PublishSystemAbility(id_, service_), PublishStatus::OK); }
    void TearDown() override { UnpublishSystemAbility(id_); }

    ScopedRuntimeDir dir_;
    const int32_t id_ = NextSystemAbilityId();
    sptr<IRemoteObject> service_{new TestService()};
};

}  // namespace TransportTest
}  // namespace Tavik

#endif  // TAVIK_TEST_TRANSPORT_TEST_UTIL_H
