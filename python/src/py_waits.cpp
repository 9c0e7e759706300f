#include "py_waits.h"

#include <vxcamkit/error.h>

#include <semaphore.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <ctime>

namespace vxcam::py {

namespace {

// Where a thread gets its work. The last of both who leave clears it away.
struct Desk {
    Desk()
    {
        sem_init(&begin, 0, 0);
        sem_init(&done, 0, 0);
    }
    ~Desk()
    {
        sem_destroy(&begin);
        sem_destroy(&done);
    }
    Desk(const Desk&) = delete;
    Desk& operator=(const Desk&) = delete;

    sem_t begin{}, done{};
    std::shared_ptr<Job> job;
    std::atomic<bool> isLeft{false};
    std::atomic<int> served{0}; // orders the job before its end, beside the semaphores
    const int forks = forksSoFar();
};

void serve(const std::shared_ptr<Desk>& desk)
{
    for (;;) {
        while (sem_wait(&desk->begin) != 0) {
        }
        if (desk->isLeft) return;
        desk->job->run();
        desk->job = nullptr;
        desk->served.fetch_add(1, std::memory_order_release);
        sem_post(&desk->done);
    }
}

std::shared_ptr<Desk> newDesk()
{
    auto desk = std::make_shared<Desk>();
    startQuietly([desk] { serve(desk); }).detach();
    return desk;
}

// The thread that serves it ends behind its work.
void leave(const std::shared_ptr<Desk>& desk)
{
    desk->isLeft = true;
    sem_post(&desk->begin);
}

// Whether the work was done; not when the time was over or a signal came.
bool waitASlice(Desk* desk)
{
    const pybind11::gil_scoped_release released;
    timespec until{};
    clock_gettime(CLOCK_MONOTONIC, &until);
    until.tv_nsec += std::chrono::nanoseconds(kSlice).count();
    if (until.tv_nsec >= 1'000'000'000) {
        until.tv_nsec -= 1'000'000'000;
        ++until.tv_sec;
    }
    if (sem_clockwait(&desk->done, CLOCK_MONOTONIC, &until) != 0) return false;
    return desk->served.load(std::memory_order_acquire) > 0;
}

// What a job does until it ends, nobody is to see half done, as far as there is time for that.
void leaveInOrder(Desk* desk, const Company& company)
{
    const auto until = std::chrono::steady_clock::now() + company.leave();
    while (!waitASlice(desk) && std::chrono::steady_clock::now() < until) {
    }
}

// That of the calling thread, which is kept from wait to wait; none while it is in use.
struct KeptDesk {
    std::shared_ptr<Desk> desk;

    KeptDesk() = default;
    ~KeptDesk()
    {
        if (desk) leave(desk);
    }
    KeptDesk(const KeptDesk&) = delete;
    KeptDesk& operator=(const KeptDesk&) = delete;
};

thread_local KeptDesk kept;

} // namespace

void runAside(std::shared_ptr<Job> job, const Limit& limit, const Company& company)
{
    const auto start = std::chrono::steady_clock::now();
    std::shared_ptr<Desk> desk = std::exchange(kept.desk, nullptr);
    if (desk && desk->forks != forksSoFar()) {
        new std::shared_ptr<Desk>(std::exchange(desk, nullptr)); // its thread stayed behind
    }
    if (!desk) desk = newDesk();
    desk->job = std::move(job);
    sem_post(&desk->begin);
    try {
        while (!waitASlice(desk.get())) {
            checkSignals();
            if (company.look) company.look();
            if (limit.most && std::chrono::steady_clock::now() - start >= *limit.most) {
                throw Error(ErrorKind::Timeout, limit.text());
            }
        }
    } catch (...) {
        if (company.leave) leaveInOrder(desk.get(), company);
        leave(desk);
        throw;
    }
    if (std::shared_ptr<Desk> other = std::exchange(kept.desk, std::move(desk))) leave(other);
}

std::thread startQuietly(std::function<void()> work)
{
    sigset_t all, before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    try {
        std::thread thread(std::move(work));
        pthread_sigmask(SIG_SETMASK, &before, nullptr);
        return thread;
    } catch (...) {
        pthread_sigmask(SIG_SETMASK, &before, nullptr);
        throw;
    }
}

void checkSignals()
{
    if (PyErr_CheckSignals() != 0) throw pybind11::error_already_set();
}

} // namespace vxcam::py
