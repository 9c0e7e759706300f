#include "tcSimWorker.h"

#include <system_error>
#include <utility>

tcSimWorker::tcSimWorker(uint32_t rows, uint32_t columns, uint64_t seed)
    : mnRows(rows), mnColumns(columns), mnSeed(seed)
{
    try {
        mtThread = std::thread([this] { Run(); });
    } catch (const std::system_error& error) {
        throw std::system_error(error.code(), "cannot start a thread");
    }
}

tcSimWorker::~tcSimWorker()
{
    {
        std::lock_guard<std::mutex> lock(mtMutex);
        mbStop = true;
        mbCancelled = true;
    }
    mtChanged.notify_one();
    mtThread.join();
}

void tcSimWorker::Make(tsSimJob job, tpDone done)
{
    {
        std::lock_guard<std::mutex> lock(mtMutex);
        mtJob = std::move(job);
        mpDone = std::move(done);
        mbCancelled = true;
    }
    mtChanged.notify_one();
}

void tcSimWorker::Cancel()
{
    std::lock_guard<std::mutex> lock(mtMutex);
    mtJob.reset();
    mpDone = nullptr;
    mbCancelled = true;
}

void tcSimWorker::Resize(uint32_t rows, uint32_t columns)
{
    std::lock_guard<std::mutex> lock(mtMutex);
    mnRows = rows;
    mnColumns = columns;
}

void tcSimWorker::Run()
{
    std::unique_lock<std::mutex> lock(mtMutex);
    std::unique_ptr<tcSimSensor> sensor;
    auto fits = [&] {
        return sensor && sensor->Rows() == mnRows && sensor->Columns() == mnColumns;
    };
    for (;;) {
        if (!fits()) {
            const uint32_t rows = mnRows, columns = mnColumns;
            lock.unlock();
            sensor.reset(); // before there is a second one
            sensor = std::make_unique<tcSimSensor>(rows, columns, mnSeed);
            lock.lock();
        }
        mtChanged.wait(lock, [this] { return mbStop || mtJob; });
        if (mbStop) return;
        if (!fits()) continue;
        const tsSimJob job = std::move(*mtJob);
        const tpDone done = std::move(mpDone);
        mtJob.reset();
        mpDone = nullptr;
        mbCancelled = false;
        lock.unlock();
        const int32_t stars = job.conditions.stars;
        if (stars != sensor->Stars()) {
            const uint32_t rows = sensor->Rows(), columns = sensor->Columns();
            sensor.reset(); // before there is a second one
            sensor = std::make_unique<tcSimSensor>(rows, columns, mnSeed, stars);
        }
        sensor->Look(job.conditions.optics);
        std::shared_ptr<tcSimPicture> picture = tcSimPicture::Make(*sensor, job, mbCancelled);
        if (picture) done(std::move(picture));
        lock.lock();
    }
}
