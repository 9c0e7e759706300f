// A callback of the application, with the pointer that it is called with.
#ifndef TCCALLBACKSLOT_H
#define TCCALLBACKSLOT_H

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <mutex>

// Marks the calling thread as one that is in a callback.
class tcCallbackScope
{
public:
    tcCallbackScope() { ++tnDepth; }
    ~tcCallbackScope() { --tnDepth; }
    tcCallbackScope(const tcCallbackScope&) = delete;
    tcCallbackScope& operator=(const tcCallbackScope&) = delete;

    static bool IsInside() { return tnDepth > 0; }

private:
    inline static thread_local int tnDepth = 0;
};

// Threads: any.
// Locks: one of its own, not held while the callback runs.
template <class Callback>
class tcCallbackSlot
{
public:
    tcCallbackSlot() = default;
    tcCallbackSlot(const tcCallbackSlot&) = delete;
    tcCallbackSlot& operator=(const tcCallbackSlot&) = delete;

    bool IsSet() const { return mbSet.load(std::memory_order_relaxed); }

    // Replaces the callback, and what it is for. Waits until the one before does not run any more,
    // if asked to.
    void Set(Callback callback, void* user, bool waits, unsigned what = gnAll)
    {
        std::unique_lock<std::mutex> lock(mMutex);
        mpCallback = callback;
        mpUser = user;
        mnWhat = what;
        mbSet = callback != nullptr;
        const uint64_t generation = ++mnGeneration;
        if (!waits) return;
        mReturned.wait(lock, [&] {
            const tcCall* call = mpCalls;
            while (call != nullptr && call->mnGeneration >= generation) {
                call = call->mpNext;
            }
            return call == nullptr;
        });
    }

    // Calls it, if there is one, with the pointer behind the arguments.
    template <class... Arguments>
    void Call(Arguments... arguments)
    {
        CallFor(gnAll, arguments...);
    }
    // The same, if it is for any of this.
    template <class... Arguments>
    void CallFor(unsigned what, Arguments... arguments)
    {
        if (!IsSet()) return;
        const tcCall call(*this);
        const bool isFor = (call.what & what) != 0;
        if (isFor && call.callback != nullptr) call.callback(arguments..., call.user);
    }

private:
    static constexpr unsigned gnAll = ~0U;

    // One call under way, in the list of them.
    class tcCall
    {
    public:
        explicit tcCall(tcCallbackSlot& slot) : mSlot(slot)
        {
            const std::lock_guard<std::mutex> lock(slot.mMutex);
            callback = slot.mpCallback;
            user = slot.mpUser;
            what = slot.mnWhat;
            mnGeneration = slot.mnGeneration;
            mpNext = slot.mpCalls;
            slot.mpCalls = this;
        }
        ~tcCall()
        {
            {
                const std::lock_guard<std::mutex> lock(mSlot.mMutex);
                tcCall** link = &mSlot.mpCalls;
                while (*link != this) {
                    link = &(*link)->mpNext;
                }
                *link = mpNext;
            }
            mSlot.mReturned.notify_all();
        }
        tcCall(const tcCall&) = delete;
        tcCall& operator=(const tcCall&) = delete;

        Callback callback;
        void* user;
        unsigned what;

    private:
        friend tcCallbackSlot;

        tcCallbackSlot& mSlot;
        uint64_t mnGeneration;
        tcCall* mpNext;
        const tcCallbackScope mScope;
    };

    std::atomic<bool> mbSet{false};
    std::mutex mMutex;
    std::condition_variable mReturned;
    Callback mpCallback = nullptr;
    void* mpUser = nullptr;
    unsigned mnWhat = gnAll;
    uint64_t mnGeneration = 0; // of the callback
    tcCall* mpCalls = nullptr;
};

#endif
