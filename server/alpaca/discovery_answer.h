// Lets Alpaca clients find the server.
#ifndef VXCAMD_DISCOVERY_ANSWER_H
#define VXCAMD_DISCOVERY_ANSWER_H

#include <atomic>
#include <string>
#include <thread>

namespace vxcam {

// Whether those bytes ask for servers.
bool isDiscoveryQuery(const std::string& bytes);

// Answers queries that come to a UDP port with the port of the server. Several servers share one.
//
// Errors: Error{Usage} when the port cannot be had. Owns: a thread.
class DiscoveryAnswer
{
public:
    static constexpr int kUsualPort = 32227;

    // `isLocal`: only clients on this host are answered.
    DiscoveryAnswer(int port, int serverPort, bool isLocal);
    ~DiscoveryAnswer();
    DiscoveryAnswer(const DiscoveryAnswer&) = delete;
    DiscoveryAnswer& operator=(const DiscoveryAnswer&) = delete;

private:
    void serve();
    void answerOne();

    const std::string answer_;
    const bool isLocal_;
    int socket_ = -1;
    std::atomic<bool> isEnding_{false};
    std::thread thread_;
};

} // namespace vxcam

#endif
