#include "tcFrameWriter.h"

#include "newfile.h"
#include "preview.h"

#include <utility>

namespace {

// An empty frame with the storage of this one's pixels, which it loses.
tsFrame TakePixels(tsFrame* frame)
{
    tsFrame storage;
    storage.pixels16.swap(frame->pixels16);
    storage.pixels32.swap(frame->pixels32);
    return storage;
}

} // namespace

tcFrameWriter::tcFrameWriter(tcSession& session, tcFrameQueue& queue, tsWriterOptions options)
    : mSession(session), mQueue(queue), mtOptions(std::move(options)), mThread([this] { Run(); })
{}

tcFrameWriter::~tcFrameWriter()
{
    Stop();
}

void tcFrameWriter::Finish()
{
    if (mThread.joinable()) mThread.join();
}

void tcFrameWriter::Stop()
{
    mbCancelled = true;
    mQueue.Close();
    Finish();
}

void tcFrameWriter::ThrowFailure() const
{
    if (mpFailure) std::rethrow_exception(mpFailure);
}

void tcFrameWriter::Run()
{
    try {
        while (std::optional<tsFrame> frame = mQueue.Pop()) {
            Write(std::move(*frame));
        }
    } catch (const tcFailure&) {
        mpFailure = std::current_exception();
    } catch (const std::exception& error) {
        mpFailure = std::make_exception_ptr(tcFailure(eExitFile, error.what()));
    }
    if (mpFailure) {
        mbFailed = true;
        mQueue.Close();
    }
    mbDone = true;
    mSession.Wake();
}

// A preview is made first, and a frame's file comes last: whoever sees it has both.
void tcFrameWriter::Write(tsFrame frame)
{
    const size_t number = maWritten.size();
    if (!frame.temperature) frame.temperature = mSession.Temperature(mtOptions.temperatureDeadline);
    tsWrittenFrame written;
    written.figures = Figures(frame);
    written.simulatorSum = mSession.SimulatorSum(frame.index);
    written.file = mtOptions.files.at(number);
    const std::vector<char> fits = MakeFits(frame, mtOptions.facts);
    if (!mtOptions.previews.empty()) {
        written.preview = mtOptions.previews.at(number);
        const std::vector<char> png = MakePreview(frame);
        WriteNewFile(written.preview, png.data(), png.size(), mtOptions.force, mbCancelled);
    }
    WriteNewFile(written.file, fits.data(), fits.size(), mtOptions.force, mbCancelled);
    mQueue.Recycle(TakePixels(&frame));
    written.frame = std::move(frame);
    maWritten.push_back(std::move(written));
}
