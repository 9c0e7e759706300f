#include "main_loop.h"

#include <vxcamkit/export.h>

#include <eventloop.h>
#include <indidevapi.h>
#include <indidriver.h>
#include <lilxml.h>

#include <algorithm>
#include <condition_variable>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <sys/eventfd.h>
#include <thread>
#include <unistd.h>
#include <utility>

namespace vxcam {

namespace {

constexpr size_t kMostAnswers = 1000; // that are remembered: several may wait for the same one

// What the threads share. Never destroyed: they may run when the process ends.
struct Loop {
    int wake = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    std::mutex lock;
    std::condition_variable answered;
    std::deque<std::function<void()>> queue;
    std::deque<std::string> answers; // of indiserver to pings, the last ones
};

Loop& loop()
{
    static Loop& only = *new Loop;
    return only;
}

void serveQueue(int wake, void*)
{
    uint64_t count = 0;
    [[maybe_unused]] const ssize_t got = read(wake, &count, sizeof count);
    std::deque<std::function<void()>> work;
    {
        std::lock_guard<std::mutex> guard(loop().lock);
        work.swap(loop().queue);
    }
    for (const auto& piece : work) {
        piece();
    }
}

// An answer to a ping says that a BLOB has been delivered. It goes to whoever waits for it,
// whatever the main loop does.
void noteAnswer(XMLEle* message)
{
    std::lock_guard<std::mutex> guard(loop().lock);
    loop().answers.emplace_back(findXMLAttValu(message, "uid"));
    if (loop().answers.size() > kMostAnswers) loop().answers.pop_front();
    loop().answered.notify_all();
}

void serve(XMLEle* message)
{
    char trouble[2048] = "";
    if (dispatch(message, trouble) < 0) {
        const char* device = findXMLAttValu(message, "device");
        if (*device != '\0') IDMessage(device, "[ERROR] %s", trouble);
        std::fprintf(stderr, "indi_vxcam_ccd: %s\n", trouble);
    }
}

void readMessages()
{
    LilXML* const parser = newLilXML();
    char buffer[65536], trouble[2048];
    for (ssize_t count; (count = read(STDIN_FILENO, buffer, sizeof buffer)) > 0;) {
        for (ssize_t i = 0; i < count; ++i) {
            const std::shared_ptr<XMLEle> message(readXMLEle(parser, buffer[i], trouble),
                                                  [](XMLEle* e) { delXMLEle(e); });
            if (!message) {
                if (trouble[0] != '\0') std::fprintf(stderr, "indi_vxcam_ccd: %s\n", trouble);
            } else if (std::strcmp(tagXMLEle(message.get()), "pingReply") == 0) {
                noteAnswer(message.get());
            } else {
                onMainLoop([message] { serve(message.get()); });
            }
        }
    }
}

} // namespace

void onMainLoop(std::function<void()> work)
{
    {
        std::lock_guard<std::mutex> guard(loop().lock);
        loop().queue.push_back(std::move(work));
    }
    const uint64_t one = 1;
    [[maybe_unused]] const ssize_t sent = write(loop().wake, &one, sizeof one);
}

void runMainLoop(std::function<void()> atEnd)
{
    addCallback(loop().wake, serveQueue, nullptr);
    std::thread([atEnd = std::move(atEnd)] {
        readMessages();
        onMainLoop([atEnd] {
            atEnd();
            std::_Exit(EXIT_SUCCESS); // other threads may still run
        });
    }).detach();
    eventLoop();
    std::_Exit(EXIT_FAILURE);
}

} // namespace vxcam

// Several devices may wait for the same answer, since INDI counts the BLOBs of a process.
//
// INDI's own waits for the answer to a ping in whatever thread sends a BLOB, by reading standard
// input beside the event loop: both may take what the other waits for. This one takes its place.
extern "C" VXCAMKIT_EXPORT void waitPingReply(const char* uid);
extern "C" void waitPingReply(const char* uid)
{
    vxcam::Loop& loop = vxcam::loop();
    std::unique_lock<std::mutex> guard(loop.lock);
    loop.answered.wait(guard, [&] {
        return std::find(loop.answers.begin(), loop.answers.end(), uid) != loop.answers.end();
    });
}
