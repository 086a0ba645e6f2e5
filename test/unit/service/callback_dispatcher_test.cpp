// The dispatcher's queue of one client, with a callback object that answers
// only when the test says so. (Several clients, each with its connection,
// are the integration tests' part: test/integration/fanout_test.cpp.)
#include <gtest/gtest.h>

#include <deque>
#include <future>
#include <mutex>
#include <thread>

#include "callback_dispatcher.h"
#include "ipc_object_stub.h"
#include "message_parcel.h"

namespace Tavik {
namespace Syntavo {
namespace Sim {
namespace Test {
namespace {

using namespace std::chrono_literals;

// Keeps every request unanswered until Answer().
class HeldCallback : public IPCObjectStub {
public:
    HeldCallback() : IPCObjectStub(u"test.HeldCallback") {}
    void SendRequestAsync(uint32_t code, MessageParcel&, MessageOption&, ReplyHandler done) override
    {
        std::lock_guard<std::mutex> lock(mutex_);
        held_.push_back(std::move(done));
        codes_.push_back(code);
    }
    // Answers the oldest request; false when none is held.
    bool Answer(int32_t status = 0)
    {
        ReplyHandler done;
        {
            std::lock_guard<std::mutex> lock(mutex_);
            if (held_.empty()) {
                return false;
            }
            done = std::move(held_.front());
            held_.pop_front();
        }
        MessageParcel reply;
        done(status, reply);
        return true;
    }
    size_t Held() const
    {
        std::lock_guard<std::mutex> lock(mutex_);
        return held_.size();
    }
    std::vector<uint32_t> Codes() const
    {
        std::lock_guard<std::mutex> lock(mutex_);
        return codes_;
    }

private:
    mutable std::mutex mutex_;
    std::deque<ReplyHandler> held_;
    std::vector<uint32_t> codes_;
};

std::vector<CallbackRequest> Requests(const sptr<IRemoteObject>& target, uint32_t firstCode, size_t count)
{
    std::vector<CallbackRequest> requests;
    for (size_t i = 0; i < count; ++i) {
        EncodedCallback callback{u"test.HeldCallback", firstCode + static_cast<uint32_t>(i),
                                 std::make_shared<MessageParcel>()};
        requests.push_back({target, callback});
    }
    return requests;
}

class CallbackDispatcherTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        dispatcher_->SetOverflowHandler([this](const PeerIdentity& client, size_t queued) {
            overflows_.push_back({client.connectionId, queued});
        });
    }
    std::shared_ptr<CallbackDispatcher> dispatcher_ = CallbackDispatcher::Create();
    sptr<HeldCallback> client_ = sptr<HeldCallback>::MakeSptr();
    std::vector<std::pair<uint64_t, size_t>> overflows_;
};

TEST_F(CallbackDispatcherTest, OneInFlightInOrderAndWaitsOnlyForAClientThatKeepsUp)
{
    // An idle client is waited for until it has answered the whole change
    // (with a wait long enough that only an answer can end it).
    dispatcher_->SetWait(1h);
    auto first = std::async(std::launch::async, [this] { return dispatcher_->Deliver(Requests(client_, 1, 3)); });
    for (int answered = 0; answered < 3; std::this_thread::yield()) {
        answered += client_->Answer() ? 1 : 0;
        EXPECT_LE(client_->Held(), 1u) << "one callback in flight at a time";
    }
    FanOut all = first.get();
    EXPECT_EQ(all.sent, 3u);
    EXPECT_EQ(all.queued, 0u);

    // Unanswered past the wait: counted as still queued.
    dispatcher_->SetWait(1ms);
    FanOut late = dispatcher_->Deliver(Requests(client_, 4, 2));
    EXPECT_EQ(late.sent, 0u);
    EXPECT_EQ(late.queued, 2u);

    // Still behind when the next change comes: not waited for at all (the
    // hour-long wait would end this test by its time limit).
    dispatcher_->SetWait(1h);
    FanOut behind = dispatcher_->Deliver(Requests(client_, 6, 2));
    EXPECT_EQ(behind.queued, 2u);
    std::vector<CallbackClient> clients = dispatcher_->Snapshot();
    ASSERT_EQ(clients.size(), 1u);
    EXPECT_EQ(clients[0].connectionId, 0u);
    EXPECT_EQ(clients[0].queued, 4u);
    EXPECT_EQ(clients[0].inFlight, "test.HeldCallback");

    // Thawed: the rest arrives in the order of the changes.
    while (client_->Answer(7)) {
    }
    EXPECT_EQ(client_->Codes(), (std::vector<uint32_t>{1, 2, 3, 4, 5, 6, 7}));
    clients = dispatcher_->Snapshot();
    EXPECT_TRUE(clients.empty()) << "a client without registrations or callbacks is forgotten";
}

TEST_F(CallbackDispatcherTest, AClientPastTheBoundIsGivenUpOnce)
{
    dispatcher_->Hold(GetObjectPeer(client_));
    dispatcher_->SetWait(1ms);
    FanOut filled = dispatcher_->Deliver(Requests(client_, 1, MAX_QUEUED_CALLBACKS));
    EXPECT_EQ(filled.queued, MAX_QUEUED_CALLBACKS);
    EXPECT_TRUE(overflows_.empty());

    FanOut over = dispatcher_->Deliver(Requests(client_, 1000, 3));
    ASSERT_EQ(overflows_.size(), 1u);
    EXPECT_EQ(overflows_[0], std::make_pair(uint64_t{0}, MAX_QUEUED_CALLBACKS + 1));
    EXPECT_EQ(over.queued, 0u);
    EXPECT_EQ(over.sent, 3u) << "dropped, not queued";
    std::vector<CallbackClient> clients = dispatcher_->Snapshot();
    ASSERT_EQ(clients.size(), 1u);
    EXPECT_EQ(clients[0].queued, 1u) << "only the one in flight is left";
    EXPECT_EQ(clients[0].failed, MAX_QUEUED_CALLBACKS - 1 + 3);

    // Its callback in flight ends (its connection closed): a new start.
    EXPECT_TRUE(client_->Answer(-32));
    dispatcher_->Deliver(Requests(client_, 2000, 1));
    EXPECT_TRUE(client_->Answer());
    EXPECT_EQ(client_->Codes(), (std::vector<uint32_t>{1, 2000}));
    EXPECT_EQ(overflows_.size(), 1u);
    dispatcher_->Release(0);
    EXPECT_TRUE(dispatcher_->Snapshot().empty());
}

}  // namespace
}  // namespace Test
}  // namespace Sim
}  // namespace Syntavo
}  // namespace Tavik
