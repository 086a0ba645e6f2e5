// MessageOption: how one request is sent.
#ifndef TAVIK_PLATFORM_MESSAGE_OPTION_H
#define TAVIK_PLATFORM_MESSAGE_OPTION_H

namespace Tavik {

class MessageOption {
public:
    enum : int {
        TF_SYNC = 0x00,   // the caller waits for the reply
        TF_ASYNC = 0x01,  // one-way: no reply is awaited
    };
    // Seconds a synchronous caller waits for its reply by default.
    static constexpr int TF_WAIT_TIME = 8;

    explicit MessageOption(int flags = TF_SYNC, int waitTime = TF_WAIT_TIME) : flags_(flags), waitTime_(waitTime) {}

    int GetFlags() const { return flags_; }
    void SetFlags(int flags) { flags_ = flags; }
    // Seconds.
    int GetWaitTime() const { return waitTime_; }
    void SetWaitTime(int waitTime) { waitTime_ = waitTime; }

private:
    int flags_;
    int waitTime_;
};

}  // namespace Tavik

#endif  // TAVIK_PLATFORM_MESSAGE_OPTION_H
