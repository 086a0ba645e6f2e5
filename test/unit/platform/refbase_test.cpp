// RefBase, sptr and wptr: lifetimes observed through destructor flags, and
// weak promotion racing with the last release.
#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "refbase.h"

namespace Tavik {
namespace {

class Flagged : public RefBase {
public:
    explicit Flagged(bool* destroyed = nullptr, std::vector<std::string>* events = nullptr)
        : destroyed_(destroyed), events_(events)
    {
    }
    // Copies carry the value, never the original's flags.
    Flagged(const Flagged& other) : RefBase(other), value(other.value), destroyed_(nullptr), events_(nullptr) {}
    Flagged& operator=(const Flagged& other)
    {
        RefBase::operator=(other);
        value = other.value;
        return *this;
    }
    ~Flagged() override
    {
        if (destroyed_ != nullptr) {
            *destroyed_ = true;
        }
        Note("destroyed");
    }
    void OnFirstStrongRef(const void* objectId) override
    {
        Note("first");
        RefBase::OnFirstStrongRef(objectId);
    }
    void OnLastStrongRef(const void* objectId) override
    {
        Note("last");
        RefBase::OnLastStrongRef(objectId);
    }

    int value = 0;

private:
    void Note(const char* event)
    {
        if (events_ != nullptr) {
            events_->push_back(event);
        }
    }
    bool* destroyed_;
    std::vector<std::string>* events_;
};

class Derived : public Flagged {
public:
    using Flagged::Flagged;
};

// Copies, moves and conversions share one count; the last release destroys,
// self-assignment does not.
TEST(RefBaseTest, LastStrongReferenceDestroys)
{
    bool destroyed = false;
    sptr<Derived> first = sptr<Derived>::MakeSptr(&destroyed);
    EXPECT_EQ(first->GetSptrRefCount(), 1);
    {
        sptr<Flagged> base = first;
        EXPECT_EQ(first->GetSptrRefCount(), 2);
        sptr<RefBase> moved(std::move(base));
        EXPECT_EQ(first->GetSptrRefCount(), 2) << "a move transfers, it does not add";
        EXPECT_EQ(base, nullptr);
    }
    EXPECT_EQ(first->GetSptrRefCount(), 1);
    sptr<Derived>& alias = first;
    first = alias;
    EXPECT_FALSE(destroyed);
    first = nullptr;
    EXPECT_TRUE(destroyed);
}

TEST(RefBaseTest, HooksRunOnceAtTheTransitions)
{
    std::vector<std::string> events;
    {
        sptr<Flagged> a(new Flagged(nullptr, &events));
        sptr<Flagged> b = a;
        b = nullptr;
        EXPECT_EQ(events, std::vector<std::string>{"first"});
    }
    EXPECT_EQ(events, (std::vector<std::string>{"first", "last", "destroyed"}));
}

// A copy is a new object with its own counter; neither copying nor
// assignment touches the original's counts, so dropping one never frees the other.
TEST(RefBaseTest, CopiesHaveTheirOwnCounts)
{
    bool originalDestroyed = false;
    sptr<Flagged> original(new Flagged(&originalDestroyed));
    original->value = 5;
    wptr<Flagged> weakOriginal(original);
    int weakBefore = original->GetWptrRefCount();

    Flagged onStack(*original);
    EXPECT_EQ(onStack.GetSptrRefCount(), 0);
    EXPECT_NE(onStack.GetRefCounter(), original->GetRefCounter());
    sptr<Flagged> assigned(new Flagged());
    *assigned = *original;
    EXPECT_EQ(assigned->value, 5);
    EXPECT_EQ(assigned->GetSptrRefCount(), 1) << "assignment must not copy counts";
    EXPECT_NE(assigned->GetRefCounter(), original->GetRefCounter());
    EXPECT_EQ(original->GetSptrRefCount(), 1);
    EXPECT_EQ(original->GetWptrRefCount(), weakBefore);

    original = nullptr;
    EXPECT_TRUE(originalDestroyed);
    EXPECT_EQ(weakOriginal.promote(), nullptr);
    EXPECT_EQ(assigned->value, 5);
    EXPECT_EQ(onStack.value, 5);
}

TEST(WptrTest, PromotionFollowsTheStrongCount)
{
    bool destroyed = false;
    Flagged* raw = new Flagged(&destroyed);
    wptr<Flagged> weak(raw);
    EXPECT_EQ(weak.promote(), nullptr) << "no promotion before the first strong reference";
    sptr<Flagged> strong(raw);
    int weakBefore = strong->GetWptrRefCount();
    {
        sptr<Flagged> promoted = weak.promote();
        ASSERT_EQ(promoted, strong);
        EXPECT_EQ(strong->GetSptrRefCount(), 2);
    }
    EXPECT_EQ(strong->GetSptrRefCount(), 1);
    wptr<Flagged> copy(weak);
    wptr<Flagged> moved(std::move(copy));
    wptr<Flagged> assigned;
    assigned = moved;
    EXPECT_EQ(strong->GetWptrRefCount(), weakBefore + 2);

    strong = nullptr;
    EXPECT_TRUE(destroyed) << "weak pointers must not keep the object";
    // The counter outlives the object, so these touch no freed memory.
    EXPECT_EQ(weak.promote(), nullptr);
    EXPECT_EQ(assigned.promote(), nullptr);
    EXPECT_EQ(wptr<Flagged>().promote(), nullptr);
}

// The strong count lives in the object until the first weak reference asks
// for a counter block; from then on the block holds it, and nothing is lost
// or added on the way.
TEST(WptrTest, TheFirstWeakReferenceTakesOverTheStrongCount)
{
    bool destroyed = false;
    sptr<Flagged> first(new Flagged(&destroyed));
    sptr<Flagged> second = first;
    sptr<Flagged> third = first;
    EXPECT_EQ(first->GetSptrRefCount(), 3);
    EXPECT_EQ(first->GetWptrRefCount(), 0);

    wptr<Flagged> weak(first);
    EXPECT_EQ(first->GetSptrRefCount(), 3);
    EXPECT_EQ(first->GetWptrRefCount(), 1);
    EXPECT_EQ(first->GetRefCounter(), first->GetRefCounter()) << "one block for the object's whole life";
    {
        sptr<Flagged> promoted = weak.promote();
        ASSERT_EQ(promoted, first);
        EXPECT_EQ(first->GetSptrRefCount(), 4);
    }
    second = nullptr;
    third = nullptr;
    EXPECT_FALSE(destroyed);
    EXPECT_EQ(first->GetSptrRefCount(), 1);
    first = nullptr;
    EXPECT_TRUE(destroyed);
    EXPECT_EQ(weak.promote(), nullptr);
}

// Strong references taken and dropped on other threads while the first weak
// reference moves the count into its block: every increment and decrement
// lands exactly once, before the move or after it.
TEST(WptrTest, StrongCountSurvivesTheMoveToTheBlockUnderRace)
{
    constexpr int kIterations = 300;
    constexpr int kCopiers = 2;
    std::atomic<int> round{0};
    std::atomic<int> started{0};
    std::atomic<int> finished{0};
    std::atomic<bool> weakTaken{false};
    std::atomic<bool> stop{false};
    sptr<Flagged> shared;
    std::vector<std::thread> copiers;
    for (int t = 0; t < kCopiers; ++t) {
        copiers.emplace_back([&] {
            for (int seen = 0;;) {
                while (round.load(std::memory_order_acquire) == seen && !stop.load()) {
                    std::this_thread::yield();
                }
                if (stop.load()) {
                    return;
                }
                ++seen;
                started.fetch_add(1, std::memory_order_release);
                // Copy until the weak reference exists, and a little beyond,
                // so that copies are in flight while the count moves.
                for (int after = 0; after < 20;) {
                    sptr<Flagged> copy = shared;
                    sptr<Flagged> another = copy;
                    after += weakTaken.load(std::memory_order_acquire) ? 1 : 0;
                    // Let the main thread run on a busy machine.
                    std::this_thread::yield();
                }
                finished.fetch_add(1, std::memory_order_release);
            }
        });
    }
    int wrongCounts = 0;
    int notDestroyed = 0;
    for (int i = 0; i < kIterations; ++i) {
        bool destroyed = false;
        shared = new Flagged(&destroyed);
        started.store(0);
        finished.store(0);
        weakTaken.store(false);
        round.fetch_add(1, std::memory_order_release);
        while (started.load(std::memory_order_acquire) != kCopiers) {
            std::this_thread::yield();
        }
        wptr<Flagged> weak(shared);
        weakTaken.store(true, std::memory_order_release);
        while (finished.load(std::memory_order_acquire) != kCopiers) {
            std::this_thread::yield();
        }
        wrongCounts += (shared->GetSptrRefCount() != 1 || shared->GetWptrRefCount() != 1) ? 1 : 0;
        shared = nullptr;
        notDestroyed += destroyed ? 0 : 1;
        EXPECT_EQ(weak.promote(), nullptr);
    }
    stop.store(true);
    for (std::thread& t : copiers) {
        t.join();
    }
    EXPECT_EQ(wrongCounts, 0) << "iterations whose counts were off after the move";
    EXPECT_EQ(notDestroyed, 0) << "iterations in which the last release did not destroy";
}

// Promotion racing with the release of the last strong reference: either the
// promotion wins and the object lives until the promoted pointer goes, or it
// loses and gets null; it never returns an object that is being destroyed,
// and the object is destroyed exactly once.
TEST(WptrTest, PromotionNeverRevivesUnderRace)
{
    struct Tracker {
        std::atomic<int> destructions{0};
        std::atomic<bool> dead{false};
    };
    class Tracked : public RefBase {
    public:
        explicit Tracked(Tracker* tracker) : tracker_(tracker) {}
        ~Tracked() override
        {
            tracker_->dead.store(true);
            tracker_->destructions.fetch_add(1);
        }

    private:
        Tracker* tracker_;
    };

    // The promoters live for the whole loop (starting threads per iteration
    // is far too slow under tsan); each round they get their own wptr copy,
    // wait for the round to start and keep promoting while the main thread
    // releases its reference.
    constexpr int kIterations = 3000;
    constexpr int kPromoters = 3;
    std::atomic<int> round{0};
    std::atomic<int> started{0};
    std::atomic<int> finished{0};
    std::atomic<bool> stop{false};
    std::atomic<int> sawDead{0};
    Tracker* tracker = nullptr;
    wptr<Tracked> weaks[kPromoters];
    std::vector<std::thread> promoters;
    for (int t = 0; t < kPromoters; ++t) {
        promoters.emplace_back([&, t] {
            for (int seen = 0;;) {
                while (round.load(std::memory_order_acquire) == seen && !stop.load()) {
                    std::this_thread::yield();
                }
                if (stop.load()) {
                    return;
                }
                ++seen;
                started.fetch_add(1, std::memory_order_release);
                // Promote until it fails, so that promotions are in flight
                // at the moment the main thread lets go.
                for (;;) {
                    sptr<Tracked> p = weaks[t].promote();
                    if (p == nullptr) {
                        break;
                    }
                    if (tracker->dead.load()) {
                        sawDead.fetch_add(1);
                    }
                    p = nullptr;
                    // Let the releasing thread run on a busy machine.
                    std::this_thread::yield();
                }
                finished.fetch_add(1, std::memory_order_release);
            }
        });
    }
    int revived = 0;
    int doubleDestroyed = 0;
    for (int i = 0; i < kIterations; ++i) {
        Tracker roundTracker;
        tracker = &roundTracker;
        sptr<Tracked> strong(new Tracked(&roundTracker));
        for (wptr<Tracked>& weak : weaks) {
            weak = strong;
        }
        sawDead.store(0);
        started.store(0);
        finished.store(0);
        round.fetch_add(1, std::memory_order_release);
        while (started.load(std::memory_order_acquire) != kPromoters) {
            std::this_thread::yield();
        }
        strong = nullptr;
        while (finished.load(std::memory_order_acquire) != kPromoters) {
            std::this_thread::yield();
        }
        EXPECT_EQ(weaks[0].promote(), nullptr);
        revived += sawDead.load() != 0 ? 1 : 0;
        doubleDestroyed += roundTracker.destructions.load() != 1 ? 1 : 0;
        for (wptr<Tracked>& weak : weaks) {
            weak = wptr<Tracked>();
        }
    }
    stop.store(true);
    for (std::thread& t : promoters) {
        t.join();
    }
    EXPECT_EQ(revived, 0) << "iterations in which a promotion returned a destroyed object";
    EXPECT_EQ(doubleDestroyed, 0) << "iterations in which the object was not destroyed exactly once";
}

}  // namespace
}  // namespace Tavik
