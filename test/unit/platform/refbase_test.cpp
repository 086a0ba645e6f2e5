// RefBase, sptr and wptr: lifetimes observed through destructor flags, and
// weak promotion racing with the last release.
#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <memory>
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

// The strong count lives in the object until the first weak reference asks
// for a counter block; from then on the block holds it, and nothing is lost
// or added on the way. Weak pointers never keep the object.
TEST(WptrTest, PromotionFollowsTheStrongCount)
{
    Flagged* unowned = new Flagged();
    wptr<Flagged> early(unowned);
    EXPECT_EQ(early.promote(), nullptr) << "no promotion before the first strong reference";
    sptr<Flagged> owner(unowned);

    bool destroyed = false;
    sptr<Flagged> strong(new Flagged(&destroyed));
    sptr<Flagged> second = strong;
    sptr<Flagged> third = strong;
    EXPECT_EQ(strong->GetWptrRefCount(), 0);

    wptr<Flagged> weak(strong);
    EXPECT_EQ(strong->GetSptrRefCount(), 3);
    EXPECT_EQ(strong->GetWptrRefCount(), 1);
    {
        sptr<Flagged> promoted = weak.promote();
        ASSERT_EQ(promoted, strong);
        EXPECT_EQ(strong->GetSptrRefCount(), 4);
    }
    second = nullptr;
    third = nullptr;
    EXPECT_EQ(strong->GetSptrRefCount(), 1);
    wptr<Flagged> copy(weak);
    wptr<Flagged> moved(std::move(copy));
    wptr<Flagged> assigned;
    assigned = moved;
    EXPECT_EQ(strong->GetWptrRefCount(), 3);

    strong = nullptr;
    EXPECT_TRUE(destroyed);
    // The counter outlives the object, so these touch no freed memory.
    EXPECT_EQ(weak.promote(), nullptr);
    EXPECT_EQ(assigned.promote(), nullptr);
    EXPECT_EQ(wptr<Flagged>().promote(), nullptr);
}

// Runs `rounds` rounds with `workers` threads that live for the whole loop
// (starting threads per round is far too slow under tsan). Each round runs
// `setUp`, lets every worker run `work(worker)`, runs `whileWorking` once all
// have started and `tearDown` once all have finished.
void RunRounds(int workers, int rounds, const std::function<void()>& setUp, const std::function<void(int)>& work,
               const std::function<void()>& whileWorking, const std::function<void()>& tearDown)
{
    std::atomic<int> round{0};
    std::atomic<int> started{0};
    std::atomic<int> finished{0};
    std::atomic<bool> stop{false};
    std::vector<std::thread> threads;
    for (int w = 0; w < workers; ++w) {
        threads.emplace_back([&, w] {
            for (int seen = 1;; ++seen) {
                while (round.load(std::memory_order_acquire) < seen && !stop.load()) {
                    std::this_thread::yield();
                }
                if (stop.load()) {
                    return;
                }
                started.fetch_add(1, std::memory_order_release);
                work(w);
                finished.fetch_add(1, std::memory_order_release);
            }
        });
    }
    auto waitForAll = [workers](const std::atomic<int>& count) {
        while (count.load(std::memory_order_acquire) != workers) {
            std::this_thread::yield();
        }
    };
    for (int i = 0; i < rounds; ++i) {
        setUp();
        started.store(0);
        finished.store(0);
        round.fetch_add(1, std::memory_order_release);
        waitForAll(started);
        whileWorking();
        waitForAll(finished);
        tearDown();
    }
    stop.store(true);
    for (std::thread& t : threads) {
        t.join();
    }
}

// Strong references taken and dropped on other threads while the first weak
// reference moves the count into its block: every increment and decrement
// lands exactly once, before the move or after it.
TEST(WptrTest, StrongCountSurvivesTheMoveToTheBlockUnderRace)
{
    std::atomic<bool> weakTaken{false};
    sptr<Flagged> shared;
    wptr<Flagged> weak;
    bool destroyed = false;
    int wrongCounts = 0;
    int notDestroyed = 0;
    RunRounds(
        2, 300,
        [&] {
            destroyed = false;
            shared = new Flagged(&destroyed);
            weakTaken.store(false);
        },
        [&](int) {
            // Copy until the weak reference exists, and a little beyond, so
            // that copies are in flight while the count moves.
            for (int after = 0; after < 20;) {
                sptr<Flagged> copy = shared;
                sptr<Flagged> another = copy;
                after += weakTaken.load(std::memory_order_acquire) ? 1 : 0;
                std::this_thread::yield();
            }
        },
        [&] {
            weak = shared;
            weakTaken.store(true, std::memory_order_release);
        },
        [&] {
            wrongCounts += (shared->GetSptrRefCount() != 1 || shared->GetWptrRefCount() != 1) ? 1 : 0;
            shared = nullptr;
            notDestroyed += destroyed ? 0 : 1;
            EXPECT_EQ(weak.promote(), nullptr);
            weak = wptr<Flagged>();
        });
    EXPECT_EQ(wrongCounts, 0) << "rounds whose counts were off after the move";
    EXPECT_EQ(notDestroyed, 0) << "rounds in which the last release did not destroy";
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
    constexpr int kPromoters = 3;
    std::unique_ptr<Tracker> tracker;
    sptr<Tracked> strong;
    wptr<Tracked> weaks[kPromoters];
    std::atomic<int> sawDead{0};
    int revived = 0;
    int notDestroyedOnce = 0;
    RunRounds(
        kPromoters, 3000,
        [&] {
            tracker = std::make_unique<Tracker>();
            strong = new Tracked(tracker.get());
            for (wptr<Tracked>& weak : weaks) {
                weak = strong;
            }
            sawDead.store(0);
        },
        [&](int t) {
            // Promote until it fails, so that promotions are in flight at the
            // moment the main thread lets go.
            for (sptr<Tracked> p = weaks[t].promote(); p != nullptr; p = weaks[t].promote()) {
                sawDead.fetch_add(tracker->dead.load() ? 1 : 0);
                p = nullptr;
                std::this_thread::yield();
            }
        },
        [&] { strong = nullptr; },
        [&] {
            EXPECT_EQ(weaks[0].promote(), nullptr);
            revived += sawDead.load() != 0 ? 1 : 0;
            notDestroyedOnce += tracker->destructions.load() != 1 ? 1 : 0;
            for (wptr<Tracked>& weak : weaks) {
                weak = wptr<Tracked>();
            }
        });
    EXPECT_EQ(revived, 0) << "rounds in which a promotion returned a destroyed object";
    EXPECT_EQ(notDestroyedOnce, 0) << "rounds in which the object was not destroyed exactly once";
}

}  // namespace
}  // namespace Tavik
