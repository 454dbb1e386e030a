#pragma once

#include <memory>

#include <boost/function.hpp>

#include "kracore/Export.h"

namespace zuc::components {

/// An effect that has work done off the audio thread. Derived from besides the component base.
class ZUC_API SchedulableEffect {
public:
    /// The work; runs on a worker, for one effect at a time in the whole process. [worker]
    virtual void ScheduledFunction() = 0;

protected:
    SchedulableEffect() = default;
    ~SchedulableEffect() = default;
};

/// The process's workers for effects: one for each started group of 24 that subscribe.
///
/// An effect subscribes while it is active, schedules itself from Process as often as it likes, and
/// unsubscribes before its storage goes away; what is still queued for it then is skipped. The pool never
/// owns an effect. Created by zuc::Initialize, ended by zuc::Terminate; without a pool the three entry
/// points do nothing.
///
/// Deliberate: the scheduled functions of all effects exclude each other, however many workers there are.
/// Unsubscribing relies on it; further workers only shorten the wait for the next entry.
class ZUC_API EffectThreadPool {
public:
    /// Queues the effect's function and wakes at most one sleeping worker. A full queue drops the entry
    /// and counts it. [audio]
    static void ScheduleEffect(SchedulableEffect* effect);
    /// [host]
    static void SubscribeEffect(SchedulableEffect* effect);
    /// Returns once the effect's function cannot run any more; after nine waits of 50 ms it reports an
    /// assertion and gives up waiting. [host]
    static void UnsubscribeEffect(SchedulableEffect* effect);

    /// Creates and ends the process's pool. Called by zuc::Initialize and zuc::Terminate. [host]
    static void Create();
    static void Destroy();

    EffectThreadPool();
    ~EffectThreadPool();
    EffectThreadPool(const EffectThreadPool&) = delete;
    EffectThreadPool& operator=(const EffectThreadPool&) = delete;

    void Schedule(SchedulableEffect* effect);           // [audio]
    void SubscribeClient(SchedulableEffect* effect);    // [host]
    void UnsubscribeClient(SchedulableEffect* effect);  // [host]

    struct Statistics {
        int threads = 0;  // workers whose loop has not ended
        int subscribedEffects = 0;
        unsigned scheduledCalls = 0;  // entries taken, skipped ones included
        unsigned droppedCalls = 0;    // entries that found the queue full
    };
    Statistics GetStatistics() const;  // [any]

    /// Whether an effect that stays in flight while it unsubscribes is reported; on at first. [any]
    static void SetDanglingAssertion(bool on);

private:
    class Impl;
    std::unique_ptr<Impl> impl_;
};

/// Posts a job of any length to the threads that also carry the pool's workers, the effect thread queue.
/// Does nothing when the library is not initialized. [any, may block]
ZUC_API void PostToEffectThreadQueue(boost::function<void()> job);

}  // namespace zuc::components
