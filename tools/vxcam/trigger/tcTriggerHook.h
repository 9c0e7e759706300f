// How a run that has a camera lets other processes trigger it: a camera serves one client.
#ifndef TCTRIGGERHOOK_H
#define TCTRIGGERHOOK_H

#include <chrono>
#include <functional>
#include <string>
#include <thread>

// Takes triggers for the camera of that name from processes of the same user on this host, one
// after the other. What a process made active and left so becomes inactive when it goes. There is
// none where another run has taken the name, or the system gives no socket or thread.
//
// Threads: one of its own, on which `set` is called: true makes the trigger active. What it throws
//   the other process is told.
// Owns: a socket without a file, so that nothing is left of it whatever way the process ends.
class tcTriggerHook
{
public:
    tcTriggerHook(const std::string& camera, std::function<void(bool)> set);
    ~tcTriggerHook(); // waits for the call that is under way
    tcTriggerHook(const tcTriggerHook&) = delete;
    tcTriggerHook& operator=(const tcTriggerHook&) = delete;

private:
    void Serve();
    void ServeOne(int client);
    bool WaitFor(int descriptor) const;
    std::string Answer(bool active);

    const std::function<void(bool)> mSet;
    int mhListening = -1, mhStop = -1;
    std::thread mThread;
};

// The other side: what asks for triggers.
//
// Threads: one. Owns: the connection.
class tcTriggerCall
{
public:
    // Throws tcFailure with eExitNoCamera when no run of this user has the camera.
    explicit tcTriggerCall(const std::string& camera);
    ~tcTriggerCall();
    tcTriggerCall(const tcTriggerCall&) = delete;
    tcTriggerCall& operator=(const tcTriggerCall&) = delete;

    // Returns when the camera has been told. Throws tcFailure: eExitCamera when it does not take
    // it, eExitTimeout when the run does not answer, also after a signal.
    void Set(bool active);

private:
    const std::string msCamera;
    int mhSocket = -1;
};

#endif
