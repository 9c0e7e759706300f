#include "camera/event_queue.h"
#include "kit_support.h"

#include <atomic>
#include <future>
#include <mutex>

using namespace vxcam;

namespace {

Event numbered(int number, EventKind kind = EventKind::Message)
{
    Event event;
    event.kind = kind;
    event.code = number;
    return event;
}

} // namespace

TEST(EventQueue, HandsEventsOutInOrderOnAThreadOfItsOwn)
{
    EventQueue queue;
    std::vector<int> seen;
    std::atomic<bool> isElsewhere{true};
    const auto here = std::this_thread::get_id();
    const Subscription subscription = queue.listen([&](const Event& event) {
        seen.push_back(event.code);
        if (std::this_thread::get_id() == here) isElsewhere = false;
    });
    for (int i = 0; i < 100; ++i) {
        queue.post(numbered(i));
    }
    queue.stop();
    ASSERT_EQ(seen.size(), 100u);
    for (int i = 0; i < 100; ++i) {
        EXPECT_EQ(seen[static_cast<size_t>(i)], i);
    }
    EXPECT_TRUE(isElsewhere);
}

TEST(EventQueue, DoesNotCallAfterASubscriptionHasEnded)
{
    EventQueue queue;
    std::atomic<int> calls{0};
    std::promise<void> isInside, mayGo;
    std::optional<Subscription> subscription = queue.listen([&](const Event&) {
        if (++calls > 1) return;
        isInside.set_value();
        mayGo.get_future().wait();
    });
    queue.post(numbered(1));
    queue.post(numbered(2));
    isInside.get_future().wait();
    std::atomic<bool> isEnded{false};
    std::thread ender([&] {
        subscription.reset();
        isEnded = true;
    });
    EXPECT_FALSE(isEnded); // the handler still runs
    mayGo.set_value();
    ender.join();
    const int then = calls;
    queue.post(numbered(3));
    queue.stop();
    EXPECT_EQ(calls, then);
}

TEST(EventQueue, LetsAHandlerEndItsOwnSubscription)
{
    EventQueue queue;
    std::atomic<int> calls{0};
    Subscription subscription;
    std::promise<void> isSet;
    auto set = isSet.get_future();
    subscription = queue.listen([&](const Event&) {
        set.wait();
        ++calls;
        subscription.end();
    });
    isSet.set_value();
    queue.post(numbered(1));
    queue.post(numbered(2));
    queue.stop();
    EXPECT_EQ(calls, 1);
}

TEST(EventQueue, DropsHeartbeatsFirstWhereAHandlerIsTooSlow)
{
    EventQueue queue;
    std::promise<void> isInside, mayGo;
    auto go = mayGo.get_future().share();
    std::vector<Event> seen;
    const Subscription subscription = queue.listen([&](const Event& event) {
        if (seen.empty()) isInside.set_value();
        seen.push_back(event);
        go.wait();
    });
    queue.post(numbered(-1));
    isInside.get_future().wait();
    for (size_t i = 0; i < EventQueue::kMostWaiting; ++i) {
        queue.post(
            numbered(static_cast<int>(i), i % 2 == 0 ? EventKind::Heartbeat : EventKind::Message));
    }
    for (int i = 0; i < 100; ++i) {
        queue.post(numbered(10000 + i));
    }
    mayGo.set_value();
    queue.stop();
    EXPECT_EQ(seen.size(), EventQueue::kMostWaiting + 1);
    size_t messages = 0;
    for (const Event& event : seen) {
        if (event.kind == EventKind::Message) ++messages;
    }
    EXPECT_EQ(messages, EventQueue::kMostWaiting / 2 + 101);
    EXPECT_EQ(seen.back().code, 10099);
}

TEST(EventQueue, OutlivesWhatAHandlerThrows)
{
    EventQueue queue;
    int calls = 0;
    const Subscription subscription = queue.listen([&](const Event&) {
        ++calls;
        throw std::runtime_error("of the application");
    });
    queue.post(numbered(1));
    queue.post(numbered(2));
    queue.stop();
    EXPECT_EQ(calls, 2);
}
